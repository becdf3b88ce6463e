#include <UtilsLib/cloud/OfficeAdapterBasedRegexURLValidator.h>

#include <UtilsLib/platform/CharacterSet.h>
#include <UtilsLib/text/StringUtils.h>

#include <string_view>

using UtilsLib::StringUtils;
using UtilsLib::Platform::CharacterSet;

// The expression is matched by hand: every alternative in it is told by its first character or by the address's end, so
// one pass decides. The standard library's matcher calls itself for every character and would overflow the stack.

namespace
{

constexpr std::string_view kSchemes[] = {"https://",  "http://", "mailto:", "ftp://",   "ftps://",
                                         "gopher://", "news:",   "nntp://", "telnet://"};
constexpr CharacterSet kPlain = CharacterSet().Add("-()_.!~*';/?:@&=+$,").AddLettersAndDigits();
constexpr CharacterSet kPunctuation = CharacterSet().Add(").!';/?:,");
constexpr CharacterSet kHexDigits = CharacterSet().Add('0', '9').Add('A', 'F').Add('a', 'f');

bool IsBlank(char character)
{
    return character == ' ' || character == '\t';
}

std::size_t SchemeLength(std::string_view address)
{
    for (const std::string_view scheme : kSchemes)
    {
        if (address.starts_with(scheme[0]) && address.starts_with(scheme))
        {
            return scheme.size();
        }
    }
    return 0;
}

/// kept: a punctuation mark and a blank at the very end belong to no address, but are accepted
std::string_view WithoutEndOfSentence(std::string_view text)
{
    const std::size_t size = text.size();
    return size >= 2 && IsBlank(text[size - 1]) && kPunctuation.Has(text[size - 2]) ? text.substr(0, size - 2) : text;
}

/// Whether `text` is only plain characters and "%" followed by two hexadecimal digits.
bool IsAddressText(std::string_view text)
{
    const char* at = text.data();
    const char* const end = at + text.size();
    while ((at = kPlain.SkipIn(at, end)) != end)
    {
        if (*at != '%' || end - at < 3 || !kHexDigits.Has(at[1]) || !kHexDigits.Has(at[2]))
        {
            return false;
        }
        at += 3;
    }
    return true;
}

void RemoveBlanks(std::string& text)
{
    std::erase_if(text, IsBlank);
}

} // namespace

bool OfficeAdapterBasedRegexURLValidator::ValidateURL(const std::string& address) const
{
    const std::size_t scheme = SchemeLength(address);
    if (scheme == 0)
    {
        return false;
    }
    const std::string_view text = WithoutEndOfSentence(std::string_view(address).substr(scheme));
    return !text.empty() && IsAddressText(text);
}

std::string OfficeAdapterBasedRegexURLValidator::SanitizeURL(std::string address)
{
    RemoveBlanks(address);
    if (address.empty() || StringUtils::StartsWithCaseInsensitive(address, "http://") ||
        StringUtils::StartsWithCaseInsensitive(address, "https://"))
    {
        return address;
    }
    return "https://" + address; // kept: in front of any other scheme too
}

std::string OfficeAdapterBasedRegexURLValidator::GetUrlPathAfterPattern(std::string address,
                                                                        const std::vector<std::string>& patterns) const
{
    RemoveBlanks(address);
    for (const std::string& pattern : patterns)
    {
        const std::size_t found = address.find(pattern);
        if (found != std::string::npos)
        {
            address.erase(0, found + pattern.size());
        }
    }
    return address;
}
