#include <tests/logging/LoggerFixture.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/ImportPatch.h>

#include <gmock/gmock.h>

#include <regex>

using LoggerTests::CycleControl;
using LoggerTests::LoggerFixture;
using LoggerTests::OwnLogger;
using LoggerTests::RecordingObserver;
using testing::ElementsAre;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr long long kLimit = 0x40000000;
constexpr long long kKept = 52'428'800;
constexpr const char* kHeader = R"(\*\* Log file was truncated at \d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3}\*\*\r\n\r\n)";
constexpr std::size_t kHeaderSize = 29 + 23 + 6;

void PutAt(HANDLE file, long long position, const std::string& text)
{
    LARGE_INTEGER to;
    to.QuadPart = position;
    DWORD written = 0;
    ASSERT_TRUE(SetFilePointerEx(file, to, nullptr, FILE_BEGIN));
    ASSERT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
}

class LoggerTruncationTest : public LoggerFixture
{
protected:
    /// A file of holes but for "first" and "last" at the ends of what a cut keeps.
    void MakeFile(long long size, long long sizeAsTheLoggerSeesIt)
    {
        const UniqueFileHandle file(
            CreateFileA(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(file) << TestSupport::LastErrorText("CreateFileA");
        PutAt(file.Get(), sizeAsTheLoggerSeesIt - kKept, "first");
        PutAt(file.Get(), sizeAsTheLoggerSeesIt - 4, "last");
        LARGE_INTEGER end;
        end.QuadPart = size;
        ASSERT_TRUE(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN));
        ASSERT_TRUE(SetEndOfFile(file.Get()));
    }
    void MakeFile(long long size)
    {
        MakeFile(size, size);
    }
    static long long SizeOf(const std::string& path)
    {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        EXPECT_TRUE(GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) << path;
        return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    }
    long long Size() const
    {
        return SizeOf(m_path);
    }
    /// Bytes that a line of this message takes in the file.
    long long SizeOfLine(const std::string& message)
    {
        OwnLogger logger;
        logger.SetPath(m_folder / "probe.log");
        logger.LogText(message);
        logger.Start();
        logger.Shutdown();
        return static_cast<long long>(m_folder.Read("probe.log").size());
    }
    void WriteLine(const std::string& message)
    {
        OwnLogger logger;
        logger.LogText(message);
        WriteAll(logger);
    }
    /// That the file is a header, `kept` bytes from "first" to "last", and the messages.
    void ExpectCut(const std::string& file, const std::vector<std::string>& messages, std::size_t kept = kKept)
    {
        const std::string text = Text(file);
        ASSERT_GT(text.size(), kHeaderSize + kept);
        EXPECT_TRUE(std::regex_match(text.substr(0, kHeaderSize), std::regex(kHeader))) << text.substr(0, kHeaderSize);
        if (kept > 0)
        {
            EXPECT_EQ(text.substr(kHeaderSize, 5), "first");
        }
        if (kept == kKept)
        {
            EXPECT_EQ(text.substr(kHeaderSize + kept - 4, 4), "last");
        }
        std::vector<std::string> found;
        std::istringstream lines(text.substr(kHeaderSize + kept));
        for (std::string line; std::getline(lines, line);)
        {
            found.push_back(line.substr(line.find("), ") + 3, line.size() - line.find("), ") - 4));
        }
        EXPECT_EQ(found, messages);
    }
};

int g_creates = 0;
int g_failingCreate = 0;

HANDLE WINAPI FailOneCreate(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                            DWORD disposition, DWORD flags, HANDLE pattern)
{
    if (++g_creates == g_failingCreate)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    return CreateFileA(path, access, share, security, disposition, flags, pattern);
}

BOOL WINAPI ReadThousandBytes(HANDLE file, void* bytes, DWORD, DWORD* read, OVERLAPPED* overlapped)
{
    return ReadFile(file, bytes, 1000, read, overlapped);
}

BOOL WINAPI ReadNothing(HANDLE, void*, DWORD, DWORD* read, OVERLAPPED*)
{
    *read = 0;
    SetLastError(ERROR_READ_FAULT);
    return FALSE;
}

} // namespace

TEST_F(LoggerTruncationTest, WithoutItsValueTheSwitchStaysAsItWas)
{
    SetSwitch("hx41svc_disable_log_truncation", 1);
    MakeFile(kLimit + 1000);
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    cycles.Start(logger);

    DeleteSwitch("hx41svc_disable_log_truncation");
    logger.LogText("added");
    cycles.RunCycle();
    EXPECT_GT(Size(), kLimit);
    SetSwitch("hx41svc_disable_log_truncation", 0);
    logger.LogText("cuts");
    cycles.RunCycle();
    EXPECT_LT(Size(), kLimit / 2);

    cycles.Finish(logger);
}

