#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/threading/Lock.h>

#include <functional>
#include <future>
#include <vector>

/// What a service does. The steps are done one after the other on one thread.
struct ServiceWork
{
    std::vector<std::function<void()>> start; // one that throws makes the service's start fail
    std::vector<std::function<void()>> stop;  // done in any case, also after a failed start; must not throw
};

/// The side of a service that faces the service control manager: it says what state the service is in, all the time,
/// and takes its controls. One service a process.
///
/// While the service starts or stops, a new checkpoint tells once a second, and at every step, that it is alive.
class ControlledService
{
public:
    static constexpr DWORD kStartFailed = 1; // the service's own exit code

    explicit ControlledService(ServiceWork work);
    ControlledService(const ControlledService&) = delete;
    ControlledService& operator=(const ControlledService&) = delete;

    /// Hands the process's main thread to the service control manager. True after the service's end; false, with the
    /// last error, when it was not that manager that started the process.
    bool Run();

private:
    class Heartbeat;

    static void WINAPI ServiceMain(DWORD argumentCount, char** arguments);
    static DWORD WINAPI OnControl(DWORD control, DWORD event, void* eventData, void* service);

    void Serve();
    bool Start();
    void Stop();
    void RequestStop();
    /// Sets a state; a pending one begins with checkpoint 1.
    void EnterState(DWORD state);
    void EndWith(DWORD serviceExitCode);
    void NextCheckpoint();
    void Report();

    ServiceWork m_work;
    SERVICE_STATUS_HANDLE m_handle = nullptr;
    std::promise<void> m_stopRequested;
    UtilsLib::Lock m_lock;
    SERVICE_STATUS m_status = {}; // under the lock, with every report of it
};
