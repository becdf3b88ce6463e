#include <UtilsLib/text/StringUtils.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/LowerCase.h>

#include <shlwapi.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

namespace UtilsLib
{

namespace
{

constexpr unsigned int kAsciiEnd = 0x80;

/// Whether every character is ASCII and none is zero.
template <typename Character>
bool IsPlainAscii(const std::basic_string<Character>& text)
{
    using Bits = std::make_unsigned_t<Character>;
    // Without a branch a character, so that the loop takes several at a time. Zero less one has all bits.
    Bits bits = 0;
    for (const Character character : text)
    {
        bits |= static_cast<Bits>(character | (character - 1));
    }
    return bits < kAsciiEnd;
}

/// Whether the ANSI code page and UTF-16 agree on ASCII in both directions. Every page of Windows that can be the ANSI
/// one does (also those whose 0x5C is drawn as a currency sign), but a page can be added.
bool AsciiIsUnicode()
{
    char narrow[kAsciiEnd];
    wchar_t wide[kAsciiEnd];
    for (unsigned int i = 0; i < kAsciiEnd; ++i)
    {
        narrow[i] = static_cast<char>(i);
        wide[i] = static_cast<wchar_t>(i);
    }
    wchar_t widened[kAsciiEnd] = {};
    char narrowed[kAsciiEnd] = {};
    const int size = static_cast<int>(kAsciiEnd);
    return MultiByteToWideChar(CP_ACP, 0, narrow, size, widened, size) == size &&
           WideCharToMultiByte(CP_ACP, 0, wide, size, narrowed, size, nullptr, nullptr) == size &&
           std::equal(wide, wide + size, widened) && std::equal(narrow, narrow + size, narrowed);
}

/// Once: the ANSI code page does not change while a process runs.
bool AsciiNeedsNoConversion()
{
    static const bool needsNone = AsciiIsUnicode();
    return needsNone;
}

/// std::stoi with the texts of its errors, which differ from compiler to compiler, made the same everywhere.
int ToInt(const std::string& text)
{
    const int callersErrno = std::exchange(errno, 0);
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    const bool outOfRange =
        errno == ERANGE || value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max();
    errno = callersErrno;
    if (end == text.c_str())
    {
        throw std::invalid_argument("invalid stoi argument");
    }
    if (outOfRange)
    {
        throw std::out_of_range("stoi argument out of range");
    }
    return static_cast<int>(value);
}

} // namespace

StringUtils::StringUtils() = default;

StringUtils::~StringUtils() = default;

StringUtils& StringUtils::operator=(const StringUtils&) = default;

void StringUtils::Clean(std::string& s)
{
    s.resize(std::min(s.find('\0'), s.size()));
}

void StringUtils::ToLower(std::string& s)
{
    s = Platform::LowerCase(std::move(s));
}

void StringUtils::Canonicalize(std::string& path)
{
    if (path.empty())
    {
        return;
    }
    // On a code page of double bytes the result may outgrow the buffer. It then comes cut, as a success, and without a
    // terminator of its own.
    char buffer[MAX_PATH];
    std::memset(buffer, 'x', sizeof(buffer));
    if (PathCanonicalizeA(buffer, path.c_str()) && std::memchr(buffer, '\0', sizeof(buffer)) != nullptr &&
        buffer[0] != '\0')
    {
        path = buffer;
    }
}

void StringUtils::TrimStart(std::string& s, const std::string& chars)
{
    s.erase(0, s.find_first_not_of(chars));
}

void StringUtils::TrimEnd(std::string& s, const std::string& chars)
{
    s.resize(s.find_last_not_of(chars) + 1); // none is -1
}

std::wstring StringUtils::ToUnicode(const std::string& s)
{
    if (IsPlainAscii(s) && AsciiNeedsNoConversion())
    {
        return {s.data(), s.data() + s.size()};
    }
    const int size = static_cast<int>(s.size() + 1);
    std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, s.c_str(), size, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_ACP, 0, s.c_str(), size, wide.data(), static_cast<int>(wide.size()));
    wide.resize(std::wcslen(wide.c_str()));
    return wide;
}

std::string StringUtils::FromUnicode(const std::wstring& s)
{
    if (IsPlainAscii(s) && AsciiNeedsNoConversion())
    {
        return {s.data(), s.data() + s.size()};
    }
    const int size = static_cast<int>(s.size() + 1);
    std::string narrow(
        static_cast<std::size_t>(WideCharToMultiByte(CP_ACP, 0, s.c_str(), size, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(CP_ACP, 0, s.c_str(), size, narrow.data(), static_cast<int>(narrow.size()), nullptr, nullptr);
    Clean(narrow);
    return narrow;
}

std::vector<std::string> StringUtils::Split(const std::string& s, char delimiter)
{
    std::vector<std::string> pieces;
    if (s.empty())
    {
        return pieces;
    }
    // Counted first: one allocation for the vector. Behind a delimiter at the end there is no piece.
    const std::size_t delimiters = static_cast<std::size_t>(std::count(s.begin(), s.end(), delimiter));
    pieces.reserve(delimiters + (s.back() == delimiter ? 0 : 1));
    std::size_t start = 0;
    while (start < s.size())
    {
        const std::size_t end = std::min(s.find(delimiter, start), s.size());
        pieces.emplace_back(s, start, end - start);
        start = end + 1;
    }
    return pieces;
}

void StringUtils::SplitVersion(const std::string& version, unsigned int& major, unsigned int& minor,
                               unsigned int& build, unsigned int& revision)
{
    unsigned int* const numbers[] = {&major, &minor, &build, &revision};
    for (unsigned int* number : numbers)
    {
        *number = 0;
    }
    const std::vector<std::string> pieces = Split(version, '.');
    for (std::size_t i = 0; i < std::min(pieces.size(), std::size(numbers)); ++i)
    {
        *numbers[i] = static_cast<unsigned int>(ToInt(pieces[i]));
    }
}

bool StringUtils::StartsWithCaseInsensitive(std::string text, std::string prefix)
{
    return prefix.size() <= text.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(),
                      [](char left, char right) { return Platform::LowerCase(left) == Platform::LowerCase(right); });
}

bool StringUtils::DoesPathContainArchives(std::string path)
{
    std::size_t count = 0;
    std::string_view nextToLast;
    std::string_view last;
    std::size_t start = 0;
    while ((start = path.find_first_not_of('\\', start)) != std::string::npos)
    {
        const std::size_t end = std::min(path.find('\\', start), path.size());
        nextToLast = last;
        last = std::string_view(path).substr(start, end - start);
        ++count;
        start = end;
    }
    return count > 2 && nextToLast == "archives";
}

std::string StringUtils::ToString(int value)
{
    return std::to_string(value);
}

} // namespace UtilsLib
