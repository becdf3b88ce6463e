#include <UtilsLib/compression/CompressionLib.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/compression/ZlibReference.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/ChildProcess.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <io.h>
#include <string>

using TestSupport::AllocationFault;
using TestSupport::ChildProcess;
using TestSupport::ImportPatch;
using TestSupport::OpenHandles;
using TestSupport::TempFolder;
using UtilsLib::CompressionLib;
using UtilsLib::Platform::UniqueFileHandle;
using namespace ZlibReference;

namespace
{

/// One step of the file operations that is made to fail.
enum class Step
{
    Open,
    Read,
    Write,
    ShortWrite,
    Close,
    Delete,
    Move,
};

struct Fault
{
    Step step;
    int failing; // which call of the step fails, from 1 on
    int calls = 0;
};

Fault g_fault;

bool Fails(Step step)
{
    return step == g_fault.step && ++g_fault.calls == g_fault.failing;
}

errno_t __cdecl OpenOrFail(FILE** file, const char* path, const char* mode)
{
    if (Fails(Step::Open))
    {
        *file = nullptr;
        return EMFILE;
    }
    return fopen_s(file, path, mode);
}

BOOL WINAPI ReadOrFail(HANDLE file, void* buffer, DWORD size, DWORD* read, OVERLAPPED* overlapped)
{
    if (Fails(Step::Read))
    {
        *read = 0;
        SetLastError(ERROR_CRC);
        return FALSE;
    }
    return ReadFile(file, buffer, size, read, overlapped);
}

BOOL WINAPI WriteOrFail(HANDLE file, const void* buffer, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    if (Fails(Step::Write))
    {
        *written = 0;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }
    // A volume that is nearly full takes a part and says nothing else.
    return WriteFile(file, buffer, Fails(Step::ShortWrite) ? size / 2 : size, written, overlapped);
}

int __cdecl CloseOrFail(FILE* file)
{
    const int result = fclose(file);
    return Fails(Step::Close) ? EOF : result;
}

BOOL WINAPI DeleteOrFail(const char* path)
{
    if (Fails(Step::Delete))
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    return DeleteFileA(path);
}

BOOL WINAPI MoveOrFail(const char* from, const char* to)
{
    if (Fails(Step::Move))
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    return MoveFileA(from, to);
}

/// Makes one call fail until scope end.
class ScopedFault
{
public:
    ScopedFault(Step step, int failing)
        : m_open("msvcrt.dll", "fopen_s", &OpenOrFail),
          m_close("msvcrt.dll", "fclose", &CloseOrFail),
          m_read("KERNEL32.dll", "ReadFile", &ReadOrFail, "msvcrt.dll"),
          m_write("KERNEL32.dll", "WriteFile", &WriteOrFail, "msvcrt.dll"),
          m_delete("KERNEL32.dll", "DeleteFileA", &DeleteOrFail),
          m_move("KERNEL32.dll", "MoveFileA", &MoveOrFail)
    {
        g_fault = {step, failing};
    }

