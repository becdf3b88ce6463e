#pragma once

#include <UtilsLib/Export.h>

#include <string>
#include <vector>

namespace UtilsLib
{

/// Operations on narrow strings: bytes of the process's ANSI code page, any bytes and any length.
///
/// Some change their argument in place, others return a new string: the signature tells. Letters are lower-cased byte
/// by byte with the C library's `tolower`, so by the locale that the host has set at that moment. No state; any thread.
class UTILSLIB_API StringUtils
{
public:
    StringUtils();
    ~StringUtils();
    /// Nothing to copy.
    StringUtils(const StringUtils&) = default;
    /// Nothing to copy.
    StringUtils& operator=(const StringUtils& other);

    /// Cuts `s` at its first zero byte.
    static void Clean(std::string& s);
    /// Lower-cases every byte.
    static void ToLower(std::string& s);
    /// Resolves "." and ".." by the text alone, as PathCanonicalize does: "c:\a\..\b" becomes "c:\b", "a\..\b" becomes
    /// "\b". Nothing is changed in an empty path or in one of more than 259 bytes.
    static void Canonicalize(std::string& path);
    /// Removes from the front what occurs in `chars`, up to the first character that does not.
    static void TrimStart(std::string& s, const std::string& chars);
    /// The same from the back.
    static void TrimEnd(std::string& s, const std::string& chars);

    /// From the ANSI code page to UTF-16, up to the first zero byte. Invalid bytes become what the system puts there.
    static std::wstring ToUnicode(const std::string& s);
    /// From UTF-16 to the ANSI code page, up to the first zero; "?" or a similar letter for what the page lacks.
    static std::string FromUnicode(const std::wstring& s);
    /// Cuts `s` at every `delimiter`, as reading lines does: Split("a..b", '.') is "a", "", "b"; Split("a.b.", '.') is
    /// "a", "b"; Split(".", '.') is ""; Split("", '.') is no piece at all.
    static std::vector<std::string> Split(const std::string& s, char delimiter);
    /// The first four numbers of a dotted version; those that are missing are 0: "32.1" is 32, 1, 0, 0. Each piece is
    /// read as std::stoi does: blanks before it and anything behind its digits are skipped, "-1" is 4294967295.
    ///
    /// Throws std::invalid_argument("invalid stoi argument") at a piece without a number and
    /// std::out_of_range("stoi argument out of range") at one beyond an int; the numbers before it are set then, the
    /// others 0.
    static void SplitVersion(const std::string& version, unsigned int& major, unsigned int& minor, unsigned int& build,
                             unsigned int& revision);
    /// True when `text` begins with `prefix`, in any letter case; every text begins with an empty prefix.
    static bool StartsWithCaseInsensitive(std::string text, std::string prefix);
    /// True when the next to last of more than two components is exactly "archives": "C:\data\archives\file.zip" has
    /// it, "archives\file.zip" and "C:\data\Archives\file.zip" do not. Empty components do not count.
    static bool DoesPathContainArchives(std::string path);
    /// Decimal, "-" before negative numbers, no grouping.
    static std::string ToString(int value);
};

} // namespace UtilsLib
