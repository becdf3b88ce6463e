#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <string>
#include <vector>

namespace TestSupport
{

/// Points this process's HKEY_LOCAL_MACHINE at an empty key of its own until scope end, so that tests can write the
/// product key and run side by side. Child processes and the system's own services still see the real one.
class ScopedMachineHive
{
public:
    /// Makes the product key "Software\\Corvane\\Halden" unless `withProductKey` is false.
    explicit ScopedMachineHive(bool withProductKey = true);
    ~ScopedMachineHive();
    ScopedMachineHive(const ScopedMachineHive&) = delete;
    ScopedMachineHive& operator=(const ScopedMachineHive&) = delete;

    // Values of the product key.
    void SetDword(const std::string& name, unsigned long value) const;
    void SetText(const std::string& name, const std::string& text) const;
    void SetBytes(const std::string& name, unsigned long type, const std::vector<unsigned char>& bytes) const;
    void Delete(const std::string& name) const;
    void MakeProductKey() const;
    void DeleteProductKey() const;

private:
    HKEY ProductKey() const;

    std::string m_path; // below HKEY_CURRENT_USER
};

} // namespace TestSupport
