#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <string>

namespace UtilsLib
{

/// One Windows service of this machine, held open to be started, stopped, queried and restarted.
///
/// Failing to open it is not reported: every operation then returns false. The manager is opened with full access,
/// which takes administrator rights. After a false result `GetLastError` is that of the failed step; a time-out has
/// none. Copies share the two handles on purpose (they are not duplicated), and a destructor closes them: let only one
/// of the copies be destroyed. For one thread.
class UTILSLIB_API ScopedServiceControl
{
public:
    /// Opens the service by its key name, not its display name, with the rights to start, stop and query it.
    explicit ScopedServiceControl(const std::string& serviceName);
    /// Shares the handles of `other`; see the class.
    ScopedServiceControl(const ScopedServiceControl& other);
    /// Copies the other's handles. Those that this one held are not closed: meant so.
    ScopedServiceControl& operator=(const ScopedServiceControl& other);
    /// Closes the manager's handle, then the service's. Keeps the last error.
    ~ScopedServiceControl();

    /// Asks the service to start, without arguments. True when the request was accepted; does not wait for it to run.
    bool StartSvc();
    /// Asks the service to stop. True when the request was accepted; does not wait for it to end.
    bool StopSvc();
    /// Stores the current state (`SERVICE_STOPPED` and the like); on false `state` keeps its value.
    bool GetStatus(unsigned long& state);
    /// Stops the service unless it is stopped or stopping, waits for its end, starts it and waits until it runs; true
    /// when it does. Each wait polls every 500 ms for about 30.5 s by the system's plain sleep, which a stop of the
    /// calling thread does not shorten. False when a wait times out, even if the very last query sees the state.
    ///
    /// A query that fails during a wait counts as the state that is waited for: meant so.
    bool RestartSvc();

private:
    bool WaitForStopped();
    bool WaitForRunning();

    SC_HANDLE m_scManager; // null when it could not be opened
    SC_HANDLE m_service;   // null when it or the manager could not be opened
};

} // namespace UtilsLib
