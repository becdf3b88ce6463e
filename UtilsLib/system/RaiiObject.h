#pragma once

#include <UtilsLib/Export.h>

#include <functional>

namespace UtilsLib
{

/// Runs one action when it is made and another at scope end, on the threads that do so.
class UTILSLIB_API RaiiObject
{
public:
    /// Copies both and calls `onEnter`. Throws what that throws, std::bad_function_call for an empty one; `onExit` is
    /// not called then.
    RaiiObject(const std::function<void()>& onEnter, const std::function<void()>& onExit);
    /// Each of the two calls the second action at its own end; the first is not called again.
    RaiiObject(const RaiiObject& other);
    /// Calls the second action and lets out what that throws, std::bad_function_call for an empty one: meant so. While
    /// another exception is on its way, such a throw ends the process.
    ~RaiiObject() noexcept(false);
    /// Copies both actions without calling any.
    RaiiObject& operator=(const RaiiObject& other);

private:
    std::function<void()> m_onEnter;
    std::function<void()> m_onExit;
};

} // namespace UtilsLib
