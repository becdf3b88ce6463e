#include <UtilsLib/files/File.h>

#include <tests/files/RecordingWatcher.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::FieldsOf;
using TestSupport::ImportPatch;
using TestSupport::kShareAll;
using TestSupport::LastErrorText;
using TestSupport::OpenHandles;
using UtilsLib::File;

namespace
{

constexpr unsigned long kRead = GENERIC_READ;
constexpr unsigned long kWrite = GENERIC_WRITE;
constexpr unsigned long kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr unsigned long kOld = OPEN_EXISTING;
constexpr unsigned long kAlways = OPEN_ALWAYS;
constexpr unsigned long kNormal = FILE_ATTRIBUTE_NORMAL;
constexpr DWORD kErrorOfFault = ERROR_GEN_FAILURE;

/// A file "a.dat" of 10 bytes and a `File` on it.
class FileTest : public testing::Test
{
protected:
    FileTest()
    {
        m_folder.Write("a.dat", "0123456789");
        m_file.emplace(&m_watcher, 7, m_folder / "a.dat");
    }
    ~FileTest() override
    {
        m_watcher.then = nullptr; // it looks at what is being destroyed
    }

    void Open(unsigned long access = kReadWrite)
    {
        ASSERT_TRUE(m_file->Open(access, kShareAll, kOld, kNormal)) << LastErrorText("Open");
        m_watcher.calls.clear();
    }
    bool Write(std::string text)
    {
        unsigned long written = 0;
        return m_file->Write(text.data(), static_cast<int>(text.size()), written);
    }
    std::string Read(int size)
    {
        std::string text(static_cast<std::size_t>(size), '?');
        unsigned long read = 0;
        EXPECT_TRUE(m_file->Read(text.data(), size, read)) << LastErrorText("Read");
        text.resize(read);
        return text;
    }
    /// As the system sees it, without moving anything.
    unsigned long long FilePointer() const
    {
        LARGE_INTEGER position = {};
        SetFilePointerEx(m_file->GetHandle(), LARGE_INTEGER{}, &position, FILE_CURRENT);
        return static_cast<unsigned long long>(position.QuadPart);
    }

    TestSupport::TempFolder m_folder;
    RecordingWatcher m_watcher; // outlives the file
    std::optional<File> m_file;
};

struct Fields
{
    UtilsLib::IFileWatcher* watcher;
    std::string path;
    HANDLE handle;
    bool writable;
    unsigned long position;
    unsigned long ownerThreadId;
    long long id;
};

BOOL WINAPI RefuseToClose(HANDLE)
{
    SetLastError(kErrorOfFault);
    return FALSE;
}

BOOL WINAPI RefuseToSetEnd(HANDLE)
{
    SetLastError(kErrorOfFault);
    return FALSE;
}

DWORD WINAPI SeekElsewhere(HANDLE, LONG offset, PLONG, DWORD)
{
    return static_cast<DWORD>(offset) + 1;
}

DWORD WINAPI SeekFourGiBFurther(HANDLE, LONG offset, PLONG high, DWORD)
{
    *high = 1;
    return static_cast<DWORD>(offset);
}

DWORD WINAPI SeekThatFails(HANDLE, LONG, PLONG, DWORD)
{
    SetLastError(kErrorOfFault);
    return INVALID_SET_FILE_POINTER;
}

} // namespace

