#pragma once

#include <map>
#include <optional>
#include <string>

/// Numbers under the product key for the life of the object: what was there before is put back at the end. Makes the
/// product key when it is missing, as an installation does (the library never makes it).
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
    std::map<std::string, std::optional<unsigned long>> m_before; // nothing: the value was not there
};
