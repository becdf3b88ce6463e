#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/ThreadAnnotations.h>
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/threading/Lock.h>
#include <UtilsLib/threading/Thread.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace UtilsLib
{

/// The process-wide cache of a fixed list of numeric switches below the product key. Its thread, which the host starts,
/// reads them again every 20 s, so that a running service follows changes in the registry; before that the cache
/// holds what stood there when it was made.
///
/// Any thread may call all functions; one recursive lock guards the cache. No defaults are kept here: a value that is
/// missing, unreadable or longer than 4 bytes is not present. Registry errors are not reported.
class UTILSLIB_API LiveRegSettings : public Thread
{
public:
    /// The one instance, made and filled by the first call. Destroyed at process exit or with the DLL.
    static LiveRegSettings& GetInstance();
    /// Ends the thread first if the host did not.
    ~LiveRegSettings();
    LiveRegSettings(const LiveRegSettings&) = delete;
    LiveRegSettings& operator=(const LiveRegSettings&) = delete;

    /// The cached number of a watched name. False, and `value` as before, when the name is not watched or not present.
    /// Never touches the registry, but waits while another thread is in `Read`.
    bool GetRegSetting(const std::string& name, unsigned long& value);
    /// Writes `value` to the registry as REG_DWORD; false when that fails, as without the product key. `name` need not
    /// be watched. The cache is not touched: the new number is seen after the next `Read`. Takes no lock.
    bool SetRegSetting(const std::string& name, unsigned long value);
    /// Reads all watched values, then calls the callbacks of those whose number changed: by ascending name, each name's
    /// in the order of registration. The lock is held from beginning to end.
    ///
    /// Only the number counts: a value that disappears and comes back with the same number, or first appears as 0,
    /// fires nothing. An exception of a callback leaves this function with the lock released; the callbacks after it
    /// are not called, and these changes are not reported again.
    void Read();
    /// Adds a callback for changes of `name`; they cannot be removed. Names that are not watched are accepted and never
    /// fire. An empty callback is accepted too and raises std::bad_function_call out of `Read`.
    ///
    /// Callbacks run on the thread that reads, while the lock is held: one that waits for another thread which needs
    /// the lock never returns. They may call any function of this class. One that is added while the callbacks of the
    /// same name are called has its first turn at the name's next change.
    void RegisterRegSettingChanged(const std::string& name, std::function<void(const std::string&)> callback);

private:
    struct CachedValue
    {
        unsigned long number = 0; // of the last read that succeeded
        bool present = false;     // the last read succeeded
    };
    using Callback = std::function<void(const std::string&)>;

    LiveRegSettings();

    /// Until a stop is requested: report to the monitor, wait 500 ms or until the semaphore is released, read if 20 s
    /// have passed since the last time (the first cycle reads at once). The semaphore never forces a read: meant so.
    /// An exception of a callback ends the thread quietly; the cache then changes by calls of `Read` only.
    void ThreadProc() override;

    /// Refreshes the cache; the changed names that have callbacks, ascending. They point at the keys of the cache.
    std::vector<const std::string*> ReadValues() UTILSLIB_REQUIRES(m_lock);
    void CallCallbacks(const std::string& name) UTILSLIB_REQUIRES(m_lock);

    std::map<std::string, CachedValue> m_values UTILSLIB_GUARDED_BY(m_lock); // the names are fixed at construction
    Lock m_lock;
    HANDLE m_wake; // the named semaphore "hxds_drivetest_sm"; null when it could not be made
    std::map<std::string, std::vector<Callback>> m_callbacks UTILSLIB_GUARDED_BY(m_lock);
};

} // namespace UtilsLib
