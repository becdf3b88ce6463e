#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/system/VersionInfo.h>

#include <string>
#include <vector>

namespace UtilsLib
{

/// Operations on the Windows services of this machine, and the list of the suite's installed data services. Services
/// are named by their key names. Nothing is logged; no handle stays open. Any thread.
class UTILSLIB_API Service
{
public:
    /// Asks the service to stop, once. Does not wait, and does not tell whether the service exists or took the request.
    /// Takes the right to full access of the manager and the service.
    static void StopService(const std::string& serviceName);
    /// Waits until the service is in `state` (`SERVICE_STOPPED` and the like), up to `seconds` times for one second by
    /// the system's plain sleep; 0 or less does not wait. Returns at once when the service cannot be opened, for which
    /// it takes full access. Does not tell the outcome: query the service again, by `ScopedServiceControl::GetStatus`.
    static void Wait(const std::string& serviceName, int state, int seconds);

    /// The path of the service's executable as it was registered, without any double quotes: arguments that follow the
    /// path stay, so that a path with blanks can no longer be told from them. Empty when the service cannot be opened
    /// or its configuration not be read. `manager` stays the caller's.
    static std::string GetServiceBinaryPath(SC_HANDLE manager, const std::string& serviceName);

    /// The first three numbers of the executable's file version; zeros when it cannot be read. `name` is empty.
    static RequestLib::VersionInfo GetDataServiceVersion(const std::string& path);
    /// Appends every data service, found by a display name of "Corvane Ledgrix Service v" and nothing but digits (or
    /// nothing) behind it, with its executable's version. Then sorts the whole vector, what it held before too: the
    /// largest `major` first, in no defined order where they are equal.
    ///
    /// False, and the vector as it was, when the manager cannot be opened. A list of services that cannot be read, or
    /// grows while it is read, adds nothing and is no failure. Data services whose path cannot be read are left out.
    static bool GetDataServiceVersions(std::vector<RequestLib::VersionInfo>& versions);
};

} // namespace UtilsLib
