#pragma once

#include <UtilsLib/Export.h>

#include <string>
#include <vector>

/// How the suite checks a web address that a user typed, tidies it and takes it apart.
class UTILSLIB_API IURLValidator
{
public:
    virtual ~IURLValidator() = default;
    /// Whether the whole address is well-formed, as it stands: nothing is trimmed or lower-cased first.
    virtual bool ValidateURL(const std::string& address) const = 0;
    /// The address as it is stored or opened.
    virtual std::string SanitizeURL(std::string address) = 0;
    /// What remains of the address behind the given prefixes.
    virtual std::string GetUrlPathAfterPattern(std::string address, const std::vector<std::string>& patterns) const = 0;
};
