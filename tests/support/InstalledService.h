#pragma once

#include <UtilsLib/platform/UniqueServiceHandle.h>

#include <chrono>
#include <string>

namespace TestSupport
{

/// The command line of a service: the program of the tests' own folder, quoted, with arguments for it.
std::string ServiceCommandLine(const std::string& arguments, const std::string& program = "child_scripted_service");

/// A real Windows service, stopped at first. At scope end it is stopped, with its process if need be, and deleted; what
/// a killed test left behind goes before the first test of a program that installs services. Needs a prefix of its own
/// (OWN_PREFIX).
class InstalledService
{
public:
    /// The name begins with "UtilsLib"; an empty display name is the same. Throws when the service cannot be installed.
    explicit InstalledService(const std::string& name, const std::string& commandLine = ServiceCommandLine("run"),
                              const std::string& displayName = "");
    ~InstalledService();
    InstalledService(const InstalledService&) = delete;
    InstalledService& operator=(const InstalledService&) = delete;

    /// True when the service runs within `limit`.
    [[nodiscard]] bool Start(std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
    /// True when the service has stopped.
    [[nodiscard]] bool Stop() const;
    /// Whether the service comes to `state` within `limit`.
    [[nodiscard]] bool Reaches(DWORD state, std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
    /// Whether the service takes the control.
    [[nodiscard]] bool Control(DWORD control) const;
    /// All zeros when the manager does not answer.
    SERVICE_STATUS_PROCESS Status() const;

private:
    UtilsLib::Platform::UniqueServiceHandle m_service;
};

/// Whether the service control manager knows a service of that name.
bool IsInstalled(const std::string& name);

} // namespace TestSupport
