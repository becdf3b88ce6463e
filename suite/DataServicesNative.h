#pragma once

#include <string>

#if defined(SUITE_EXPORTS)
#define SUITE_DATA_SERVICES_API __declspec(dllexport)
#else
#define SUITE_DATA_SERVICES_API __declspec(dllimport)
#endif

enum gpr_log_severity
{
    GPR_LOG_SEVERITY_DEBUG,
    GPR_LOG_SEVERITY_INFO,
    GPR_LOG_SEVERITY_ERROR
};

/// One gRPC log record; the texts live only during the callback.
struct gpr_log_func_args
{
    const char* file;          ///< source file of the record
    int line;                  ///< line in it
    gpr_log_severity severity; ///< how grave it is
    const char* message;       ///< without a line end
};

typedef void (*gpr_log_func)(gpr_log_func_args*);

namespace CorvaneUKLedgrixDataServicesNative
{

/// Routes gRPC's own log of the data-services library to a callback.
class SUITE_DATA_SERVICES_API DataServiceLoggingRedirector
{
public:
    /// Installs `callback` as gRPC's log function (null stops routing), gRPC's minimum severity and its trace
    /// switches. Any thread.
    static void SetGrpcLogSettings(gpr_log_func callback, gpr_log_severity severity, const std::string& traceSettings);
};

} // namespace CorvaneUKLedgrixDataServicesNative

/// Of the development stand-in only: hands `record` to the installed callback as gRPC would, on the calling thread.
/// Records below the installed severity are handed on too, as the callback's own filter is what a host wants to see.
/// Returns false when no callback is installed.
extern "C" SUITE_DATA_SERVICES_API bool EmitGrpcLogRecord(gpr_log_func_args* record);
