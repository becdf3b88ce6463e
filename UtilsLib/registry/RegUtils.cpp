#include <UtilsLib/registry/RegUtils.h>

#include <UtilsLib/platform/UniqueRegKey.h>

#include <cstring>
#include <exception>

namespace UtilsLib
{

namespace
{

using Platform::UniqueRegKey;

const char* const kProductKey = "Software\\Corvane\\Halden";

/// Nothing when the key does not exist or does not grant `access`.
UniqueRegKey OpenKey(HKEY root, const char* path, unsigned long access)
{
    HKEY key = nullptr;
    const LSTATUS status = RegOpenKeyExA(root, path, 0, access, &key);
    return status == ERROR_SUCCESS ? UniqueRegKey(key) : UniqueRegKey();
}

bool QueryText(HKEY key, const std::string& name, std::string& value)
{
    DWORD size = 0;
    if (RegQueryValueExA(key, name.c_str(), nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
    {
        return false;
    }
    // The string's own terminator is the zero byte behind the data: text may be stored without one.
    std::string data(size, '\0');
    if (RegQueryValueExA(key, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size) !=
        ERROR_SUCCESS)
    {
        return false;
    }
    data.resize(std::strlen(data.c_str()));
    value.swap(data);
    return true;
}

bool ReadText(HKEY root, const char* path, const std::string& name, std::string& value, unsigned long access)
{
    const UniqueRegKey key = OpenKey(root, path, access);
    try
    {
        return key && QueryText(key.Get(), name, value);
    }
    catch (const std::exception&)
    {
        return false; // no memory for a value of that size
    }
}

} // namespace

bool RegUtils::ReadHaldenRegDword(const std::string& name, unsigned long& value)
{
    return ReadHaldenRegDword(name, value, 0);
}

bool RegUtils::ReadHaldenRegDword(const std::string& name, unsigned long& value, unsigned long extraAccess)
{
    const UniqueRegKey key = OpenKey(HKEY_LOCAL_MACHINE, kProductKey, KEY_READ | extraAccess);
    if (!key)
    {
        return false;
    }
    const unsigned long before = value;
    DWORD type = REG_DWORD; // kept: not checked afterwards, callers live with values of other types
    DWORD size = sizeof(value);
    if (RegQueryValueExA(key.Get(), name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&value), &size) !=
        ERROR_SUCCESS)
    {
        value = before; // the system promises nothing of a buffer that was too small
        return false;
    }
    return true;
}

bool RegUtils::ReadHaldenRegString(const std::string& name, std::string& value)
{
    return ReadText(HKEY_LOCAL_MACHINE, kProductKey, name, value, KEY_READ);
}

bool RegUtils::WriteHaldenRegDword(const std::string& name, const unsigned long& value)
{
    const UniqueRegKey key = OpenKey(HKEY_LOCAL_MACHINE, kProductKey, KEY_WRITE);
    return key && RegSetValueExA(key.Get(), name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                                 sizeof(value)) == ERROR_SUCCESS;
}

bool RegUtils::DeleteHaldenRegDword(const std::string& name)
{
    const UniqueRegKey key = OpenKey(HKEY_LOCAL_MACHINE, kProductKey, KEY_ALL_ACCESS);
    return key && RegDeleteValueA(key.Get(), name.c_str()) == ERROR_SUCCESS;
}

bool RegUtils::ReadRegString(const std::string& keyPath, const std::string& name, std::string& value)
{
    return ReadRegString(keyPath, name, value, HKEY_LOCAL_MACHINE, KEY_READ);
}

bool RegUtils::ReadRegString(const std::string& keyPath, const std::string& name, std::string& value, HKEY root,
                             unsigned long access)
{
    return ReadText(root, keyPath.c_str(), name, value, access);
}

} // namespace UtilsLib
