// The file under faults, and its cut at 1 GiB. Large files are sparse: they cost no disk.
#include <tests/logging/LoggerFixture.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using LoggerTests::LoggerFixture;
using LoggerTests::OwnLogger;
using TestSupport::ImportPatch;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr long long kLimit = 1'073'741'824;
constexpr long long kKept = 52'428'800;
constexpr std::size_t kHeaderLength = 29 + 23 + 6; // text, stamp, "**" and two line ends

/// A logger writes lines of known length: a prefix and the rest.
std::string TextForLine(std::size_t length)
{
    const std::string prefix = "15/11/2026 04:38:29.123, tid: " + std::to_string(GetCurrentThreadId()) + ", (1:1), ";
    return std::string(length - prefix.size() - 2, 'x');
}

class LoggerFileTest : public LoggerFixture
{
protected:
    /// A file of `size` bytes whose last bytes are `tail`.
    void MakeLarge(long long size, const std::string& tail, const std::string& name = "app.log") const
    {
        const UniqueFileHandle file(
            CreateFileA((m_folder / name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
        LARGE_INTEGER position = {};
        position.QuadPart = size - static_cast<long long>(tail.size());
        ASSERT_TRUE(SetFilePointerEx(file.Get(), position, nullptr, FILE_BEGIN));
        DWORD written = 0;
        ASSERT_TRUE(WriteFile(file.Get(), tail.data(), static_cast<DWORD>(tail.size()), &written, nullptr));
    }
    long long SizeOf(const std::string& name = "app.log") const
    {
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        GetFileAttributesExA((m_folder / name).c_str(), GetFileExInfoStandard, &data);
        return static_cast<long long>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
    }
    std::string Bytes(long long from, std::size_t count, const std::string& name = "app.log") const
    {
        const UniqueFileHandle file(CreateFileA((m_folder / name).c_str(), GENERIC_READ,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                                nullptr));
        LARGE_INTEGER position = {};
        position.QuadPart = from;
        SetFilePointerEx(file.Get(), position, nullptr, FILE_BEGIN);
        std::string bytes(count, '\0');
        DWORD read = 0;
        ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(count), &read, nullptr);
        bytes.resize(read);
        return bytes;
    }
    void ExpectHeader(const std::string& name = "app.log") const
    {
        EXPECT_THAT(Bytes(0, kHeaderLength, name),
                    testing::MatchesRegex("\\*\\* Log file was truncated at ../../.... ..:..:......\\*\\*\r\n\r\n"));
    }
};

std::atomic<bool> g_diskFull = false;
std::atomic<long long> g_roomLeft = 0;

BOOL WINAPI WriteWhileThereIsRoom(HANDLE file, LPCVOID data, DWORD count, LPDWORD written, LPOVERLAPPED overlapped)
{
    if (g_diskFull && count > g_roomLeft)
    {
        *written = 0;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }
    g_roomLeft -= count;
    return WriteFile(file, data, count, written, overlapped);
}

BOOL WINAPI WriteHalf(HANDLE file, LPCVOID data, DWORD count, LPDWORD written, LPOVERLAPPED overlapped)
{
    const bool shorten = g_diskFull.exchange(false);
    return WriteFile(file, data, shorten ? count / 2 : count, written, overlapped);
}

BOOL WINAPI FailToDelete(LPCSTR)
{
    SetLastError(ERROR_SHARING_VIOLATION);
    return FALSE;
}

} // namespace

TEST_F(LoggerFileTest, ALineThatStaysBelowTheLimitLeavesTheFileUntouched)
{
    const std::size_t room = 80;
    MakeLarge(kLimit - static_cast<long long>(room), "tail");
    OwnLogger logger;
    LogText(logger, TextForLine(room - 1));
    WriteAll(logger);

    EXPECT_EQ(SizeOf(), kLimit - 1);
    EXPECT_EQ(Bytes(kLimit - static_cast<long long>(room) - 4, 4), "tail");
}

TEST_F(LoggerFileTest, ALineThatReachesTheLimitCutsTheFileToItsLast50MiBFirst)
{
    const std::size_t room = 80;
    MakeLarge(kLimit - static_cast<long long>(room), "half a line\r\ntail");
    OwnLogger logger;
    const std::string text = TextForLine(room);
    LogText(logger, text);
    WriteAll(logger);

    ASSERT_EQ(SizeOf(), static_cast<long long>(kHeaderLength) + kKept + static_cast<long long>(room));
    ExpectHeader();
    const long long end = static_cast<long long>(kHeaderLength) + kKept;
    EXPECT_EQ(Bytes(end - 4, 4), "tail");
    EXPECT_THAT(Bytes(end, room), testing::EndsWith("(1:1), " + text + "\r\n"));
}

// The numbers of a support case: 30 bytes more are too many for a file of 1,073,741,800 bytes, 20 are not. Lines are
// longer than that, so the bytes in the file stand for the difference.
TEST_F(LoggerFileTest, TheTestCountsTheLineWithItsEnd)
{
    const std::size_t line = 90;
    for (const bool cut : {false, true})
    {
        MakeLarge(kLimit - static_cast<long long>(line) - (cut ? 0 : 1), "tail");
        OwnLogger logger;
        LogText(logger, TextForLine(line));
        WriteAll(logger);
        EXPECT_EQ(SizeOf() < kLimit / 2, cut);
    }
}

TEST_F(LoggerFileTest, AfterTheCutTheSizeIsCountedAnew)
{
    MakeLarge(kLimit - 10, "tail");
    OwnLogger logger;
    for (int i = 0; i < 1000; ++i)
    {
        LogText(logger, TextForLine(100));
    }
    WriteAll(logger);

    EXPECT_EQ(SizeOf(), static_cast<long long>(kHeaderLength) + kKept + 100 * 1000);
}

TEST_F(LoggerFileTest, LinesBeforeTheCutAreInTheFileThatIsCut)
{
    MakeLarge(kLimit - 1000, "tail");
    OwnLogger logger;
    for (int i = 0; i < 10; ++i)
    {
        LogText(logger, TextForLine(100 + static_cast<std::size_t>(i))); // the tenth reaches the limit
    }
    WriteAll(logger);

    const long long before = 100 + 101 + 102 + 103 + 104 + 105 + 106 + 107 + 108;
    ASSERT_EQ(SizeOf(), static_cast<long long>(kHeaderLength) + kKept + 109);
    EXPECT_EQ(Bytes(static_cast<long long>(kHeaderLength) + kKept - before - 4, 4), "tail");
}

TEST_F(LoggerFileTest, WithTruncationDisabledTheFileGrowsOn)
{
    SetSwitch("hx41svc_disable_log_truncation", 1);
    MakeLarge(kLimit - 10, "tail");
    OwnLogger logger;
    LogText(logger, TextForLine(100));
    WriteAll(logger);

    EXPECT_EQ(SizeOf(), kLimit + 90);
}

// Kept: the size is counted in 32 bits, so a file that grew past 4 GiB meanwhile is cut at another place.
TEST_F(LoggerFileTest, AFileBeyond4GiBIsTakenByItsLow32Bits)
{
    const long long beyond = 4'294'967'296;
    MakeLarge(beyond + 1000, "tail");
    OwnLogger logger;
    LogText(logger, TextForLine(100));
    WriteAll(logger);

    EXPECT_EQ(SizeOf(), beyond + 1100);
    EXPECT_EQ(Bytes(beyond + 996, 4), "tail");
}

TEST_F(LoggerFileTest, TheCutMovesTheLogToThePathOfThatMoment)
{
    MakeLarge(kLimit - 1000, "tail");
    OwnLogger logger;
    logger.SetPath(m_path);
    LogText(logger, TextForLine(100));
    logger.Start();
    ASSERT_TRUE(TestSupport::Eventually([&] { return SizeOf() == kLimit - 900; }));

    logger.SetPath(m_folder / "b.log");
    LogText(logger, TextForLine(1000));
    logger.Shutdown();

    EXPECT_EQ(SizeOf("b.log"), static_cast<long long>(kHeaderLength) + kKept + 1000);
    ExpectHeader("b.log");
    EXPECT_EQ(SizeOf(), kLimit - 900); // deleted is what the path names now
}

TEST_F(LoggerFileTest, AFileThatCannotBeDeletedIsCutInPlace)
{
    const ImportPatch held("KERNEL32.dll", "DeleteFileA", &FailToDelete);
    MakeLarge(kLimit - 10, "tail");
    OwnLogger logger;
    LogText(logger, TextForLine(100));
    LogText(logger, TextForLine(100));
    WriteAll(logger);

    EXPECT_EQ(SizeOf(), static_cast<long long>(kHeaderLength) + kKept + 200);
    ExpectHeader();
}

TEST_F(LoggerFileTest, AReaderThatHoldsTheFileDoesNotStopTheCut)
{
    MakeLarge(kLimit - 10, "tail");
    const UniqueFileHandle reader(CreateFileA(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                              OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(reader);
    OwnLogger logger;
    LogText(logger, TextForLine(100));
    WriteAll(logger);

    EXPECT_EQ(SizeOf(), static_cast<long long>(kHeaderLength) + kKept + 100);
}

TEST_F(LoggerFileTest, AFullDiskLosesOnlyWhatDoesNotFit)
{
    const ImportPatch patch("KERNEL32.dll", "WriteFile", &WriteWhileThereIsRoom);
    OwnLogger logger;
    for (int i = 0; i < 10; ++i)
    {
        LogText(logger, TextForLine(100));
    }
    g_diskFull = true;
    g_roomLeft = 350;
    WriteAll(logger);
    EXPECT_EQ(SizeOf(), 300);

    g_diskFull = false;
    g_roomLeft = 1'000'000;
    logger.SetRegistryKey("hx41svc_logging");
    LogText(logger, "there is room again");
    logger.Start();
    logger.Shutdown();
    ASSERT_EQ(Messages().size(), 4u);
    EXPECT_EQ(Messages()[3], "there is room again");
}

TEST_F(LoggerFileTest, AShortWriteIsCompleted)
{
    const ImportPatch patch("KERNEL32.dll", "WriteFile", &WriteHalf);
    OwnLogger logger;
    for (int i = 0; i < 101; ++i)
    {
        LogText(logger, std::to_string(i));
    }
    g_diskFull = true;
    WriteAll(logger);

    ASSERT_EQ(Messages().size(), 101u);
    EXPECT_EQ(Messages()[100], "100");
}

// Bytes that were not written do not count for the limit.
TEST_F(LoggerFileTest, FailedWritesAreNotCounted)
{
    const ImportPatch patch("KERNEL32.dll", "WriteFile", &WriteWhileThereIsRoom);
    const std::size_t room = 500;
    MakeLarge(kLimit - static_cast<long long>(room), "tail");
    OwnLogger logger;
    for (int i = 0; i < 4; ++i)
    {
        LogText(logger, TextForLine(100));
    }
    g_diskFull = true;
    g_roomLeft = 0;
    WriteAll(logger);
    g_diskFull = false;
    logger.SetRegistryKey("hx41svc_logging");
    for (int i = 0; i < 4; ++i)
    {
        LogText(logger, TextForLine(100));
    }
    logger.Start();
    logger.Shutdown();

    EXPECT_EQ(SizeOf(), kLimit - static_cast<long long>(room) + 400);
}
