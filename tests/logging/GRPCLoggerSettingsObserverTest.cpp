#include <tests/logging/LoggerFixture.h>

#include <UtilsLib/logging/GRPCLoggerSettingsObserver.h>

#include <suite/DataServicesNative.h>
#include <tests/support/ImportPatch.h>

#include <gmock/gmock.h>

#include <optional>
#include <type_traits>

using LoggerTests::LoggerFixture;
using LoggerTests::OwnLogger;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using UtilsLib::GRPCLoggerSettingsObserver;
using UtilsLib::Logger;

namespace
{

/// What the data-services library was asked for.
struct Call
{
    gpr_log_func callback;
    int severity;
    std::string trace;
};
std::vector<Call> g_calls;
gpr_log_func_args* g_recordDuringCall = nullptr;

void RecordSettings(gpr_log_func callback, gpr_log_severity severity, const std::string& trace)
{
    g_calls.push_back({callback, static_cast<int>(severity), trace});
    if (callback != nullptr && g_recordDuringCall != nullptr)
    {
        callback(g_recordDuringCall); // as a library that says at once what it was told
    }
}

constexpr const char* kSetGrpcLogSettings =
    "_ZN34CorvaneUKLedgrixDataServicesNative28DataServiceLoggingRedirector18SetGrpcLogSettingsEPFvP17gpr_log_func_args"
    "E16gpr_log_severityRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE";

class GRPCLoggerSettingsObserverTest : public LoggerFixture
{
protected:
    GRPCLoggerSettingsObserverTest()
    {
        g_calls.clear();
        g_recordDuringCall = nullptr;
    }

    /// Redirects the library's calls into `g_calls`.
    void Record()
    {
        m_patch.emplace("Corvane.UK.Ledgrix.Data.Services.NativeV32.dll", kSetGrpcLogSettings, &RecordSettings);
    }
    /// Whether the last call installed a callback, and the rest of it.
    static std::string LastCall()
    {
        const Call& call = g_calls.back();
        return (call.callback != nullptr ? "routed " : "not routed ") + std::to_string(call.severity) + " '" +
               call.trace + "'";
    }

private:
    std::optional<TestSupport::ImportPatch> m_patch;
};

using Settings = std::map<std::string, unsigned long>;

} // namespace

TEST_F(GRPCLoggerSettingsObserverTest, NewOneEndsTheRoutingWithoutLookingAtTheRegistry)
{
    m_machine.SetText("hx41svc_logging_grpc_trace", "all");
    Record();

    const GRPCLoggerSettingsObserver observer;

    ASSERT_THAT(g_calls, SizeIs(1));
    EXPECT_EQ(LastCall(), "not routed 1 ''");
}

TEST_F(GRPCLoggerSettingsObserverTest, AsksForTheGrpcSwitch)
{
    EXPECT_THAT(GRPCLoggerSettingsObserver().AdditionalSettingsToCheck(), ElementsAre("hx41svc_logging_grpc"));
}

TEST_F(GRPCLoggerSettingsObserverTest, RoutesWhileLoggingAndTheSwitchAreOn)
{
    Record();
    GRPCLoggerSettingsObserver observer;

    observer.SettingsChanged(true, 7, {{"hx41svc_logging_grpc", 0}});
    EXPECT_EQ(LastCall(), "not routed 2 ''");
    observer.SettingsChanged(true, 7, {{"hx41svc_logging_grpc", 0x80000000}});
    EXPECT_EQ(LastCall(), "routed 2 ''");
    observer.SettingsChanged(false, 7, {{"hx41svc_logging_grpc", 1}});
    EXPECT_EQ(LastCall(), "not routed 2 ''");
    observer.SettingsChanged(true, 7, {{"hx41svc_logging_grpc", 1}});
    EXPECT_EQ(LastCall(), "routed 2 ''");
    observer.SettingsChanged(true, 7, {});
    EXPECT_EQ(LastCall(), "not routed 2 ''");
    EXPECT_THAT(g_calls, SizeIs(6));
}

TEST_F(GRPCLoggerSettingsObserverTest, LevelsMakeTheLeastSeverity)
{
    Record();
    const std::vector<std::pair<unsigned long, int>> cases = {
        {8, 0}, {15, 0}, {12, 0}, {7, 2}, {4, 2}, {5, 2}, {3, 1}, {1, 1}, {2, 1}, {16, 1}, {0, 1}, {0xFFFFFFFF, 0}};
    for (const auto& [levels, severity] : cases)
    {
        GRPCLoggerSettingsObserver observer;
        observer.SettingsChanged(true, levels, {{"hx41svc_logging_grpc", 1}});
        EXPECT_EQ(g_calls.back().severity, severity) << levels;
        EXPECT_NE(g_calls.back().callback, nullptr) << levels;
    }
}

TEST_F(GRPCLoggerSettingsObserverTest, CallsOnlyWhenSomethingChanged)
{
    Record();
    GRPCLoggerSettingsObserver observer;
    observer.SettingsChanged(false, 0, {});
    EXPECT_THAT(g_calls, SizeIs(1)) << "as a new one";
    const Settings on = {{"hx41svc_logging_grpc", 1}, {"other", 1}};
    observer.SettingsChanged(true, 7, on);
    EXPECT_THAT(g_calls, SizeIs(2));

    observer.SettingsChanged(true, 7, on);
    observer.SettingsChanged(true, 7, {{"hx41svc_logging_grpc", 2}, {"other", 5}});
    EXPECT_THAT(g_calls, SizeIs(2));
    observer.SettingsChanged(true, 15, on);
    EXPECT_THAT(g_calls, SizeIs(3));
    EXPECT_EQ(LastCall(), "routed 0 ''");
    observer.SettingsChanged(true, 31, on);
    EXPECT_THAT(g_calls, SizeIs(4)) << "a level that does not change the severity is a change, too";
}

