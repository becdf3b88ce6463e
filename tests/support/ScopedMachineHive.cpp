#include <tests/support/ScopedMachineHive.h>

#include <UtilsLib/platform/UniqueRegKey.h>

#include <atomic>
#include <stdexcept>

namespace TestSupport
{

namespace
{

constexpr const char* kProductKey = "Software\\Corvane\\Halden";

void Check(LSTATUS status, const char* what)
{
    if (status != ERROR_SUCCESS)
    {
        throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
    }
}

std::string UniqueKey()
{
    static std::atomic<unsigned int> count = 0;
    return "Software\\UtilsLibTests\\" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++count);
}

} // namespace

ScopedMachineHive::ScopedMachineHive(bool withProductKey) : m_path(UniqueKey())
{
    UtilsLib::Platform::UniqueRegKey key;
    RegDeleteTreeA(HKEY_CURRENT_USER, m_path.c_str());
    Check(
        RegCreateKeyExA(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(), nullptr),
        "RegCreateKeyExA");
    Check(RegOverridePredefKey(HKEY_LOCAL_MACHINE, key.Get()), "RegOverridePredefKey");
    if (withProductKey)
    {
        MakeProductKey();
    }
}

ScopedMachineHive::~ScopedMachineHive()
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegDeleteTreeA(HKEY_CURRENT_USER, m_path.c_str());
}

void ScopedMachineHive::SetDword(const std::string& name, unsigned long value) const
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&value);
    SetBytes(name, REG_DWORD, {bytes, bytes + sizeof(value)});
}

void ScopedMachineHive::SetText(const std::string& name, const std::string& text) const
{
    const char* const first = text.c_str(); // with its terminator
    SetBytes(name, REG_SZ, {first, first + text.size() + 1});
}

void ScopedMachineHive::SetBytes(const std::string& name, unsigned long type,
                                 const std::vector<unsigned char>& bytes) const
{
    const UtilsLib::Platform::UniqueRegKey key(ProductKey());
    Check(RegSetValueExA(key.Get(), name.c_str(), 0, type, bytes.data(), static_cast<DWORD>(bytes.size())),
          "RegSetValueExA");
}

void ScopedMachineHive::Delete(const std::string& name) const
{
    const UtilsLib::Platform::UniqueRegKey key(ProductKey());
    Check(RegDeleteValueA(key.Get(), name.c_str()), "RegDeleteValueA");
}

void ScopedMachineHive::MakeProductKey() const
{
    UtilsLib::Platform::UniqueRegKey key;
    Check(RegCreateKeyExA(HKEY_LOCAL_MACHINE, kProductKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(), nullptr),
          "RegCreateKeyExA");
}

void ScopedMachineHive::DeleteProductKey() const
{
    Check(RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductKey), "RegDeleteTreeA");
}

HKEY ScopedMachineHive::ProductKey() const
{
    HKEY key = nullptr;
    Check(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kProductKey, 0, KEY_ALL_ACCESS, &key), "RegOpenKeyExA");
    return key;
}

} // namespace TestSupport
