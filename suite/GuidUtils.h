#pragma once

#include <string>

#if defined(SUITE_EXPORTS)
#define SUITE_GUID_UTILS_API __declspec(dllexport)
#else
#define SUITE_GUID_UTILS_API __declspec(dllimport)
#endif

namespace Corvane::ManagedCpp::Utils
{

/// Formats GUID texts.
class SUITE_GUID_UTILS_API GuidUtils
{
public:
    /// The GUID `value` (32 hexadecimal digits, with or without hyphens, braces or parentheses) in `format`:
    /// "N" digits only, "D" with hyphens, "B" in braces, "P" in parentheses; lower case. Empty when either is not
    /// valid.
    static std::string Format(const std::string& value, const std::string& format);
};

} // namespace Corvane::ManagedCpp::Utils