TEST_F(LoggerTruncationTest, LinesThatWereWrittenWhileItWasOffAreNotCounted)
{
    const long long size = SizeOfLine("1");
    MakeFile(kLimit - 2 * size);
    SetSwitch("hx41svc_disable_log_truncation", 1);
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    for (int i = 0; i < 3; ++i)
    {
        logger.LogText("1");
    }
    cycles.Start(logger);
    EXPECT_EQ(Size(), kLimit + size);

    SetSwitch("hx41svc_disable_log_truncation", 0);
    logger.LogText("2");
    cycles.RunCycle();
    EXPECT_EQ(Size(), kLimit + 2 * size);
    logger.LogText("3");
    cycles.RunCycle();
    EXPECT_LT(Size(), kLimit / 2);

    cycles.Finish(logger);
}

TEST_F(LoggerTruncationTest, SizesAreTakenModulo4GiB)
{
    constexpr long long kWrap = 0x100000000;
    MakeFile(kWrap + kKept);
    WriteLine("added");
    EXPECT_GT(Size(), kWrap + kKept);

    MakeFile(kWrap + kLimit, kLimit);
    WriteLine("added");
    ExpectCut("app.log", {"added"});
}

TEST_F(LoggerTruncationTest, ShortReadKeepsWhatWasRead)
{
    MakeFile(kLimit);
    const TestSupport::ImportPatch faulty("KERNEL32.dll", "ReadFile", &ReadThousandBytes);

    WriteLine("added");

    ExpectCut("app.log", {"added"}, 1000);
}

TEST_F(LoggerTruncationTest, FailedReadKeepsNothing)
{
    MakeFile(kLimit);
    const TestSupport::ImportPatch faulty("KERNEL32.dll", "ReadFile", &ReadNothing);

    WriteLine("added");

    ExpectCut("app.log", {"added"}, 0);
}

TEST_F(LoggerTruncationTest, FailedReopenSwitchesLoggingOffUntilTheNextCycle)
{
    MakeFile(kLimit);
    g_creates = 0;
    g_failingCreate = 2;
    const TestSupport::ImportPatch faulty("KERNEL32.dll", "CreateFileA", &FailOneCreate);
    const auto observer = std::make_shared<RecordingObserver>();
    OwnLogger logger({observer});
    logger.SetPath(m_path);
    CycleControl cycles;
    logger.LogText("lost");
    cycles.Start(logger);
    EXPECT_FALSE(observer->Calls().back().enabled);
    logger.LogText("refused");

    cycles.RunCycle();
    logger.LogText("logged");
    cycles.RunCycle();
    cycles.Finish(logger);

    EXPECT_THAT(Messages(), ElementsAre("logged"));
}

TEST_F(LoggerTruncationTest, LoggingGoesOnAfterAReaderThatHeldTheDeletedFile)
{
    MakeFile(kLimit);
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    UniqueFileHandle reader(CreateFileA(m_path.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        0, nullptr));
    ASSERT_TRUE(reader) << TestSupport::LastErrorText("CreateFileA");
    logger.LogText("1");
    cycles.Start(logger);
    reader.Reset();
    cycles.RunCycle();
    logger.LogText("2");
    cycles.RunCycle();
    cycles.Finish(logger);

    EXPECT_THAT(Messages().back(), "2");
    EXPECT_LT(Size(), kLimit / 2);
}

TEST_F(LoggerTruncationTest, ChildProcessesDoNotHoldTheFile)
{
    MakeFile(kLimit);
    m_folder.Write("held", "");
    auto logger = std::make_unique<OwnLogger>();
    logger->SetPath(m_path);
    logger->LogText("cuts");
    logger->Start();
    logger->Shutdown();

    // Takes over every handle that can be inherited.
    const std::string program = TestSupport::ProgramFolder() + "\\child_hold_file.exe";
    std::string command = "\"" + program + "\" \"" + (m_folder / "held") + "\" " + std::to_string(GENERIC_READ) + " 1";
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION child{};
    ASSERT_TRUE(CreateProcessA(program.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                               nullptr, &startup, &child))
        << TestSupport::LastErrorText("CreateProcessA");
    logger.reset();
    EXPECT_TRUE(DeleteFileA(m_path.c_str())) << TestSupport::LastErrorText("DeleteFileA");

    TerminateProcess(child.hProcess, 0);
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
}