TEST_F(FileTest, ANewOneIsClosedAndOpensNothing)
{
    EXPECT_FALSE(m_file->IsOpen());
    EXPECT_FALSE(m_file->IsWritable());
    EXPECT_EQ(m_file->GetHandle(), INVALID_HANDLE_VALUE);
    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(FileTest, ThePathIsKeptAndReportedInLowerCase)
{
    File file(&m_watcher, 1, m_folder / "A.DAT");
    std::string path = m_folder / "a.dat";
    for (char& letter : path)
    {
        letter = static_cast<char>(letter >= 'A' && letter <= 'Z' ? letter + 32 : letter);
    }
    EXPECT_EQ(file.GetPath(), path);

    ASSERT_TRUE(file.Open(kRead, kShareAll, kOld, kNormal)) << LastErrorText("Open");

    EXPECT_THAT(m_watcher.calls, ElementsAre("open 1 a.dat 2147483648 7 3 128"));
}

TEST_F(FileTest, LowerCaseFollowsTheCLibrarysLocale)
{
    EXPECT_EQ(File(&m_watcher, 1, "\xC4\xFF[Z").GetPath(), "\xC4\xFF[z");
    ASSERT_NE(std::setlocale(LC_CTYPE, "English_United States.1252"), nullptr);

    EXPECT_EQ(File(&m_watcher, 1, "\xC4\xFF[Z").GetPath(), "\xE4\xFF[z"); // the letter A with two dots

    std::setlocale(LC_CTYPE, "C");
}

TEST_F(FileTest, TheFieldsStandInTheirOrderAndAreResetByClose)
{
    const Fields& fields = FieldsOf<Fields>(*m_file);
    EXPECT_EQ(fields.watcher, &m_watcher);
    EXPECT_EQ(fields.path, m_file->GetPath());
    EXPECT_EQ(fields.id, 7);
    Open();
    ASSERT_TRUE(m_file->Seek(5));
    EXPECT_EQ(fields.handle, m_file->GetHandle());
    EXPECT_TRUE(fields.writable);
    EXPECT_EQ(fields.position, 5u);
    EXPECT_EQ(fields.ownerThreadId, GetCurrentThreadId());

    ASSERT_TRUE(m_file->Close());

    EXPECT_EQ(fields.handle, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(fields.writable);
    EXPECT_EQ(fields.position, 0u);
    EXPECT_EQ(fields.ownerThreadId, 0u);
    EXPECT_EQ(fields.id, 7);
}

TEST_F(FileTest, OpenPassesTheMasksOnAndTellsTheWatcherAfterwards)
{
    bool wasOpen = false;
    m_watcher.then = [&] { wasOpen = m_file->IsOpen() && m_file->IsWritable(); };

    EXPECT_TRUE(m_file->Open(kWrite, FILE_SHARE_READ, kAlways, FILE_ATTRIBUTE_HIDDEN)) << LastErrorText("Open");

    EXPECT_THAT(m_watcher.calls, ElementsAre("open 7 a.dat 1073741824 1 4 2"));
    EXPECT_TRUE(wasOpen);
    EXPECT_TRUE(m_file->IsOpen());
}

TEST_F(FileTest, TheShareMaskAndTheCreationAreTheCallers)
{
    ASSERT_TRUE(m_file->Open(kRead, FILE_SHARE_READ, kOld, kNormal));
    File second(&m_watcher, 8, m_folder / "a.dat");
    File made(&m_watcher, 9, m_folder / "new.dat");

    EXPECT_FALSE(second.Open(kWrite, kShareAll, kOld, kNormal));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_TRUE(second.Open(kRead, kShareAll, kOld, kNormal));
    EXPECT_FALSE(made.Open(kRead, kShareAll, kOld, kNormal));
    EXPECT_TRUE(made.Open(kRead, kShareAll, CREATE_NEW, FILE_ATTRIBUTE_HIDDEN));
    EXPECT_NE(GetFileAttributesA((m_folder / "new.dat").c_str()) & FILE_ATTRIBUTE_HIDDEN, 0u);
}

TEST_F(FileTest, AFailedOpenLeavesItClosedAndTheReasonToTheCaller)
{
    File missing(&m_watcher, 1, m_folder / "missing.dat");

    EXPECT_FALSE(missing.Open(kReadWrite, kShareAll, kOld, kNormal));

    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_FALSE(missing.IsWritable());
    EXPECT_FALSE(missing.Close());
    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(FileTest, ASecondOpenFailsAndLeavesTheFirstHandleAlone)
{
    Open(kReadWrite);
    void* const handle = m_file->GetHandle();
    const unsigned long open = OpenHandles();
    SetLastError(ERROR_DISK_FULL);

    EXPECT_FALSE(m_file->Open(kRead, kShareAll, kOld, kNormal));

    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL}) << "nothing was asked of the system";
    EXPECT_EQ(m_file->GetHandle(), handle);
    EXPECT_TRUE(m_file->IsWritable());
    EXPECT_EQ(OpenHandles(), open);
    EXPECT_THAT(m_watcher.calls, IsEmpty());
    EXPECT_EQ(Read(3), "012");
}

TEST_F(FileTest, OnlyTheGenericWriteBitMakesItWritable)
{
    // Kept: what the mask allows is not looked at.
    const struct
    {
        unsigned long access;
        bool writable;
    } cases[] = {{kRead, false}, {kWrite, true}, {kReadWrite, true}, {GENERIC_ALL, false}, {FILE_WRITE_DATA, false}};
    for (const auto& [access, writable] : cases)
    {
        ASSERT_TRUE(m_file->Open(access, kShareAll, kOld, kNormal)) << access;
        EXPECT_EQ(m_file->IsWritable(), writable) << access;
        ASSERT_TRUE(m_file->Close());
        EXPECT_FALSE(m_file->IsWritable());
    }
}

TEST_F(FileTest, CloseTellsTheWatcherWithTheHandleGoneAndTheFieldsStillSet)
{
    Open();
    bool stillShown = false;
    bool handleGone = false;
    m_watcher.then = [&] {
        DWORD flags = 0;
        stillShown = m_file->IsOpen() && m_file->IsWritable();
        handleGone = !GetHandleInformation(m_file->GetHandle(), &flags);
    };

    EXPECT_TRUE(m_file->Close());

    EXPECT_THAT(m_watcher.calls, ElementsAre("close 7 a.dat"));
    EXPECT_EQ(m_watcher.lastOwner, GetCurrentThreadId());
    EXPECT_TRUE(stillShown);
    EXPECT_TRUE(handleGone);
    EXPECT_FALSE(m_file->IsOpen());
    EXPECT_FALSE(m_file->IsWritable());
    EXPECT_EQ(m_file->GetHandle(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(m_file->Close());
    EXPECT_EQ(m_watcher.calls.size(), 1u);
}

TEST_F(FileTest, TheOwnerIsTheThreadThatOpenedIt)
{
    DWORD opener = 0;
    std::thread([&] {
        opener = GetCurrentThreadId();
        m_file->Open(kRead, kShareAll, kOld, kNormal);
    }).join();

    EXPECT_TRUE(m_file->Close());

    EXPECT_EQ(m_watcher.lastOwner, opener);
    EXPECT_NE(opener, GetCurrentThreadId());
}

TEST_F(FileTest, ItCanBeOpenedAgainAndStartsAtPositionZero)
{
    Open();
    ASSERT_TRUE(m_file->Seek(5));
    ASSERT_TRUE(m_file->Close());
    Open();

    EXPECT_TRUE(Write("x"));

    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 0: x"));
}

TEST_F(FileTest, TheDestructorClosesAndTellsTheWatcherOnce)
{
    const unsigned long before = OpenHandles();
    Open();
    EXPECT_EQ(OpenHandles(), before + 1);
    m_watcher.then = [] { SetLastError(ERROR_GEN_FAILURE); };
    SetLastError(ERROR_DISK_FULL);

    m_file.reset();

    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_THAT(m_watcher.calls, ElementsAre("close 7 a.dat"));
}

TEST_F(FileTest, TheDestructorOfAClosedOneTellsNothing)
{
    Open();
    ASSERT_TRUE(m_file->Close());
    m_watcher.calls.clear();

    m_file.reset();

    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(FileTest, ACloseThatTheSystemRefusesLeavesItOpenWithItsFields)
{
    Open();
    ASSERT_TRUE(m_file->Seek(5));
    void* const handle = m_file->GetHandle();
    {
        const ImportPatch refuse("KERNEL32.dll", "CloseHandle", &RefuseToClose);
        EXPECT_FALSE(m_file->Close());
        EXPECT_EQ(GetLastError(), kErrorOfFault);
    }

    EXPECT_EQ(m_file->GetHandle(), handle);
    EXPECT_TRUE(m_file->IsWritable());
    EXPECT_THAT(m_watcher.calls, IsEmpty());
    EXPECT_TRUE(Write("x"));
    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 5: x"));
}

TEST_F(FileTest, ADestructorWhoseCloseFailsTellsNothing)
{
    Open();
    const HANDLE handle = m_file->GetHandle();
    {
        const ImportPatch refuse("KERNEL32.dll", "CloseHandle", &RefuseToClose);
        m_file.reset();
    }

    EXPECT_THAT(m_watcher.calls, IsEmpty());
    EXPECT_TRUE(CloseHandle(handle));
}

TEST_F(FileTest, AWatcherThatThrowsInTheDestructorIsSwallowed)
{
    Open();
    m_watcher.then = [] { throw std::runtime_error("watcher"); };

    m_file.reset();

    EXPECT_THAT(m_watcher.calls, ElementsAre("close 7 a.dat"));
    m_watcher.then = nullptr;
    File alone(&m_watcher, 1, m_folder / "a.dat");
    EXPECT_TRUE(alone.Open(kReadWrite, 0, kOld, kNormal)) << LastErrorText("Open"); // nobody has it open
}

TEST_F(FileTest, AWatcherThatThrowsReachesTheCallerAndLeavesTheFileInOrder)
{
    m_watcher.then = [] { throw std::runtime_error("watcher"); };

    EXPECT_THROW(m_file->Open(kReadWrite, kShareAll, kOld, kNormal), std::runtime_error);
    EXPECT_TRUE(m_file->IsOpen());
    EXPECT_THROW(Write("x"), std::runtime_error);
    EXPECT_THROW(m_file->Truncate(), std::runtime_error);
    EXPECT_THROW(m_file->Close(), std::runtime_error);

    EXPECT_FALSE(m_file->IsOpen()); // the handle is gone and must not be closed again
    EXPECT_FALSE(m_file->Close());
}

// Kept: the copy is member by member, the handle is not duplicated.
TEST_F(FileTest, CopiesShareOneHandleAndTheFirstToCloseLeavesTheOtherADeadOne)
{
    Open();
    File copy(*m_file);
    EXPECT_EQ(copy.GetHandle(), m_file->GetHandle());
    EXPECT_EQ(copy.GetPath(), m_file->GetPath());
    EXPECT_TRUE(copy.IsWritable());
    EXPECT_TRUE(copy.Seek(4));
    EXPECT_EQ(FilePointer(), 4u);
    EXPECT_TRUE(copy.Close());
    EXPECT_THAT(m_watcher.calls, ElementsAre("close 7 a.dat"));

    EXPECT_TRUE(m_file->IsOpen());
    EXPECT_FALSE(m_file->Close());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_TRUE(m_file->IsOpen());
    m_file.reset();
    EXPECT_EQ(m_watcher.calls.size(), 1u);
}

TEST_F(FileTest, AssignmentCopiesTheHandleTheWatcherAndThePosition)
{
    Open();
    ASSERT_TRUE(m_file->Seek(6));
    RecordingWatcher other;
    File copy(&other, 8, "other");

    copy = *m_file;
    std::string text = "x";
    unsigned long written = 0;
    EXPECT_TRUE(copy.Write(text.data(), 1, written));

    EXPECT_THAT(other.calls, IsEmpty());
    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 6: x"));
    EXPECT_TRUE(m_file->Close());
}

TEST_F(FileTest, EveryOperationOnAClosedOneIsFalse)
{
    char buffer[4] = "abc";
    unsigned long count = 5;
    long long size = 6;
    const FILETIME time = {};

    EXPECT_FALSE(m_file->Read(buffer, 3, count));
    EXPECT_EQ(count, 0u);
    count = 5;
    EXPECT_FALSE(m_file->Write(buffer, 3, count));
    EXPECT_EQ(count, 0u);
    EXPECT_FALSE(m_file->Lock(0, 1));
    EXPECT_FALSE(m_file->Unlock(0, 1));
    EXPECT_FALSE(m_file->GetSize(size));
    EXPECT_EQ(size, 6);
    EXPECT_FALSE(m_file->Seek(0));
    EXPECT_FALSE(m_file->SetEof(0));
    EXPECT_FALSE(m_file->Truncate());
    EXPECT_FALSE(m_file->SetFileTimes(time, time, time));
    EXPECT_FALSE(m_file->Close());
    EXPECT_STREQ(buffer, "abc");
    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(FileTest, ReadsFromTheFilePointerWithoutTellingTheWatcher)
{
    Open(kRead);

    EXPECT_EQ(Read(4), "0123");
    EXPECT_EQ(Read(100), "456789");
    EXPECT_EQ(Read(100), "");
    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(FileTest, AReadThatTheSystemRefusesIsFalse)
{
    Open(kWrite);
    char buffer[4] = "abc";
    unsigned long read = 5;

    EXPECT_FALSE(m_file->Read(buffer, 3, read));

    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(read, 0u);
}

// Kept: writing does not advance the position that is reported.
TEST_F(FileTest, EveryWriteReportsThePositionOfTheLastSeek)
{
    Open();
    EXPECT_TRUE(Write("ab"));
    EXPECT_TRUE(Write("cd"));
    EXPECT_TRUE(m_file->Seek(8));
    EXPECT_TRUE(Write("efg"));
    EXPECT_TRUE(Write("h"));

    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 0: ab", "write 7 a.dat at 0: cd",
                                             "write 7 a.dat at 8: efg", "write 7 a.dat at 8: h"));
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(m_folder.Read("a.dat"), "abcd4567efgh");
}

TEST_F(FileTest, WriteHandsTheWatcherTheCallersOwnBuffer)
{
    class BufferWatcher final : public UtilsLib::IFileWatcher
    {
    public:
        void OnOpen(const long long&, std::string, const unsigned long&, const unsigned long&, const unsigned long&,
                    const unsigned long&) override
        {
        }
        void OnClose(const long long&, const std::string&, const unsigned long&) override
        {
        }
        void OnWrite(const long long&, const std::string&, unsigned long, const void* data, const int&) override
        {
            buffer = data;
        }
        void OnTruncate(const std::string&) override
        {
        }
        const void* buffer = nullptr;
    } watcher;
    File file(&watcher, 1, m_folder / "a.dat");
    ASSERT_TRUE(file.Open(kWrite, kShareAll, kOld, kNormal));
    char text[] = "xyz";
    unsigned long written = 0;

    EXPECT_TRUE(file.Write(text, 3, written));

    EXPECT_EQ(watcher.buffer, text);
    EXPECT_EQ(written, 3u);
}

TEST_F(FileTest, AFailedWriteIsFalseAndNotReported)
{
    Open(kRead);

    EXPECT_FALSE(Write("x"));

    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(FileTest, WritingNothingSucceedsAndIsReported)
{
    Open();

    EXPECT_TRUE(Write(""));

    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 0: "));
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(m_folder.Read("a.dat"), "0123456789");
}

TEST_F(FileTest, ANegativeSizeIsRefusedBeforeTheSystemSeesIt)
{
    Open();
    char buffer[4] = "abc";
    for (const int size : {-1, -0x7FFFFFFF - 1})
    {
        unsigned long count = 5;
        SetLastError(0);
        EXPECT_FALSE(m_file->Read(buffer, size, count)) << size;
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
        EXPECT_EQ(count, 0u);
        count = 5;
        SetLastError(0);
        EXPECT_FALSE(m_file->Write(buffer, size, count)) << size;
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
        EXPECT_EQ(count, 0u);
    }
    EXPECT_STREQ(buffer, "abc");
    EXPECT_THAT(m_watcher.calls, IsEmpty());
    EXPECT_EQ(FilePointer(), 0u);
}

TEST_F(FileTest, ANullBufferFailsInTheSystem)
{
    Open();
    unsigned long count = 5;

    EXPECT_FALSE(m_file->Read(nullptr, 4, count));
    EXPECT_FALSE(m_file->Write(nullptr, 4, count));

    EXPECT_THAT(m_watcher.calls, IsEmpty());
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(m_folder.Read("a.dat"), "0123456789");
}

TEST_F(FileTest, ALockedRangeConflictsUntilItIsUnlocked)
{
    Open();
    File other(&m_watcher, 8, m_folder / "a.dat");
    ASSERT_TRUE(other.Open(kReadWrite, kShareAll, kOld, kNormal));
    // Offsets from 2 GiB on are not negative, and the length is in the low half as well.
    EXPECT_TRUE(m_file->Lock(2, 3)) << LastErrorText("Lock");
    EXPECT_TRUE(m_file->Lock(0xFFFFFFFF, 0x80000000)) << LastErrorText("Lock");

    EXPECT_FALSE(other.Lock(4, 1));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_LOCK_VIOLATION});
    EXPECT_FALSE(other.Lock(0xFFFFFFFF, 1));
    EXPECT_TRUE(other.Lock(0, 2));
    EXPECT_TRUE(other.Lock(5, 1));
    EXPECT_FALSE(m_file->Unlock(2, 2));
    EXPECT_TRUE(m_file->Unlock(2, 3));
    EXPECT_TRUE(m_file->Unlock(0xFFFFFFFF, 0x80000000));
    EXPECT_TRUE(other.Lock(4, 1));
}

TEST_F(FileTest, GetSizeIs64Bit)
{
    Open();
    long long size = -1;
    EXPECT_TRUE(m_file->GetSize(size));
    EXPECT_EQ(size, 10);
    LARGE_INTEGER end;
    end.QuadPart = 0x100000005;
    ASSERT_TRUE(SetFilePointerEx(m_file->GetHandle(), end, nullptr, FILE_BEGIN));
    ASSERT_TRUE(SetEndOfFile(m_file->GetHandle()));

    EXPECT_TRUE(m_file->GetSize(size));

    EXPECT_EQ(size, 0x100000005);
}

TEST_F(FileTest, SeekReachesEvery32BitOffset)
{
    Open();
    for (const unsigned long offset : {0ul, 5ul, 10ul, 11ul, 0x7FFFFFFFul, 0x80000000ul, 0xFFFFFFFEul, 0xFFFFFFFFul})
    {
        SetLastError(ERROR_GEN_FAILURE); // of an earlier call: must not be taken for this one's
        EXPECT_TRUE(m_file->Seek(offset)) << offset << " " << LastErrorText("Seek");
        EXPECT_EQ(FilePointer(), offset);
        m_watcher.calls.clear();
        EXPECT_TRUE(Write(""));
        EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at " + std::to_string(offset) + ": "));
    }
}

TEST_F(FileTest, ASeekThatEndsElsewhereOrFailsKeepsThePosition)
{
    Open();
    ASSERT_TRUE(m_file->Seek(3));
    for (const auto fault : {&SeekElsewhere, &SeekFourGiBFurther, &SeekThatFails})
    {
        const ImportPatch patch("KERNEL32.dll", "SetFilePointer", fault);
        EXPECT_FALSE(m_file->Seek(5));
        EXPECT_FALSE(m_file->Seek(0xFFFFFFFE));
        EXPECT_FALSE(m_file->SetEof(5));
        EXPECT_FALSE(m_file->Truncate());
    }
    {
        const ImportPatch patch("KERNEL32.dll", "SetFilePointer", &SeekThatFails);
        EXPECT_FALSE(m_file->Seek(0xFFFFFFFF));
        EXPECT_EQ(GetLastError(), kErrorOfFault);
    }

    EXPECT_TRUE(Write("x"));

    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 3: x"));
    long long size = 0;
    EXPECT_TRUE(m_file->GetSize(size));
    EXPECT_EQ(size, 10);
}

TEST_F(FileTest, SetEofCutsAndLengthensWithoutTellingTheWatcher)
{
    Open();
    EXPECT_TRUE(m_file->SetEof(4));
    EXPECT_EQ(FilePointer(), 4u);
    EXPECT_TRUE(m_file->Seek(100)); // past the end
    EXPECT_TRUE(m_file->SetEof(6)) << LastErrorText("SetEof");
    EXPECT_THAT(m_watcher.calls, IsEmpty());

    EXPECT_TRUE(Write("x"));

    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 6: x"));
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(m_folder.Read("a.dat"), std::string("0123\0\0x", 7));
}

TEST_F(FileTest, SeekingPastTheEndDoesNotLengthenTheFile)
{
    Open();
    EXPECT_TRUE(m_file->Seek(100));
    long long size = 0;
    EXPECT_TRUE(m_file->GetSize(size));

    EXPECT_EQ(size, 10);
}

TEST_F(FileTest, TruncateEmptiesTheFileAndTellsTheWatcher)
{
    Open();
    ASSERT_TRUE(m_file->Seek(5));

    EXPECT_TRUE(m_file->Truncate());
    EXPECT_TRUE(Write("x"));

    EXPECT_THAT(m_watcher.calls, ElementsAre("truncate a.dat", "write 7 a.dat at 0: x"));
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(m_folder.Read("a.dat"), "x");
}

TEST_F(FileTest, AFailedSetEofLeavesThePositionAtTheOffsetSought)
{
    Open();
    ASSERT_TRUE(m_file->Seek(2));
    {
        const ImportPatch refuse("KERNEL32.dll", "SetEndOfFile", &RefuseToSetEnd);
        EXPECT_FALSE(m_file->SetEof(5));
        EXPECT_EQ(GetLastError(), kErrorOfFault);
    }
    EXPECT_EQ(FilePointer(), 5u);

    EXPECT_TRUE(Write("x"));

    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 5: x"));
}

TEST_F(FileTest, AFailedTruncateLeavesThePositionAtZeroAndTellsNothing)
{
    Open();
    ASSERT_TRUE(m_file->Seek(2));
    {
        const ImportPatch refuse("KERNEL32.dll", "SetEndOfFile", &RefuseToSetEnd);
        EXPECT_FALSE(m_file->Truncate());
        EXPECT_EQ(GetLastError(), kErrorOfFault);
    }
    EXPECT_EQ(FilePointer(), 0u);
    EXPECT_THAT(m_watcher.calls, IsEmpty());

    EXPECT_TRUE(Write("x"));

    EXPECT_THAT(m_watcher.calls, ElementsAre("write 7 a.dat at 0: x"));
}

TEST_F(FileTest, AReadOnlyHandleCannotCut)
{
    Open(kRead);

    EXPECT_FALSE(m_file->SetEof(5));
    EXPECT_EQ(FilePointer(), 5u);
    EXPECT_FALSE(m_file->Truncate());
    EXPECT_EQ(FilePointer(), 0u);

    EXPECT_THAT(m_watcher.calls, IsEmpty());
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(m_folder.Read("a.dat"), "0123456789");
}

TEST_F(FileTest, SetFileTimesHandsOnAllThreeTimes)
{
    static FILETIME seen[3];
    seen[0] = seen[1] = seen[2] = {};
    struct Spy
    {
        static BOOL WINAPI SetFileTime(HANDLE, const FILETIME* creation, const FILETIME* access, const FILETIME* write)
        {
            seen[0] = *creation;
            seen[1] = *access;
            seen[2] = *write;
            return TRUE;
        }
    };
    Open();
    const ImportPatch spy("KERNEL32.dll", "SetFileTime", &Spy::SetFileTime);

    EXPECT_TRUE(m_file->SetFileTimes(FILETIME{1, 2}, FILETIME{3, 4}, FILETIME{5, 6}));

    EXPECT_EQ(seen[0].dwLowDateTime, 1u);
    EXPECT_EQ(seen[1].dwLowDateTime, 3u);
    EXPECT_EQ(seen[2].dwLowDateTime, 5u);
    EXPECT_EQ(seen[2].dwHighDateTime, 6u);
}

TEST_F(FileTest, SetFileTimesChangesTheRealFile)
{
    Open();
    const FILETIME time = {0x12345680, 0x01D00000}; // some day in 2014
    FILETIME access = {};
    FILETIME write = {};

    EXPECT_TRUE(m_file->SetFileTimes(time, time, time)) << LastErrorText("SetFileTimes");

    ASSERT_TRUE(GetFileTime(m_file->GetHandle(), nullptr, &access, &write));
    EXPECT_EQ(CompareFileTime(&write, &time), 0);
    EXPECT_EQ(CompareFileTime(&access, &time), 0);
}

TEST_F(FileTest, PathsOf259CharactersWorkAndLongerOnesFailInTheSystem)
{
    const std::string folder = m_folder.Path() + "\\";
    File longest(&m_watcher, 1, folder + std::string(259 - folder.size(), 'x'));
    File tooLong(&m_watcher, 1, folder + std::string(262 - folder.size(), 'x'));

    EXPECT_TRUE(longest.Open(kReadWrite, 0, kAlways, kNormal)) << LastErrorText("Open");
    EXPECT_FALSE(tooLong.Open(kReadWrite, 0, kAlways, kNormal));

    EXPECT_NE(GetLastError(), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(tooLong.IsOpen());
    EXPECT_TRUE(longest.Close());
}
