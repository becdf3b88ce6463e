#include <tests/support/Gate.h>

namespace TestSupport
{

void Gate::Open()
{
    const std::lock_guard<std::mutex> hold(m_lock);
    m_open = true;
    m_changed.notify_all();
}

bool Gate::Wait(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> hold(m_lock);
    return m_changed.wait_for(hold, limit, [this] { return m_open; });
}

} // namespace TestSupport
