#include <UtilsLib/logging/GRPCLoggerSettingsObserver.h>

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/registry/RegUtils.h>

#include <suite/DataServicesNative.h>

namespace UtilsLib
{

namespace
{

using CorvaneUKLedgrixDataServicesNative::DataServiceLoggingRedirector;

constexpr const char* kGrpcSwitch = "hx41svc_logging_grpc";
constexpr const char* kGrpcTrace = "hx41svc_logging_grpc_trace";
constexpr LogTraceLevel kNeverLogged = static_cast<LogTraceLevel>(0);

LogTraceLevel TraceLevelOf(gpr_log_severity severity)
{
    switch (severity)
    {
    case GPR_LOG_SEVERITY_DEBUG:
        return LogTraceLevel::Debug;
    case GPR_LOG_SEVERITY_INFO:
        return LogTraceLevel::Information;
    case GPR_LOG_SEVERITY_ERROR:
        return LogTraceLevel::Error;
    }
    return kNeverLogged;
}

gpr_log_severity MinimumSeverity(unsigned long traceLevel)
{
    if ((traceLevel & static_cast<unsigned long>(LogTraceLevel::Debug)) != 0)
    {
        return GPR_LOG_SEVERITY_DEBUG;
    }
    if ((traceLevel & static_cast<unsigned long>(LogTraceLevel::Error)) != 0)
    {
        return GPR_LOG_SEVERITY_ERROR;
    }
    return GPR_LOG_SEVERITY_INFO;
}

const char* TextOrNothing(const char* text)
{
    return text != nullptr ? text : "";
}

} // namespace

/// gRPC's log function; called on whatever thread gRPC logs from.
void LogGrpcRecord(gpr_log_func_args* record)
{
    ILogger* const logger = Logger::ReachableInstance();
    if (record == nullptr || logger == nullptr)
    {
        return;
    }
    logger->Log(LogCategory::General, TraceLevelOf(record->severity), "gRPC log - File: %s, Line: %d, Message: %s",
                TextOrNothing(record->file), record->line, TextOrNothing(record->message));
}

GRPCLoggerSettingsObserver::GRPCLoggerSettingsObserver()
{
    DataServiceLoggingRedirector::SetGrpcLogSettings(nullptr, GPR_LOG_SEVERITY_INFO, m_traceSettings);
}

void GRPCLoggerSettingsObserver::SettingsChanged(bool enabled, unsigned long traceLevel,
                                                 const std::map<std::string, unsigned long>& settings)
{
    const std::string lastTraceSettings = m_traceSettings;
    m_traceSettings = ReadSettingsFromRegistry();
    const auto found = settings.find(kGrpcSwitch);
    const bool grpcSwitch = found != settings.end() && found->second != 0;
    if (enabled == m_lastEnabled && traceLevel == m_lastTraceLevel && m_traceSettings == lastTraceSettings &&
        grpcSwitch == m_lastGrpcSwitch)
    {
        return;
    }
    m_lastEnabled = enabled;
    m_lastTraceLevel = traceLevel;
    m_lastGrpcSwitch = grpcSwitch;
    SetSettings();
}

std::vector<std::string> GRPCLoggerSettingsObserver::AdditionalSettingsToCheck()
{
    return {kGrpcSwitch};
}

std::string GRPCLoggerSettingsObserver::ReadSettingsFromRegistry()
{
    std::string text;
    RegUtils::ReadHaldenRegString(kGrpcTrace, text);
    return text;
}

void GRPCLoggerSettingsObserver::SetSettings()
{
    const bool route = m_lastEnabled && m_lastGrpcSwitch;
    DataServiceLoggingRedirector::SetGrpcLogSettings(route ? &LogGrpcRecord : nullptr,
                                                     MinimumSeverity(m_lastTraceLevel), m_traceSettings);
}

} // namespace UtilsLib
