#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/system/ComString.h>

struct IWbemLocator;
struct IWbemServices;

namespace UtilsLib
{

/// Reads text properties of what Windows Management Instrumentation describes, for example the processor's name.
///
/// Initialises COM on its thread, in the multithreaded apartment, and undoes that once at its end, whatever the
/// initialisation answered: on a thread that is in another apartment already that takes an initialisation of somebody
/// else's away. Meant so. Copies share the connection, each with references and an initialisation of COM of its own.
/// Made, used and destroyed on one thread. In a build without WMI nothing connects and every text is empty.
class UTILSLIB_API WMIComponent
{
public:
    WMIComponent();
    /// Shares the connection; see the class.
    WMIComponent(const WMIComponent& other);
    ~WMIComponent();
    /// Gives up what it held and shares the connection of `other`.
    WMIComponent& operator=(const WMIComponent& other);

    /// Connects to a namespace such as L"root\\cimv2" as the current user; false when it cannot. What an earlier call
    /// connected to is given up in any case. Blocks. The first call in a process also sets the security of the
    /// process's COM, unless the host has; let that call come before other threads' ones.
    bool InitializeWMI(const CComBSTR& namespacePath) const;

    /// The property of the first instance of the class. A string of length 0 when there is no connection, instance or
    /// such class or when the query fails; a null string when the instance lacks the property or holds no text in it.
    /// Blocks without limit. Throws _com_error with E_OUTOFMEMORY when there is no memory for a text.
    CComBSTR QueryStringPropertyFromWMIClass(const CComBSTR& propertyName, const CComBSTR& className);

private:
    static void InitCOMSecurity();
    bool ObtainLocatorToWMI() const;
    bool ConnectToWMINamespace(const CComBSTR& namespacePath) const;
    bool SetSecurityLevelsOnService() const;

    static bool m_securityInitialized; // a plain flag of all threads

    mutable IWbemLocator* m_locator = nullptr;   // null until obtained
    mutable IWbemServices* m_services = nullptr; // null until connected
};

} // namespace UtilsLib