    bool Happened() const
    {
        return g_fault.calls >= g_fault.failing;
    }

private:
    ImportPatch m_open;
    ImportPatch m_close;
    ImportPatch m_read;
    ImportPatch m_write;
    ImportPatch m_delete;
    ImportPatch m_move;
};

/// Runs `operate` with the first, second, ... call of `step` failing, and after each run `check` with whether the fault
/// happened, until a run gets by without it. Gives how many faults there were.
int WithEveryFault(Step step, const std::function<void()>& operate, const std::function<void(bool)>& check)
{
    int failing = 1;
    for (bool happened = true; happened && failing < 100; failing += happened ? 1 : 0)
    {
        SCOPED_TRACE("step " + std::to_string(static_cast<int>(step)) + ", call " + std::to_string(failing));
        {
            const ScopedFault fault(step, failing);
            operate();
            happened = fault.Happened();
        }
        check(happened);
    }
    return failing - 1;
}

std::string Inflated(const std::string& gzip)
{
    const Bytes input = AsBytes(gzip);
    Bytes output;
    CompressionLib::InflatePayload(input, output);
    return AsText(output);
}

using Operation = bool (*)(const std::string&, const std::string&);

struct Direction
{
    Operation operation;
    std::string source;
    std::string result;
};

std::vector<Direction> Directions()
{
    const Bytes data = Noise(300'000);
    const std::string plain = AsText(data);
    const std::string gzip = AsText(Deflated(data));
    const std::string zlib = AsText(Deflated(data, Container::Zlib, 8));
    return {{&CompressionLib::CompressFile, plain, gzip},
            {&CompressionLib::DecompressFile, gzip, plain},
            {&CompressionLib::CompressFile_Legacy, plain, zlib},
            {&CompressionLib::DecompressFile_Legacy, zlib, plain}};
}

} // namespace

TEST(CompressionLibFaultTest, EveryFailedOpenReadOrWriteFailsTheOperationAndLeaksNothing)
{
    const TempFolder folder;
    for (const Direction& direction : Directions())
    {
        folder.Write("source", direction.source);
        for (const Step step : {Step::Open, Step::Read, Step::Write, Step::ShortWrite})
        {
            const unsigned long handles = OpenHandles();
            bool good = false;
            const int failures = WithEveryFault(
                step, [&] { good = direction.operation(folder / "source", folder / "result"); },
                [&](bool happened) { EXPECT_EQ(good, !happened); });
            EXPECT_GE(failures, step == Step::Open ? 2 : 3);
            EXPECT_EQ(OpenHandles(), handles);
            EXPECT_TRUE(folder.Read("result") == direction.result); // of the last run
        }
        EXPECT_TRUE(folder.Read("source") == direction.source);
    }
}

namespace
{

/// All that was asked for, and then an error: as when a disk fails behind the data.
std::size_t __cdecl ReadThenFail(void* buffer, std::size_t size, std::size_t count, FILE* file)
{
    const std::size_t read = std::fread(buffer, size, count, file);
    file->_flag |= _IOERR;
    return read;
}

} // namespace

TEST(CompressionLibFaultTest, AReadErrorFailsTheOperationEvenWhenAllDataCameBeforeIt)
{
    const TempFolder folder;
    const Bytes data = Text(1000);
    const std::string plain = AsText(data);
    folder.Write("plain", plain);
    folder.Write("gzip", AsText(Deflated(data)));
    folder.Write("zlib", AsText(Deflated(data, Container::Zlib)));
    const ImportPatch reading("msvcrt.dll", "fread", &ReadThenFail);

    EXPECT_FALSE(CompressionLib::CompressFile(folder / "plain", folder / "result"));
    EXPECT_FALSE(CompressionLib::CompressFile_Legacy(folder / "plain", folder / "result"));
    EXPECT_FALSE(CompressionLib::DecompressFile(folder / "gzip", folder / "result"));
    EXPECT_FALSE(CompressionLib::DecompressFile_Legacy(folder / "zlib", folder / "result"));
}

TEST(CompressionLibFaultTest, AFailedCloseOfTheDestinationFailsTheOperation)
{
    const TempFolder folder;
    for (const Direction& direction : Directions())
    {
        folder.Write("source", direction.source);
        const unsigned long handles = OpenHandles();
        {
            const ScopedFault fault(Step::Close, 1);
            EXPECT_FALSE(direction.operation(folder / "source", folder / "result"));
            EXPECT_TRUE(fault.Happened());
        }
        {
            const ScopedFault fault(Step::Close, 2); // of the source, which has been read
            EXPECT_TRUE(direction.operation(folder / "source", folder / "result"));
            EXPECT_TRUE(fault.Happened());
        }
        EXPECT_EQ(OpenHandles(), handles);
    }
}

TEST(CompressionLibFaultTest, TheDestinationKeepsWhatWasWrittenBeforeAFailedWrite)
{
    const TempFolder folder;
    for (const Direction& direction : Directions())
    {
        folder.Write("source", direction.source);
        const ScopedFault fault(Step::Write, 2);
        EXPECT_FALSE(direction.operation(folder / "source", folder / "result"));
        const std::string written = folder.Read("result");
        EXPECT_GE(written.size(), 1u);
        EXPECT_TRUE(direction.result.rfind(written, 0) == 0);
    }
}

TEST(CompressionLibFaultTest, WhenMemoryIsShortTheFileOperationsFailAndLeakNothing)
{
    const TempFolder folder;
    for (const Direction& direction : Directions())
    {
        folder.Write("source", direction.source);
        const std::string source = folder / "source";
        const std::string result = folder / "result";
        const unsigned long handles = OpenHandles();
        int failures = 0;
        for (bool succeeded = false; !succeeded; failures += succeeded ? 0 : 1)
        {
            const AllocationFault memory(failures + 1);
            succeeded = direction.operation(source, result);
            ASSERT_EQ(succeeded, !memory.Happened());
            ASSERT_EQ(memory.Live(), 0);
        }
        EXPECT_GE(failures, 2); // zlib's state and its window at least
        EXPECT_EQ(OpenHandles(), handles);
    }
}

TEST(CompressionLibFaultTest, TheInflatedSizeIsTheResultEvenWhenTheFileCannotBeWritten)
{
    const TempFolder folder;
    const Bytes data = Noise(500'000);
    const Bytes input = Deflated(data);
    const std::string all = AsText(data);
    for (const Step step : {Step::Write, Step::ShortWrite})
    {
        const unsigned long handles = OpenHandles();
        const auto operate = [&] { EXPECT_EQ(CompressionLib::InflatePayload(input, folder / "output"), data.size()); };
        const auto nothingIsWrittenBehindAGap = [&](bool happened) {
            const std::string written = folder.Read("output");
            EXPECT_TRUE(written == all.substr(0, written.size()));
            EXPECT_EQ(written.size() < all.size(), happened);
        };
        const int failures = WithEveryFault(step, operate, nothingIsWrittenBehindAGap);
        EXPECT_EQ(failures, 4);
        EXPECT_EQ(OpenHandles(), handles);
    }
    EXPECT_TRUE(folder.Read("output") == all);
}

TEST(CompressionLibFaultTest, WhenMemoryIsShortTheFileFormGivesZeroAndClosesTheFile)
{
    const TempFolder folder;
    const Bytes input = Deflated(Text(1000));
    const std::string path = folder / "output";
    const unsigned long handles = OpenHandles();
    const AllocationFault memory(1); // the buffer: the file is open by then

    EXPECT_EQ(CompressionLib::InflatePayload(input, path), 0u);
    EXPECT_TRUE(memory.Happened());
    EXPECT_EQ(OpenHandles(), handles);
}

namespace
{

/// What was seen of the streams while they were read and written.
struct Seen
{
    bool inheritable = false;
    bool writable = false; // the source, for others
    int calls = 0;
};

Seen g_seen;
std::string g_sourcePath;

bool IsInheritable(FILE* file)
{
    DWORD flags = 0;
    return !GetHandleInformation(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file))), &flags) ||
           (flags & HANDLE_FLAG_INHERIT) != 0;
}

