// Takes the place of WMIComponent.cpp in a build without WMI.

#include <UtilsLib/system/WMIComponent.h>

namespace UtilsLib
{

bool WMIComponent::m_securityInitialized = false;

WMIComponent::WMIComponent() = default;
WMIComponent::WMIComponent(const WMIComponent& other) = default;
WMIComponent::~WMIComponent() = default;
WMIComponent& WMIComponent::operator=(const WMIComponent& other) = default;

bool WMIComponent::InitializeWMI(const CComBSTR&) const
{
    return false;
}

CComBSTR WMIComponent::QueryStringPropertyFromWMIClass(const CComBSTR&, const CComBSTR&)
{
    return L"";
}

} // namespace UtilsLib
