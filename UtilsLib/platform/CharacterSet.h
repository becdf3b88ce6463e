#pragma once

#include <array>
#include <string_view>

namespace UtilsLib::Platform
{

/// A set of byte values, filled at compile time; asking is one look into a table.
class CharacterSet
{
public:
    constexpr CharacterSet& Add(std::string_view characters)
    {
        for (const char character : characters)
        {
            m_has[static_cast<unsigned char>(character)] = true;
        }
        return *this;
    }
    /// From `first` to `last`, both of them in it.
    constexpr CharacterSet& Add(unsigned char first, unsigned char last)
    {
        for (unsigned int byte = first; byte <= last; ++byte)
        {
            m_has[byte] = true;
        }
        return *this;
    }
    /// The ASCII letters and digits.
    constexpr CharacterSet& AddLettersAndDigits()
    {
        return Add('a', 'z').Add('A', 'Z').Add('0', '9');
    }

    constexpr bool Has(char character) const
    {
        return m_has[static_cast<unsigned char>(character)];
    }
    /// The first place from `at` on whose character is not in the set; `end` when all are.
    constexpr const char* SkipIn(const char* at, const char* end) const
    {
        while (at != end && Has(*at))
        {
            ++at;
        }
        return at;
    }

private:
    std::array<bool, 256> m_has{};
};

} // namespace UtilsLib::Platform
