#include <UtilsLib/system/WMIComponent.h>

#include <UtilsLib/platform/ScopedVariant.h>
#include <UtilsLib/platform/UniqueBstr.h>
#include <UtilsLib/platform/UniqueInterface.h>

#include <comdef.h>
#include <wbemidl.h>

#include <atomic>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace UtilsLib
{

namespace
{

using Platform::UniqueBstr;

template <typename Interface>
Interface* AddReference(Interface* object)
{
    if (object != nullptr)
    {
        object->AddRef();
    }
    return object;
}

template <typename Interface>
void Release(Interface*& object)
{
    if (object != nullptr)
    {
        std::exchange(object, nullptr)->Release();
    }
}

std::wstring_view ViewOf(BSTR text)
{
    return {text, SysStringLen(text)};
}

/// A string of all `parts`; never null.
UniqueBstr Join(std::initializer_list<std::wstring_view> parts)
{
    std::size_t length = 0;
    for (const std::wstring_view part : parts)
    {
        length += part.size();
    }
    UniqueBstr text(SysAllocStringLen(nullptr, static_cast<UINT>(length)));
    if (!text)
    {
        throw _com_error(E_OUTOFMEMORY);
    }
    wchar_t* end = text.Get();
    for (const std::wstring_view part : parts)
    {
        end += part.copy(end, part.size());
    }
    return text;
}

CComBSTR ToComString(std::wstring_view text)
{
    CComBSTR result;
    result.Attach(Join({text}).Release());
    return result;
}

/// Null when the query gives none.
Platform::UniqueInterface<IWbemClassObject> FirstObject(IWbemServices* services, BSTR query)
{
    const UniqueBstr language = Join({L"WQL"});
    Platform::UniqueInterface<IEnumWbemClassObject> objects;
    Platform::UniqueInterface<IWbemClassObject> first;
    if (SUCCEEDED(services->ExecQuery(language.Get(), query, WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                      nullptr, objects.Put())) &&
        objects)
    {
        ULONG count = 0;
        objects.Get()->Next(static_cast<LONG>(WBEM_INFINITE), 1, first.Put(), &count);
    }
    return first;
}

} // namespace

bool WMIComponent::m_securityInitialized = false;

WMIComponent::WMIComponent()
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

WMIComponent::WMIComponent(const WMIComponent& other)
    : m_locator(AddReference(other.m_locator)), m_services(AddReference(other.m_services))
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED); // every destructor undoes one
}

WMIComponent::~WMIComponent()
{
    Release(m_services);
    Release(m_locator);
    CoUninitialize(); // kept: also when the initialisation failed
}

WMIComponent& WMIComponent::operator=(const WMIComponent& other)
{
    if (this != &other)
    {
        Release(m_services);
        Release(m_locator);
        m_locator = AddReference(other.m_locator);
        m_services = AddReference(other.m_services);
    }
    return *this;
}

bool WMIComponent::InitializeWMI(const CComBSTR& namespacePath) const
{
    Release(m_services);
    Release(m_locator);
    InitCOMSecurity();
    if (!ObtainLocatorToWMI() || !ConnectToWMINamespace(namespacePath))
    {
        return false;
    }
    if (!SetSecurityLevelsOnService())
    {
        Release(m_services);
        return false;
    }
    return true;
}

void WMIComponent::InitCOMSecurity()
{
    const std::atomic_ref<bool> initialized(m_securityInitialized);
    if (!initialized)
    {
        // Fails where the host has set its own, which is as good.
        CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE,
                             nullptr, EOAC_NONE, nullptr);
        initialized = true;
    }
}

bool WMIComponent::ObtainLocatorToWMI() const
{
    return SUCCEEDED(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                      reinterpret_cast<void**>(&m_locator))) &&
           m_locator != nullptr;
}

bool WMIComponent::ConnectToWMINamespace(const CComBSTR& namespacePath) const
{
    if (namespacePath.m_str == nullptr)
    {
        return false; // not every locator expects that
    }
    return SUCCEEDED(m_locator->ConnectServer(namespacePath.m_str, nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                              &m_services)) &&
           m_services != nullptr;
}

bool WMIComponent::SetSecurityLevelsOnService() const
{
    return SUCCEEDED(CoSetProxyBlanket(m_services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                       RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE));
}

CComBSTR WMIComponent::QueryStringPropertyFromWMIClass(const CComBSTR& propertyName, const CComBSTR& className)
{
    if (m_services == nullptr)
    {
        return ToComString({});
    }
    const UniqueBstr query = Join({L"Select ", ViewOf(propertyName.m_str), L" FROM ", ViewOf(className.m_str)});
    const auto object = FirstObject(m_services, query.Get());
    if (!object)
    {
        return ToComString({});
    }
    Platform::ScopedVariant value;
    object.Get()->Get(propertyName.m_str, 0, value.Put(), nullptr, nullptr);
    const BSTR text = value.String();
    return text == nullptr ? CComBSTR() : ToComString(ViewOf(text));
}

} // namespace UtilsLib
