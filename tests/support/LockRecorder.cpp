#include <tests/support/LockRecorder.h>

#include <algorithm>
#include <atomic>

namespace TestSupport
{

namespace
{

std::atomic<LockRecorder*> g_recorder = nullptr;

} // namespace

LockRecorder::LockRecorder()
    : m_threadId(GetCurrentThreadId()),
      m_enter("KERNEL32.dll", "EnterCriticalSection", &Enter),
      m_leave("KERNEL32.dll", "LeaveCriticalSection", &Leave)
{
    g_recorder = this;
}

LockRecorder::~LockRecorder()
{
    g_recorder = nullptr;
}

void LockRecorder::Name(const void* lock, char letter)
{
    m_names.emplace_back(lock, letter);
}

std::string LockRecorder::Steps() const
{
    std::string text;
    for (const auto& [step, section] : m_steps)
    {
        const auto name = std::find_if(m_names.begin(), m_names.end(),
                                       [&section](const auto& known) { return known.first == section; });
        text += step;
        text += name == m_names.end() ? '?' : name->second;
    }
    return text;
}

void LockRecorder::OnTaken(Hook hook)
{
    m_taken = std::move(hook);
}

void LockRecorder::OnLeaving(Hook hook)
{
    m_leaving = std::move(hook);
}

void WINAPI LockRecorder::Enter(CRITICAL_SECTION* section)
{
    EnterCriticalSection(section);
    LockRecorder* const recorder = g_recorder;
    if (recorder != nullptr && recorder->m_threadId == GetCurrentThreadId())
    {
        recorder->Record('+', section);
    }
}

void WINAPI LockRecorder::Leave(CRITICAL_SECTION* section)
{
    LockRecorder* const recorder = g_recorder;
    if (recorder != nullptr && recorder->m_threadId == GetCurrentThreadId())
    {
        recorder->Record('-', section);
    }
    LeaveCriticalSection(section);
}

void LockRecorder::Record(char step, const void* section)
{
    m_steps.emplace_back(step, section);
    const Hook& hook = step == '+' ? m_taken : m_leaving;
    if (hook)
    {
        hook();
    }
}

} // namespace TestSupport