std::size_t __cdecl WatchedRead(void* buffer, std::size_t size, std::size_t count, FILE* file)
{
    ++g_seen.calls;
    g_seen.inheritable = g_seen.inheritable || IsInheritable(file);
    const UniqueFileHandle writer(CreateFileA(g_sourcePath.c_str(), GENERIC_WRITE,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                              OPEN_EXISTING, 0, nullptr));
    g_seen.writable = g_seen.writable || writer;
    return std::fread(buffer, size, count, file);
}

std::size_t __cdecl WatchedWrite(const void* buffer, std::size_t size, std::size_t count, FILE* file)
{
    ++g_seen.calls;
    g_seen.inheritable = g_seen.inheritable || IsInheritable(file);
    return std::fwrite(buffer, size, count, file);
}

} // namespace

TEST(CompressionLibFaultTest, FilesAreNotInheritedAndTheSourceIsNotWrittenMeanwhile)
{
    const TempFolder folder;
    const ImportPatch reading("msvcrt.dll", "fread", &WatchedRead);
    const ImportPatch writing("msvcrt.dll", "fwrite", &WatchedWrite);
    for (const Direction& direction : Directions())
    {
        folder.Write("source", direction.source);
        g_sourcePath = folder / "source";
        g_seen = {};
        EXPECT_TRUE(direction.operation(folder / "source", folder / "result"));
        EXPECT_GE(g_seen.calls, 6);
        EXPECT_FALSE(g_seen.inheritable);
        EXPECT_FALSE(g_seen.writable);
    }
    g_seen = {};
    EXPECT_EQ(CompressionLib::InflatePayload(Deflated(Text(10)), folder / "result"), 10u);
    EXPECT_EQ(g_seen.calls, 1);
    EXPECT_FALSE(g_seen.inheritable);
}

