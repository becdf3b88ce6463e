// A library that logs, for a host that loads and unloads it and all that it uses.
#include <UtilsLib/logging/Logger.h>

#include <tests/support/ScopedMachineHive.h>

#include <fstream>
#include <string>

/// Starts the log in a folder and logs a thousand lines; with gRPC's log routed into it.
extern "C" __declspec(dllexport) void LogThousandLines(const char* folder)
{
    {
        const TestSupport::ScopedMachineHive machine;
        machine.SetDword("hx41svc_logging", 1);
        machine.SetDword("hx41svc_logging_grpc", 1);
        UtilsLib::Logger::GetInstance();
    }
    UtilsLib::Logger& logger = UtilsLib::Logger::GetInstance();
    logger.SetPath(std::string(folder) + "\\app.log");
    logger.Start();
    for (int i = 0; i < 1000; ++i)
    {
        logger.Log(UtilsLib::LogCategory::General, UtilsLib::LogTraceLevel::Error, "0 %d", i);
    }
    std::ofstream(std::string(folder) + "\\accepted") << 1000;
}
