#include <ProductSwitches.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/registry/RegUtils.h>

using UtilsLib::RegUtils;

ProductSwitches::ProductSwitches()
{
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Corvane\\Halden", 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                        nullptr) == ERROR_SUCCESS)
    {
        RegCloseKey(key);
    }
}

ProductSwitches::~ProductSwitches()
{
    for (const auto& [name, value] : m_before)
    {
        if (value)
        {
            RegUtils::WriteHaldenRegDword(name, *value);
        }
        else
        {
            RegUtils::DeleteHaldenRegDword(name);
        }
    }
}

bool ProductSwitches::Set(const std::string& name, unsigned long value)
{
    unsigned long before = 0;
    const bool present = RegUtils::ReadHaldenRegDword(name, before);
    m_before.try_emplace(name, present ? std::optional<unsigned long>(before) : std::nullopt);
    return RegUtils::WriteHaldenRegDword(name, value);
}