TEST(CompressionLibInPlaceTest, AFileIsReplacedByItsGzipForm)
{
    const TempFolder folder;
    for (const std::size_t size : {0u, 1u, kBuffer, 500'000u})
    {
        const std::string text = AsText(Text(size));
        folder.Write("file", text);
        folder.Write("file.temp", std::string(600'000, 'x')); // left by an earlier failure
        std::string path = folder / "file";
        const unsigned long handles = OpenHandles();

        CompressionLib::CompressFile(path);
        EXPECT_EQ(path, folder / "file");
        EXPECT_EQ(OpenHandles(), handles);
        EXPECT_EQ(folder.Tree(), std::vector<std::string>{"file"});
        EXPECT_TRUE(folder.Read("file") == AsText(Deflated(AsBytes(text))));
    }
}

TEST(CompressionLibInPlaceTest, AMissingFileLeavesNothing)
{
    const TempFolder folder;
    std::string path = folder / "missing";
    CompressionLib::CompressFile(path);
    EXPECT_TRUE(folder.Tree().empty());

    path.clear();
    CompressionLib::CompressFile(path);
    EXPECT_TRUE(folder.Tree().empty());
}

TEST(CompressionLibInPlaceTest, ATemporaryFileThatCannotBeOpenedLeavesTheFileAsItWas)
{
    const TempFolder folder;
    folder.Write("file", "content");
    folder.MakeFolder("file.temp");
    std::string path = folder / "file";

    CompressionLib::CompressFile(path);
    EXPECT_EQ(folder.Read("file"), "content");
}

TEST(CompressionLibInPlaceTest, AFailureBeforeTheDeletionLeavesTheFileAsItWas)
{
    const TempFolder folder;
    const std::string text = AsText(Noise(300'000));
    std::string path = folder / "file";
    const unsigned long handles = OpenHandles();
    for (const Step step : {Step::Open, Step::Read, Step::Write, Step::ShortWrite, Step::Close})
    {
        folder.Write("file", text);
        int failures = 0;
        const auto check = [&](bool happened) {
            const std::string file = folder.Read("file");
            const bool kept = file == text;
            const bool harmless = step == Step::Close && failures == 1; // of the source, which comes second
            EXPECT_EQ(kept, happened && !harmless);
            EXPECT_TRUE(kept || Inflated(file) == text);
            folder.Write("file", text);
            failures += happened ? 1 : 0;
        };
        WithEveryFault(
            step, [&] { CompressionLib::CompressFile(path); }, check);
        EXPECT_GE(failures, 2);
    }
    EXPECT_EQ(OpenHandles(), handles);
}

TEST(CompressionLibInPlaceTest, WhenMemoryIsShortTheFileStaysAsItWasAndNothingIsThrown)
{
    const TempFolder folder;
    folder.Write("file", "content");
    std::string path = folder / "file";
    int failures = 0;
    for (bool happened = true; happened; failures += happened ? 1 : 0)
    {
        SCOPED_TRACE(failures);
        {
            const AllocationFault memory(failures + 1);
            EXPECT_NO_THROW(CompressionLib::CompressFile(path));
            happened = memory.Happened();
            EXPECT_EQ(memory.Live(), 0);
        }
        EXPECT_EQ(folder.Read("file") == "content", happened);
        ASSERT_TRUE(failures != 0 || !folder.Exists("file.temp")); // the first is the temporary file's name
    }
    EXPECT_GE(failures, 3); // that name, zlib's state and its window at least
    EXPECT_EQ(Inflated(folder.Read("file")), "content");
}

TEST(CompressionLibInPlaceTest, AFailedDeletionLeavesTheFileAndTheWholeTemporaryFile)
{
    const TempFolder folder;
    folder.Write("file", "content");
    std::string path = folder / "file";
    const ScopedFault fault(Step::Delete, 1);

    CompressionLib::CompressFile(path);
    EXPECT_TRUE(fault.Happened());
    EXPECT_EQ(folder.Read("file"), "content");
    EXPECT_EQ(Inflated(folder.Read("file.temp")), "content");
}

TEST(CompressionLibInPlaceTest, AFailedRenamingLeavesTheContentInTheTemporaryFile)
{
    const TempFolder folder;
    folder.Write("file", "content");
    std::string path = folder / "file";
    const ScopedFault fault(Step::Move, 1);

    CompressionLib::CompressFile(path);
    EXPECT_TRUE(fault.Happened());
    EXPECT_EQ(folder.Tree(), std::vector<std::string>{"file.temp"});
    EXPECT_EQ(Inflated(folder.Read("file.temp")), "content");
}

TEST(CompressionLibInPlaceTest, AFileThatAnotherProgramReadsStaysWithItsTemporaryFile)
{
    const TempFolder folder;
    folder.Write("file", "content");
    std::string path = folder / "file";
    const UniqueFileHandle reader(
        CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));

    CompressionLib::CompressFile(path);
    EXPECT_EQ(folder.Read("file"), "content");
    EXPECT_EQ(Inflated(folder.Read("file.temp")), "content");
}

TEST(CompressionLibInPlaceTest, AProcessThatEndsInTheMiddleNeverTakesTheContentWithIt)
{
    const std::string text = AsText(Noise(500'000));
    for (const char* const at : {"write", "delete", "move"})
    {
        SCOPED_TRACE(at);
        const TempFolder folder;
        folder.Write("file", text);
        {
            ChildProcess child("child_compress_in_place", "\"" + (folder / "file") + "\" " + at);
            ASSERT_TRUE(child.WaitUntilReady());
        } // killed
        const bool deleted = std::string(at) == "move";
        EXPECT_EQ(folder.Exists("file"), !deleted);
        EXPECT_TRUE((deleted ? Inflated(folder.Read("file.temp")) : folder.Read("file")) == text);
        EXPECT_TRUE(folder.Exists("file.temp"));

        if (!deleted) // and the next attempt succeeds
        {
            std::string path = folder / "file";
            CompressionLib::CompressFile(path);
            EXPECT_TRUE(Inflated(folder.Read("file")) == text);
            EXPECT_FALSE(folder.Exists("file.temp"));
        }
    }
}
