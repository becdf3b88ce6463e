#include <ProductSwitches.h>

#include <UtilsLib/registry/RegUtils.h>

using UtilsLib::RegUtils;

ProductSwitches::ProductSwitches()
{
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Corvane\\Halden", 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                    &m_key, nullptr);
}

ProductSwitches::~ProductSwitches()
{
    for (const auto& [name, value] : m_before)
    {
        if (value)
        {
            RegSetValueExA(m_key, name.c_str(), 0, value->type, value->data.data(),
                           static_cast<DWORD>(value->data.size()));
        }
        else
        {
            RegUtils::DeleteHaldenRegDword(name);
        }
    }
    if (m_key != nullptr)
    {
        RegCloseKey(m_key);
    }
}

bool ProductSwitches::Set(const std::string& name, unsigned long value)
{
    if (m_key == nullptr)
    {
        return false;
    }
    m_before.try_emplace(name, Read(name));
    return RegUtils::WriteHaldenRegDword(name, value);
}

std::optional<ProductSwitches::Value> ProductSwitches::Read(const std::string& name) const
{
    Value value;
    DWORD size = 0;
    if (RegQueryValueExA(m_key, name.c_str(), nullptr, &value.type, nullptr, &size) != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    value.data.resize(size);
    RegQueryValueExA(m_key, name.c_str(), nullptr, &value.type, value.data.data(), &size);
    return value;
}
