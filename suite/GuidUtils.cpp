#include <suite/GuidUtils.h>

namespace
{

constexpr std::size_t kDigits = 32;

std::string LowerCaseDigits(const std::string& value)
{
    std::string digits;
    for (const char c : value)
    {
        if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))
        {
            digits += c;
        }
        else if (c >= 'A' && c <= 'F')
        {
            digits += static_cast<char>(c - 'A' + 'a');
        }
        else if (c != '-' && c != '{' && c != '}' && c != '(' && c != ')')
        {
            return {};
        }
    }
    return digits.size() == kDigits ? digits : std::string();
}

std::string Hyphenated(const std::string& digits)
{
    return digits.substr(0, 8) + '-' + digits.substr(8, 4) + '-' + digits.substr(12, 4) + '-' + digits.substr(16, 4) +
           '-' + digits.substr(20);
}

} // namespace

std::string Corvane::ManagedCpp::Utils::GuidUtils::Format(const std::string& value, const std::string& format)
{
    const std::string digits = LowerCaseDigits(value);
    if (digits.empty() || format.size() != 1)
    {
        return {};
    }
    switch (format[0])
    {
    case 'N':
        return digits;
    case 'D':
        return Hyphenated(digits);
    case 'B':
        return '{' + Hyphenated(digits) + '}';
    case 'P':
        return '(' + Hyphenated(digits) + ')';
    default:
        return {};
    }
}
