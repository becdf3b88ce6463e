#pragma once

#include <UtilsLib/Export.h>

/// Bounds a retry loop by elapsed time and by the number of attempts, and makes the pause between them:
///
///     RetryManager retry;
///     while (!Connect())
///     {
///         retry.IncrementTryCount();
///         if (!retry.CanRetry())
///         {
///             return false;
///         }
///         retry.WaitForNextRetry();
///     }
///
/// An object belongs to one thread's loop. The defaults are plain numbers of the process without a lock: set them while
/// no other thread makes an object.
class UTILSLIB_API RetryManager
{
public:
    /// The time starts to run; the limits and the delay are the defaults of this moment.
    RetryManager();

    /// False from the moment on at which the time limit is reached, whatever the count; and when there have been as
    /// many attempts as the try limit. A limit of 0 is none.
    bool CanRetry() const;
    /// How often `IncrementTryCount` was called.
    int GetRetryCount() const;
    /// After 2,147,483,647 the count goes on at -2,147,483,648, which the try limit sees as 2,147,483,648.
    void IncrementTryCount();
    /// Sleeps for the retry delay by the system's own sleep: a mocked time service does not shorten it. A delay of
    /// 0xFFFFFFFF never ends.
    void WaitForNextRetry() const;

    /// Milliseconds from construction on, 0 for no limit.
    void SetTimeLimit(unsigned int milliseconds);
    /// Attempts, 0 for no limit.
    void SetTryLimit(unsigned int tries);
    /// Milliseconds.
    void SetRetryDelay(unsigned int milliseconds);

    // The same for the objects made from now on; at the start of the process 300,000, 10 and 500.

    /// Milliseconds, 0 for no limit.
    static void SetDefaultTimeLimit(unsigned int milliseconds);
    /// Attempts, 0 for no limit.
    static void SetDefaultTryLimit(unsigned int tries);
    /// Milliseconds.
    static void SetDefaultRetryDelay(unsigned int milliseconds);

private:
    static unsigned int ms_defaultTryLimit;
    static unsigned int ms_defaultTimeLimit;
    static unsigned int ms_defaultRetryDelay;

    unsigned long long m_startTick; // of the system's milliseconds
    int m_tryCount;
    unsigned int m_timeLimit; // ms
    unsigned int m_tryLimit;
    unsigned int m_retryDelay; // ms
};
