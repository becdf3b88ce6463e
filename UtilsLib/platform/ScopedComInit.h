#pragma once

#include <UtilsLib/WindowsTypes.h>

namespace UtilsLib::Platform
{

/// COM on the calling thread, in a single-threaded apartment, until scope end; belongs to that thread.
///
/// A thread that is in another apartment already stays there, and the end of the scope then undoes nothing.
class ScopedComInit
{
public:
    ScopedComInit();
    ~ScopedComInit();
    ScopedComInit(const ScopedComInit&) = delete;
    ScopedComInit& operator=(const ScopedComInit&) = delete;

private:
    HRESULT m_result;
};

} // namespace UtilsLib::Platform
