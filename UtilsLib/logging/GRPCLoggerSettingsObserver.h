#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/logging/ILoggerSettingsObserver.h>

#include <map>
#include <string>
#include <vector>

namespace UtilsLib
{

/// Routes the gRPC log of the data-services library into this log, as the logger's settings and the registry values
/// "hx41svc_logging_grpc" (number, not 0: route) and "hx41svc_logging_grpc_trace" (text: gRPC's trace switches) say.
///
/// Tells the data-services library only when something has changed. gRPC's minimum severity is debug when level 8 is
/// logged, else error when level 4 is, else information: with the default levels gRPC reports errors only, on purpose.
/// Copies are member-wise. Not locked: the logger calls it from one thread at a time.
class UTILSLIB_API GRPCLoggerSettingsObserver : public ILoggerSettingsObserver
{
public:
    /// Tells the data-services library not to route anything yet.
    GRPCLoggerSettingsObserver();

    void SettingsChanged(bool enabled, unsigned long traceLevel,
                         const std::map<std::string, unsigned long>& settings) override;
    /// The one name "hx41svc_logging_grpc".
    std::vector<std::string> AdditionalSettingsToCheck() override;

private:
    /// The trace switches; empty when there are none.
    std::string ReadSettingsFromRegistry();
    /// Tells the data-services library what the members say.
    void SetSettings();

    bool m_lastEnabled = false;
    bool m_lastGrpcSwitch = false;
    unsigned long m_lastTraceLevel = 0;
    std::string m_traceSettings;
};

} // namespace UtilsLib
