#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/cloud/IURLValidator.h>

#include <string>
#include <vector>

/// The suite's rules for web addresses: one regular expression and plain text rules. No state; any thread; texts of any
/// length and any bytes.
class UTILSLIB_API OfficeAdapterBasedRegexURLValidator : public IURLValidator
{
public:
    /// True when the whole address matches, letter case as written,
    ///
    ///     ^((((https?|ftps?|gopher|telnet|nntp)://)|(mailto:|news:))
    ///     (%[0-9A-Fa-f]{2}|[-()_.!~*';/?:@&=+$,A-Za-z0-9])+)([).!';/?:,][[:blank:]])?$
    ///
    /// So an address that was copied out of a sentence with its last punctuation mark and one blank (space or tab)
    /// behind it is accepted; "#", brackets, braces, backslashes and letters beyond ASCII are not. The time is linear
    /// in the length.
    bool ValidateURL(const std::string& address) const override;
    /// The address without its spaces and tabs, with "https://" in front unless it begins with "http://" or
    /// "https://" in any letter case. Empty when nothing is left. No other scheme is known here:
    /// "ftp://host" becomes "https://ftp://host".
    std::string SanitizeURL(std::string address) override;
    /// The address without its spaces and tabs, cut behind the first occurrence of each pattern in turn; a pattern
    /// searches in what the earlier ones left, and changes nothing when it does not occur. Letter case counts.
    /// "https://host/mc/x/y" behind "/mc/" and "x/" is "y".
    std::string GetUrlPathAfterPattern(std::string address, const std::vector<std::string>& patterns) const override;
};
