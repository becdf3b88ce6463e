#include <suite/DataServicesNative.h>

#include <mutex>

namespace
{

struct GrpcLogSettings
{
    std::mutex lock;
    gpr_log_func callback = nullptr;
    gpr_log_severity severity = GPR_LOG_SEVERITY_INFO;
    std::string trace;
};

GrpcLogSettings& Settings()
{
    static GrpcLogSettings settings;
    return settings;
}

} // namespace

void CorvaneUKLedgrixDataServicesNative::DataServiceLoggingRedirector::SetGrpcLogSettings(
    gpr_log_func callback, gpr_log_severity severity, const std::string& traceSettings)
{
    const std::lock_guard<std::mutex> hold(Settings().lock);
    Settings().callback = callback;
    Settings().severity = severity;
    Settings().trace = traceSettings;
}

bool EmitGrpcLogRecord(gpr_log_func_args* record)
{
    gpr_log_func callback = nullptr;
    {
        const std::lock_guard<std::mutex> hold(Settings().lock);
        callback = Settings().callback;
    }
    if (callback == nullptr)
    {
        return false;
    }
    callback(record);
    return true;
}
