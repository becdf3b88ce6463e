#include <tests/logging/LoggerFixture.h>

#include <UtilsLib/platform/UniqueFileHandle.h>
#include <UtilsLib/threading/ThreadMonitor.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gmock/gmock.h>

#include <new>
#include <regex>
#include <thread>

using LoggerTests::CycleControl;
using LoggerTests::LoggerFixture;
using LoggerTests::OwnLogger;
using LoggerTests::RecordingObserver;
using testing::ElementsAre;
using testing::IsEmpty;
using UtilsLib::ILogger;
using UtilsLib::LogCategory;
using UtilsLib::LogTraceLevel;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr std::size_t kLongestLine = 4094;

class LoggerTest : public LoggerFixture
{
protected:
    /// The message that a logger makes of a format and its arguments.
    template <typename... Arguments>
    std::string MessageOf(const char* format, Arguments... arguments)
    {
        const std::string file = "message" + std::to_string(++m_messages) + ".log";
        OwnLogger logger;
        logger.SetPath(m_folder / file);
        ILogger& log = logger;
        log.Log(LogCategory::General, LogTraceLevel::Error, format, arguments...);
        logger.Start();
        logger.Shutdown();
        const std::vector<std::string> messages = Messages(file);
        return messages.size() == 1 ? messages[0] : "not one line: " + Text(file);
    }

    int m_messages = 0;
};

void* RefuseMemory(std::size_t)
{
    throw std::bad_alloc();
}

int g_creates = 0;
SECURITY_ATTRIBUTES* g_security = nullptr;
DWORD g_access = 0;
DWORD g_share = 0;
DWORD g_disposition = 0;
DWORD g_flags = 0;

HANDLE WINAPI RecordCreate(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                           DWORD disposition, DWORD flags, HANDLE pattern)
{
    ++g_creates;
    g_security = security;
    g_access = access;
    g_share = share;
    g_disposition = disposition;
    g_flags = flags;
    return CreateFileA(path, access, share, security, disposition, flags, pattern);
}

/// A disk with room for so many bytes.
DWORD g_room = 0;

BOOL WINAPI WriteWhileThereIsRoom(HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    if (size > g_room)
    {
        *written = 0;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }
    g_room -= size;
    return WriteFile(file, bytes, size, written, overlapped);
}

/// Takes what there is room for.
BOOL WINAPI WriteInPart(HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    const DWORD part = std::min(size, g_room);
    g_room -= part;
    return WriteFile(file, bytes, part, written, overlapped);
}

} // namespace

TEST_F(LoggerTest, LineHasTimeThreadCategoryLevelAndMessage)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    ILogger& log = logger;

    log.Log(LogCategory::General, LogTraceLevel::Error, "ScopedFiles::OpenWrite(%s) Failed %d", "C:\\Temp\\a.dat", 5);
    logger.Start();
    logger.Shutdown();

    const std::string thread = std::to_string(GetCurrentThreadId());
    const std::regex line(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3}, tid: )" + thread +
                          R"(, \(1:4\), ScopedFiles::OpenWrite\(C:\\Temp\\a\.dat\) Failed 5\r\n)");
    EXPECT_TRUE(std::regex_match(Text(), line)) << Text();
}

TEST_F(LoggerTest, LineIsStampedWithTheLocalTimeOfTheCall)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    SYSTEMTIME before;
    SYSTEMTIME after;

    GetLocalTime(&before);
    logger.LogText("x");
    GetLocalTime(&after);
    Sleep(20);
    logger.Start();
    logger.Shutdown();

    const auto text = [](const SYSTEMTIME& time) {
        char buffer[64];
        std::snprintf(buffer, sizeof(buffer), "%04d%02d%02d%02d%02d%02d%03d", time.wYear, time.wMonth, time.wDay,
                      time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
        return std::string(buffer);
    };
    const std::string line = Text();
    ASSERT_GT(line.size(), 23u);
    const std::string stamp = line.substr(6, 4) + line.substr(3, 2) + line.substr(0, 2) + line.substr(11, 2) +
                              line.substr(14, 2) + line.substr(17, 2) + line.substr(20, 3);
    EXPECT_LE(text(before), stamp);
    EXPECT_LE(stamp, text(after));
}

TEST_F(LoggerTest, CategoryAndLevelAreSignedNumbers)
{
    SetSwitch("hx41svc_logging_trace", 0xFFFFFFFF);
    SetSwitch("hx41svc_logging_category", 0xFFFFFFFF);
    OwnLogger logger;
    logger.SetPath(m_path);

    logger.LogText("x", INT_MIN, -1);
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Text(), testing::HasSubstr(", (-2147483648:-1), x\r\n"));
}

