#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

/// Numbers under the product key for the life of the object: what was there before, of whatever type, is put back at
/// the end. Makes the product key when it is missing, as an installation does (the library never makes it).
class ProductSwitches
{
public:
    ProductSwitches();
    ~ProductSwitches();
    ProductSwitches(const ProductSwitches&) = delete;
    ProductSwitches& operator=(const ProductSwitches&) = delete;

    /// False when the key cannot be written: a host needs administrator rights for that.
    bool Set(const std::string& name, unsigned long value);

private:
    struct Value
    {
        DWORD type = REG_NONE;
        std::vector<BYTE> data;
    };

    std::optional<Value> Read(const std::string& name) const;

    HKEY m_key = nullptr;
    std::map<std::string, std::optional<Value>> m_before; // nothing: the value was not there
};
