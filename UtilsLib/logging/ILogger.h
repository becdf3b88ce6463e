#pragma once

#include <UtilsLib/Export.h>

#include <cstdint>

namespace UtilsLib
{

/// What a message is about; a message has one, a logger a mask of those it takes. The programs name those of their own:
/// 4, 8, 16 and 64 are on by default, all above 64 off.
enum class LogCategory : std::int32_t
{
    General = 1,
    CloudConfiguration = 2,
    FileIO = 32 // file input/output tracing; off by default
};

/// How much a message matters; used as a mask in the same way.
enum class LogTraceLevel : std::int32_t
{
    Information = 1,
    Warning = 2,
    Error = 4,
    Debug = 8 // off by default
};

/// Where the library and its hosts log to.
class UTILSLIB_API ILogger
{
public:
    virtual ~ILogger() = default;
    /// Logs one message; `format` and what follows as for printf. Any thread.
    virtual void Log(LogCategory category, LogTraceLevel level, const char* format, ...) = 0;
};

} // namespace UtilsLib