TEST_F(LoggerTest, MessagesArePrintedAsByTheRunTime)
{
    EXPECT_EQ(MessageOf("%lld %llu %I64d %zu", -5'000'000'000LL, 18'000'000'000'000'000'000ULL, 7LL, std::size_t(9)),
              "-5000000000 18000000000000000000 7 9");
    EXPECT_EQ(MessageOf("%5.1f|%-4d|%04x|%c|%%", 2.25, 7, 0xAB, 'z'), "  2.2|7   |00ab|z|%");
    EXPECT_EQ(MessageOf("%*d|%.*s", 4, 7, 2, "abc"), "   7|ab");
    EXPECT_EQ(MessageOf("%s", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(MessageOf("100%%none, 5%% n"), "100%none, 5% n");
    EXPECT_EQ(MessageOf(""), "");
}

TEST_F(LoggerTest, FormatThatWritesMemoryIsLoggedAsItStands)
{
    // Run-times go on reading after a malformed conversion, so what stands before "%n" must not hide it.
    for (const char* const format :
         {"a%nb", "%hn", "%hhn", "%ln",  "%lln", "%I64n", "%5n",  "%*n",   "%.3n", "%-n",   "%+ #0'n", "%zn",  "%jn",
          "%tn",  "%qn", "%Ln",  "%s%n", "%%%n", "%w%n",  "%5%n", "%5%%n", "%l%n", "%I4%n", "%.%n",    "%q%%n"})
    {
        long long untouched[4] = {7, 7, 7, 7};
        EXPECT_EQ(MessageOf(format, untouched, untouched, untouched, untouched), format);
        EXPECT_THAT(untouched, ElementsAre(7, 7, 7, 7)) << format;
    }
}

TEST_F(LoggerTest, FormatOfUnheardOfLengthIsLoggedAsItStands)
{
    // The run-time would make the digits on the thread's stack.
    for (const char* const format : {"%.3000000d", "%2000000000d", "%-99999999999999999999x", "%.10000d"})
    {
        EXPECT_EQ(MessageOf(format, 5), format);
    }
    EXPECT_EQ(MessageOf("%.9999d", 5).substr(0, 4000), std::string(4000, '0')); // and cut as any other
    EXPECT_EQ(MessageOf("12345 %d", 5), "12345 5");
}

TEST_F(LoggerTest, NullFormatIsLoggedAsNull)
{
    const char* const volatile none = nullptr;

    EXPECT_EQ(MessageOf(none), "(null)");
}

TEST_F(LoggerTest, LineIsCutAt4094Characters)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    ILogger& log = logger;
    const std::string longText(5000, 'x');

    log.Log(LogCategory::General, LogTraceLevel::Error, longText.c_str());
    log.Log(LogCategory::General, LogTraceLevel::Error, "%s", longText.c_str());
    log.Log(LogCategory::General, LogTraceLevel::Error, (longText + "%n").c_str());
    logger.LogText("next");
    logger.Start();
    logger.Shutdown();

    std::string text = Text();
    const std::size_t prefix = text.find("), ") + 3;
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_EQ(text.find("\r\n"), kLongestLine) << i;
        EXPECT_EQ(text.substr(prefix, kLongestLine - prefix), std::string(kLongestLine - prefix, 'x')) << i;
        text.erase(0, kLongestLine + 2);
    }
    EXPECT_EQ(text.substr(text.find("), ") + 3), "next\r\n");
}

TEST_F(LoggerTest, LineOf4094CharactersIsWhole)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.LogText("");
    logger.Start();
    logger.Shutdown();
    const std::size_t prefix = Text().size() - 2;

    const std::string fits(kLongestLine - prefix, 'y');
    EXPECT_EQ(MessageOf("%s", fits.c_str()), fits);
    EXPECT_EQ(MessageOf("%s", (fits + "z").c_str()), fits);
}

TEST_F(LoggerTest, LineThatIsSwitchedOffIsNotLogged)
{
    OwnLogger logger;
    logger.SetPath(m_path);

    logger.LogText("category 32", 32, 4);
    logger.LogText("category 128", 128, 4);
    logger.LogText("level 8", 1, 8);
    logger.LogText("level 0", 1, 0);
    logger.LogText("category 0", 0, 4);
    logger.LogText("logged", 64, 2);
    DeleteSwitch("hx41svc_logging");
    logger.SetRegistryKey("hx41svc_logging");
    logger.LogText("master switch");
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("logged"));
}

