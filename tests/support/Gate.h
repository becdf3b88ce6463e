#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace TestSupport
{

/// Where threads of a test meet: one opens it, others wait, with a limit instead of for ever.
class Gate
{
public:
    void Open();
    /// False when the gate was not opened within `limit`.
    [[nodiscard]] bool Wait(std::chrono::milliseconds limit = std::chrono::seconds(5));

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_open = false;
};

/// Asks `condition` every few milliseconds until it holds; false when it did not within `limit`.
template <typename Condition>
[[nodiscard]] bool Eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(5))
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() >= end)
        {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace TestSupport
