#pragma once

#include <tests/support/Gate.h>

#include <thread>

namespace TestSupport
{

/// A thread that has the lock of the system's loader until scope end, as one has whose DllMain does not come to its
/// end. In the meantime no thread starts and no library is loaded.
class HeldLoader
{
public:
    HeldLoader();
    ~HeldLoader();
    HeldLoader(const HeldLoader&) = delete;
    HeldLoader& operator=(const HeldLoader&) = delete;

private:
    void Hold();

    Gate m_held;
    Gate m_release;
    std::thread m_thread;
};

} // namespace TestSupport