TEST_F(LoggerTest, CheckEnabledIgnoresTheMasterSwitch)
{
    DeleteSwitch("hx41svc_logging");
    OwnLogger logger;

    EXPECT_TRUE(logger.IsEnabled(1, 4));
    EXPECT_TRUE(logger.IsEnabled(1 | 32, 4 | 8));
    EXPECT_FALSE(logger.IsEnabled(32, 4));
    EXPECT_FALSE(logger.IsEnabled(1, 8));
    EXPECT_FALSE(logger.IsEnabled(0, 0));
}

TEST_F(LoggerTest, LinesThatWereLoggedBeforeTheStartAreWrittenInTheirOrder)
{
    OwnLogger logger;
    std::vector<std::string> expected;
    for (int i = 0; i < 1000; ++i)
    {
        expected.push_back("line " + std::to_string(i));
        logger.LogText(expected.back());
    }

    logger.SetPath(m_path);
    logger.Start();
    logger.Shutdown();

    EXPECT_EQ(Messages(), expected);
}

TEST_F(LoggerTest, EveryCycleWritesWhatIsQueued)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    cycles.Start(logger);

    logger.LogText("1");
    logger.LogText("2");
    cycles.RunCycle();
    EXPECT_THAT(Messages(), ElementsAre("1", "2"));
    logger.LogText("3");
    EXPECT_THAT(Messages(), ElementsAre("1", "2"));
    cycles.RunCycle();
    EXPECT_THAT(Messages(), ElementsAre("1", "2", "3"));

    cycles.Finish(logger);
}

TEST_F(LoggerTest, CycleSleepsThreeSteps)
{
    // CycleControl counts three steps a cycle: with another number of steps the cycles would not match the sleeps.
    OwnLogger logger;
    logger.SetPath(m_path);
    const auto observer = std::make_shared<RecordingObserver>();
    OwnLogger counted({observer});
    CycleControl cycles;
    cycles.Start(counted);
    const std::size_t first = observer->Calls().size();

    for (std::size_t i = 1; i <= 5; ++i)
    {
        cycles.RunCycle();
        EXPECT_EQ(observer->Calls().size(), first + i);
    }

    cycles.Finish(counted);
}

TEST_F(LoggerTest, EveryCycleReportsToTheThreadMonitor)
{
    OwnLogger logger;
    CycleControl cycles;
    const auto before = static_cast<long long>(GetTickCount64());
    cycles.Start(logger);

    const auto threads = UtilsLib::ThreadMonitor::GetInstance().GetThreadStatus();
    ASSERT_TRUE(threads.contains(logger.GetThreadId()));
    EXPECT_EQ(threads.at(logger.GetThreadId()).description, "Logger");
    EXPECT_GE(threads.at(logger.GetThreadId()).lastShutdownCheck, before);

    cycles.Finish(logger);
    EXPECT_FALSE(UtilsLib::ThreadMonitor::GetInstance().GetThreadStatus().contains(logger.GetThreadId()));
}

TEST_F(LoggerTest, LinesAreAddedToAnExistingFile)
{
    m_folder.Write("app.log", "before\r\n");
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.LogText("after");
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("before", "after"));
}

TEST_F(LoggerTest, FileIsSharedForReadingOnlyAndNotInherited)
{
    g_creates = 0;
    const TestSupport::ImportPatch record("KERNEL32.dll", "CreateFileA", &RecordCreate);
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.LogText("1");
    logger.LogText("2");
    logger.Start();
    logger.Shutdown();

    EXPECT_EQ(g_creates, 1);
    EXPECT_EQ(g_security, nullptr);
    EXPECT_EQ(g_access, DWORD(GENERIC_READ | GENERIC_WRITE));
    EXPECT_EQ(g_share, DWORD(FILE_SHARE_READ));
    EXPECT_EQ(g_disposition, DWORD(OPEN_ALWAYS));
    EXPECT_EQ(g_flags, DWORD(FILE_ATTRIBUTE_NORMAL));
}

TEST_F(LoggerTest, FileStaysOpenAfterShutdownUntilTheLoggerIsDestroyed)
{
    {
        OwnLogger logger;
        logger.SetPath(m_path);
        logger.LogText("1");
        logger.Start();
        logger.Shutdown();

        EXPECT_FALSE(DeleteFileA(m_path.c_str()));
    }
    EXPECT_TRUE(DeleteFileA(m_path.c_str())) << TestSupport::LastErrorText("DeleteFileA");
}

TEST_F(LoggerTest, SetPathDoesNotMoveAnOpenFile)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    logger.LogText("1");
    cycles.Start(logger);

    logger.SetPath(m_folder / "other.log");
    logger.LogText("2");
    cycles.RunCycle();
    cycles.Finish(logger);

    EXPECT_THAT(Messages(), ElementsAre("1", "2"));
    EXPECT_FALSE(m_folder.Exists("other.log"));
}