TEST_F(GRPCLoggerSettingsObserverTest, TraceSwitchesAreReadOnEveryCall)
{
    Record();
    GRPCLoggerSettingsObserver observer;
    observer.SettingsChanged(true, 7, {});
    ASSERT_THAT(g_calls, SizeIs(2));

    m_machine.SetText("hx41svc_logging_grpc_trace", "http,api");
    observer.SettingsChanged(true, 7, {});
    EXPECT_EQ(LastCall(), "not routed 2 'http,api'");
    observer.SettingsChanged(true, 7, {});
    EXPECT_THAT(g_calls, SizeIs(3));
    m_machine.Delete("hx41svc_logging_grpc_trace");
    observer.SettingsChanged(true, 7, {});
    EXPECT_EQ(LastCall(), "not routed 2 ''");
    EXPECT_THAT(g_calls, SizeIs(4));
}

TEST_F(GRPCLoggerSettingsObserverTest, CopiesAndMovesCopyTheFieldsAndCallNothing)
{
    static_assert(std::is_copy_constructible_v<GRPCLoggerSettingsObserver>);
    static_assert(std::is_copy_assignable_v<GRPCLoggerSettingsObserver>);
    static_assert(std::is_move_constructible_v<GRPCLoggerSettingsObserver>);
    static_assert(std::is_move_assignable_v<GRPCLoggerSettingsObserver>);
    m_machine.SetText("hx41svc_logging_grpc_trace", "http");
    Record();
    GRPCLoggerSettingsObserver source;
    source.SettingsChanged(true, 7, {{"hx41svc_logging_grpc", 1}});
    GRPCLoggerSettingsObserver assigned;
    GRPCLoggerSettingsObserver moveAssigned;
    g_calls.clear();

    GRPCLoggerSettingsObserver copy(source);
    assigned = source;
    GRPCLoggerSettingsObserver other(source);
    GRPCLoggerSettingsObserver moved(std::move(other));
    moveAssigned = std::move(moved);
    for (GRPCLoggerSettingsObserver* const observer : {&source, &copy, &assigned, &moveAssigned})
    {
        observer->SettingsChanged(true, 7, {{"hx41svc_logging_grpc", 1}});
    }

    EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(GRPCLoggerSettingsObserverTest, RecordsOfTheDataServicesAreLoggedByTheirSeverity)
{
    SetSwitch("hx41svc_logging_grpc", 1);
    Logger& logger = Logger::GetInstance();
    logger.SetPath(m_path);
    logger.SetRegistryKey("hx41svc_logging");
    char file[] = "call.cc";
    const auto emit = [&file](int severity, const char* message) {
        gpr_log_func_args record = {file, 42, static_cast<gpr_log_severity>(severity), message};
        ASSERT_TRUE(EmitGrpcLogRecord(&record));
    };

    emit(0, "debug is off");
    emit(1, "information");
    emit(2, "error 100%n");
    emit(7, "never");
    emit(-1, "never");
    gpr_log_func_args nothing = {nullptr, 0, GPR_LOG_SEVERITY_ERROR, nullptr};
    ASSERT_TRUE(EmitGrpcLogRecord(&nothing));
    ASSERT_TRUE(EmitGrpcLogRecord(nullptr));
    SetSwitch("hx41svc_logging_trace", 8 + 4);
    logger.SetRegistryKey("hx41svc_logging");
    emit(0, "debug");
    emit(1, "information is off");
    SetSwitch("hx41svc_logging_grpc", 0);
    logger.SetRegistryKey("hx41svc_logging");
    gpr_log_func_args record = {file, 1, GPR_LOG_SEVERITY_ERROR, "not routed"};
    EXPECT_FALSE(EmitGrpcLogRecord(&record));
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), testing::SizeIs(4));
    const std::string text = Text();
    EXPECT_THAT(text, testing::HasSubstr("(1:1), gRPC log - File: call.cc, Line: 42, Message: information\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("(1:4), gRPC log - File: call.cc, Line: 42, Message: error 100%n\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("(1:4), gRPC log - File: , Line: 0, Message: \r\n"));
    EXPECT_THAT(text, testing::HasSubstr("(1:8), gRPC log - File: call.cc, Line: 42, Message: debug\r\n"));
}

TEST_F(GRPCLoggerSettingsObserverTest, InstanceOfTheLoggerHasOneAndNoRoutingByDefault)
{
    Record();
    Logger::GetInstance(); // made here, unless another test of this process did
    Logger::GetInstance().SetRegistryKey("hx41svc_logging_but_off");
    g_calls.clear();

    Logger::GetInstance().SetRegistryKey("hx41svc_logging");

    ASSERT_THAT(g_calls, SizeIs(1));
    EXPECT_EQ(LastCall(), "not routed 2 ''");
}

TEST_F(GRPCLoggerSettingsObserverTest, RecordDuringTheMakingOfTheLoggerDoesNoHarm)
{
    SetSwitch("hx41svc_logging_grpc", 1);
    gpr_log_func_args record = {"init.cc", 1, GPR_LOG_SEVERITY_ERROR, "routing begins"};
    g_recordDuringCall = &record;
    Record();

    Logger& logger = Logger::GetInstance();
    logger.SetRegistryKey("hx41svc_logging"); // if another test of this process has made it

    EXPECT_EQ(&logger, &Logger::GetInstance());
    EXPECT_THAT(g_calls, testing::Not(IsEmpty()));
}
