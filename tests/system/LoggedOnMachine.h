#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <profinfo.h>
#include <wtsapi32.h>

#include <memory>
#include <string>
#include <vector>

/// A machine with a user at the console, as UtilsLib.dll sees it until scope end: the terminal services and the user
/// profiles are the stand-ins beside this program, the tokens are real ones of this process, the user's hive is a real
/// key. One at a time, one thread.
class LoggedOnMachine
{
public:
    enum class Services
    {
        Pretended, // a service that is in `serviceState`
        Real,      // the machine's own service control manager, its calls written down
    };
    static constexpr DWORD kRefused = 1265; // what a failing call leaves as last error

    explicit LoggedOnMachine(Services services = Services::Pretended);
    ~LoggedOnMachine();
    LoggedOnMachine(const LoggedOnMachine&) = delete;
    LoggedOnMachine& operator=(const LoggedOnMachine&) = delete;

    // How the machine is.
    std::vector<WTS_SESSION_INFOA> sessions; // session 0 of the services, then an active session 3
    std::string userName = "anna";
    DWORD serviceState = SERVICE_RUNNING;
    std::string failing; // the function whose calls fail, leaving rubbish in what they should fill

    // What was asked of it.
    std::vector<std::string> calls;  // in order, each with what matters in its arguments
    HANDLE userToken = nullptr;      // the last one handed out
    HANDLE duplicateToken = nullptr; // the last one made
    HKEY hive = nullptr;             // the last one loaded
    PROFILEINFOA profile = {};       // as the last load got it
    std::string profileUserName;

    void Forget();
    /// How often `name` was called.
    int Count(const std::string& name) const;
    void AddSession(DWORD id, WTS_CONNECTSTATE_CLASS state);

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

/// What a whole load and its end ask of the machine.
extern const std::vector<std::string> kLoadCalls;
extern const std::vector<std::string> kCleanupCalls;