TEST_F(LoggerTest, LinesWaitForAPath)
{
    const auto observer = std::make_shared<RecordingObserver>();
    OwnLogger logger({observer});
    CycleControl cycles;
    logger.LogText("1");
    logger.LogText("2");
    cycles.Start(logger);
    EXPECT_FALSE(observer->Calls().back().enabled) << "nothing is accepted that cannot be written";

    cycles.RunCycle();
    logger.SetPath(m_path);
    cycles.RunCycle();
    cycles.Finish(logger);

    EXPECT_THAT(Messages(), ElementsAre("1", "2"));
}

TEST_F(LoggerTest, ShutdownWithoutAPathEnds)
{
    OwnLogger logger;
    logger.LogText("lost");
    logger.Start();
    logger.Shutdown();
}

TEST_F(LoggerTest, FileThatCannotBeOpenedSwitchesLoggingOffUntilTheNextCycle)
{
    const auto observer = std::make_shared<RecordingObserver>();
    OwnLogger logger({observer});
    logger.SetPath(m_folder / "missing\\app.log");
    CycleControl cycles;
    logger.LogText("lost 1");
    logger.LogText("lost 2");
    cycles.Start(logger);

    // One settings check of the constructor, one of the cycle, and one call for each line that could not be written.
    auto calls = observer->Calls();
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_TRUE(calls[0].enabled);
    EXPECT_TRUE(calls[1].enabled);
    EXPECT_FALSE(calls[2].enabled);
    EXPECT_FALSE(calls[3].enabled);
    logger.LogText("refused");

    cycles.RunCycle();
    EXPECT_TRUE(observer->Calls().back().enabled);
    m_folder.MakeFolder("missing");
    logger.LogText("logged");
    cycles.RunCycle();
    EXPECT_THAT(Messages("missing\\app.log"), ElementsAre("logged"));

    cycles.Finish(logger);
}

TEST_F(LoggerTest, FolderOrAFileThatAnotherHoldsCannotBeOpened)
{
    m_folder.MakeFolder("folder");
    OwnLogger logger;
    logger.SetPath(m_folder / "folder");
    CycleControl cycles;
    logger.LogText("lost");
    cycles.Start(logger);

    logger.SetPath(m_path);
    UniqueFileHandle writer(CreateFileA(m_path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        CREATE_ALWAYS, 0, nullptr));
    ASSERT_TRUE(writer) << TestSupport::LastErrorText("CreateFileA");
    cycles.RunCycle();
    logger.LogText("lost, too");
    cycles.RunCycle();
    writer.Reset();
    cycles.RunCycle();
    logger.LogText("logged");
    cycles.RunCycle();
    cycles.Finish(logger);

    EXPECT_THAT(Messages(), ElementsAre("logged"));
}

TEST_F(LoggerTest, NothingIsWrittenWhileAMaskIsZero)
{
    for (const char* const mask : {"hx41svc_logging_trace", "hx41svc_logging_category"})
    {
        const std::string file = std::string(mask) + ".log";
        OwnLogger logger;
        logger.SetPath(m_folder / file);
        CycleControl cycles;
        cycles.Start(logger);
        logger.LogText("dropped");
        SetSwitch(mask, 0);
        cycles.RunCycle();
        EXPECT_FALSE(m_folder.Exists(file));

        DeleteSwitch(mask);
        cycles.RunCycle();
        logger.LogText("logged");
        cycles.RunCycle();
        cycles.Finish(logger);

        EXPECT_THAT(Messages(file), ElementsAre("logged"));
    }
}

TEST_F(LoggerTest, FullDiskTakesTheLinesThatFit)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    logger.LogText("first");
    cycles.Start(logger);
    const DWORD lineSize = static_cast<DWORD>(Text().size());

    {
        const TestSupport::ImportPatch fullDisk("KERNEL32.dll", "WriteFile", &WriteWhileThereIsRoom);
        g_room = lineSize + 10;
        logger.LogText("fits.");
        logger.LogText("too long for what is left");
        logger.LogText("");
        logger.LogText("lost.");
        cycles.RunCycle();
    }
    logger.LogText("again");
    cycles.RunCycle();
    cycles.Finish(logger);

    EXPECT_THAT(Messages(), ElementsAre("first", "fits.", "again"));
}

