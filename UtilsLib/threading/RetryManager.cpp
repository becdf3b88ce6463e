#include <UtilsLib/threading/RetryManager.h>

#include <UtilsLib/WindowsTypes.h>

unsigned int RetryManager::ms_defaultTryLimit = 10;
unsigned int RetryManager::ms_defaultTimeLimit = 300'000;
unsigned int RetryManager::ms_defaultRetryDelay = 500;

RetryManager::RetryManager()
    : m_startTick(GetTickCount64()),
      m_tryCount(0),
      m_timeLimit(ms_defaultTimeLimit),
      m_tryLimit(ms_defaultTryLimit),
      m_retryDelay(ms_defaultRetryDelay)
{
}

bool RetryManager::CanRetry() const
{
    const unsigned long long now = GetTickCount64();
    if (m_timeLimit != 0 && now >= m_startTick + m_timeLimit)
    {
        return false;
    }
    return m_tryLimit == 0 || static_cast<unsigned int>(m_tryCount) < m_tryLimit;
}

int RetryManager::GetRetryCount() const
{
    return m_tryCount;
}

void RetryManager::IncrementTryCount()
{
    // Without sign, where passing the end is defined.
    m_tryCount = static_cast<int>(static_cast<unsigned int>(m_tryCount) + 1);
}

void RetryManager::WaitForNextRetry() const
{
    Sleep(m_retryDelay);
}

void RetryManager::SetTimeLimit(unsigned int milliseconds)
{
    m_timeLimit = milliseconds;
}

void RetryManager::SetTryLimit(unsigned int tries)
{
    m_tryLimit = tries;
}

void RetryManager::SetRetryDelay(unsigned int milliseconds)
{
    m_retryDelay = milliseconds;
}

void RetryManager::SetDefaultTimeLimit(unsigned int milliseconds)
{
    ms_defaultTimeLimit = milliseconds;
}

void RetryManager::SetDefaultTryLimit(unsigned int tries)
{
    ms_defaultTryLimit = tries;
}

void RetryManager::SetDefaultRetryDelay(unsigned int milliseconds)
{
    ms_defaultRetryDelay = milliseconds;
}