TEST_F(LoggerTest, LinesAfterOneThatWasWrittenInPartFollowIt)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    logger.LogText("first");
    cycles.Start(logger);
    const DWORD lineSize = static_cast<DWORD>(Text().size());

    {
        const TestSupport::ImportPatch fullDisk("KERNEL32.dll", "WriteFile", &WriteInPart);
        g_room = lineSize + lineSize - 4;
        logger.LogText("fits.");
        logger.LogText("in pa");
        logger.LogText("lost.");
        cycles.RunCycle();
    }
    logger.LogText("again");
    cycles.RunCycle();
    cycles.Finish(logger);

    const std::string text = Text();
    EXPECT_THAT(text, testing::HasSubstr("fits.\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("in "));
    EXPECT_THAT(text, testing::EndsWith("again\r\n"));
    EXPECT_EQ(text.find("lost"), std::string::npos);
    EXPECT_EQ(text.find("fits."), text.rfind("fits."));
}

TEST_F(LoggerTest, MoreThanOneBlockOfLinesIsWrittenWholeAndInOrder)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    std::vector<std::string> expected;
    for (int i = 0; i < 2000; ++i)
    {
        expected.push_back(std::to_string(i) + std::string(static_cast<std::size_t>(i * 7 % 400), 'b'));
        logger.LogText(expected.back());
    }
    logger.Start();
    logger.Shutdown();

    EXPECT_EQ(Messages(), expected);
}

TEST_F(LoggerTest, ManyShortBurstsFromManyThreadsAreAllThereAndInTheThreadsOrder)
{
    constexpr int kThreads = 8;
    constexpr int kBursts = 1250;
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.Start();
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
        {
            threads.emplace_back([&logger, thread] {
                for (int i = 0; i < kBursts; ++i)
                {
                    logger.LogText(std::to_string(thread) + " " + std::to_string(2 * i));
                    logger.LogText(std::to_string(thread) + " " + std::to_string(2 * i + 1));
                    SwitchToThread();
                }
            });
        }
    }
    logger.Shutdown();

    std::map<int, int> next;
    for (const std::string& message : Messages())
    {
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(message.c_str(), "%d %d", &thread, &number), 2) << message;
        ASSERT_EQ(next[thread]++, number) << "of thread " << thread;
    }
    for (int thread = 0; thread < kThreads; ++thread)
    {
        EXPECT_EQ(next[thread], 2 * kBursts) << "of thread " << thread;
    }
}

TEST_F(LoggerTest, LoggersLeaveNoHandleBehind)
{
    const auto useOne = [this] {
        OwnLogger logger;
        logger.SetPath(m_path);
        logger.LogText("x");
        logger.Start();
        logger.Shutdown();
    };
    useOne();
    const unsigned long before = TestSupport::OpenHandles();

    for (int i = 0; i < 5; ++i)
    {
        useOne();
    }

    EXPECT_EQ(TestSupport::OpenHandles(), before);
}

TEST_F(LoggerTest, StackIsLoggedWhenSwitchedOn)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.LogStack();
    SetSwitch("stack_logging", 1);
    logger.SetRegistryKey("hx41svc_logging");
    logger.LogStack();
    logger.Start();
    logger.Shutdown();

    const std::string text = Text();
    EXPECT_THAT(text, testing::HasSubstr(", (1:1), Stack trace: \r\nTRACE:\r\nFRAME Lib: "));
    EXPECT_THAT(text, testing::HasSubstr("UtilsLib::Logger::LogStack"));
    EXPECT_EQ(text.find("Stack trace: "), text.rfind("Stack trace: "));
}

TEST_F(LoggerTest, InstanceIsOne)
{
    EXPECT_EQ(&UtilsLib::Logger::GetInstance(), &UtilsLib::Logger::GetInstance());
}

TEST_F(LoggerTest, NothingIsKeptOfTheArgumentsAfterTheCall)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    std::string text = "before";
    static_cast<ILogger&>(logger).Log(LogCategory::General, LogTraceLevel::Error, "%s", text.c_str());
    text = "behind";
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("before"));
}

TEST_F(LoggerTest, LogKeepsTheLastError)
{
    OwnLogger logger;
    SetLastError(1234);
    static_cast<ILogger&>(logger).Log(LogCategory::General, LogTraceLevel::Error, "%s", "x");
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST_F(LoggerTest, LineForWhichThereIsNoMemoryIsDropped)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.LogText("before");
    {
        const TestSupport::ImportPatch noMemory("libstdc++-6.dll", "_Znwj", &RefuseMemory);
        EXPECT_NO_THROW(
            static_cast<ILogger&>(logger).Log(LogCategory::General, LogTraceLevel::Error, "%s", "lost line"));
    }
    logger.LogText("after");
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("before", "after"));
}
