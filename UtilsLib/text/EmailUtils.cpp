#include <UtilsLib/text/EmailUtils.h>

#include <UtilsLib/platform/CharacterSet.h>

#include <string_view>

// What is accepted is defined by a regular expression (it stands in the tests), matched by hand in one pass: compiling
// the expression takes a hundred thousand times as long as the answer.

namespace UtilsLib
{

namespace
{

using Platform::CharacterSet;

constexpr std::size_t kLongest = 255;
constexpr CharacterSet kAtom = CharacterSet().Add("!#$%&'*+/=?^_`{|}~-").AddLettersAndDigits();
constexpr CharacterSet kLetterOrDigit = CharacterSet().AddLettersAndDigits();
constexpr CharacterSet kLabel = CharacterSet().Add("-").AddLettersAndDigits();
// Line ends and zero are allowed nowhere, blanks and tabs only behind a backslash.
constexpr CharacterSet kText = CharacterSet().Add(0x01, 0x08).Add(0x0B, 0x0C).Add(0x0E, 0x1F).Add(0x21, 0x7F);
constexpr CharacterSet kEscaped = CharacterSet().Add(0x01, 0x09).Add(0x0B, 0x0C).Add(0x0E, 0x7F);

/// Reads an address from its front. What a function did not find leaves it where it was or anywhere behind: a failure
/// ends the reading.
class Reader
{
public:
    explicit Reader(std::string_view text) : m_at(text.data()), m_end(text.data() + text.size())
    {
    }

    bool AtEnd() const
    {
        return m_at == m_end;
    }
    bool IsNext(char character) const
    {
        return m_at != m_end && *m_at == character;
    }
    bool Take(char character)
    {
        if (!IsNext(character))
        {
            return false;
        }
        ++m_at;
        return true;
    }
    /// As many characters of `set` as follow each other; false when there is none.
    bool TakeRun(const CharacterSet& set)
    {
        const char* const start = m_at;
        m_at = set.SkipIn(m_at, m_end);
        return m_at != start;
    }
    /// A label of a domain: hyphens neither at its front nor at its back.
    bool TakeLabel()
    {
        const char* const start = m_at;
        return TakeRun(kLabel) && *start != '-' && m_at[-1] != '-';
    }
    /// A text in quotes.
    bool TakeQuoted()
    {
        if (!Take('"'))
        {
            return false;
        }
        for (; m_at != m_end && *m_at != '"'; ++m_at)
        {
            const bool escaped = Take('\\');
            if (m_at == m_end || !(escaped ? kEscaped : kText).Has(*m_at))
            {
                return false;
            }
        }
        return Take('"');
    }
    /// A number from 0 to 255 without leading zeros.
    bool TakeOctet()
    {
        const char* const start = m_at;
        int value = 0;
        while (m_at != m_end && m_at - start < 3 && *m_at >= '0' && *m_at <= '9')
        {
            value = value * 10 + (*m_at++ - '0');
        }
        const bool leadingZero = m_at - start > 1 && *start == '0';
        return m_at != start && !leadingZero && value <= 255;
    }
    std::string_view Rest() const
    {
        return {m_at, static_cast<std::size_t>(m_end - m_at)};
    }

private:
    const char* m_at;
    const char* m_end;
};

bool TakeAtoms(Reader& reader)
{
    do
    {
        if (!reader.TakeRun(kAtom))
        {
            return false;
        }
    } while (reader.Take('.'));
    return true;
}

bool IsDomain(Reader reader)
{
    int labels = 0;
    do
    {
        if (!reader.TakeLabel())
        {
            return false;
        }
        ++labels;
    } while (reader.Take('.'));
    return labels > 1 && reader.AtEnd();
}

bool IsOctet(std::string_view text)
{
    Reader reader(text);
    return reader.TakeOctet() && reader.AtEnd();
}

/// One character or more, blanks and tabs only right behind a backslash. A backslash is also a character like any
/// other, so any backslash may be the one that allows the blank.
bool IsLiteralText(std::string_view text)
{
    bool escaped = false;
    for (const char character : text)
    {
        if (!kText.Has(character) && !(escaped && kEscaped.Has(character)))
        {
            return false;
        }
        escaped = character == '\\';
    }
    return !text.empty();
}

/// "tag:text"; a hyphen may begin the tag, not end it.
bool IsTagged(std::string_view text)
{
    Reader reader(text);
    return reader.TakeRun(kLabel) && kLetterOrDigit.Has(*(reader.Rest().data() - 1)) && reader.Take(':') &&
           IsLiteralText(reader.Rest());
}

/// kept: three numbers of an IPv4 address are asked for before a tag too
bool IsAddressLiteral(Reader reader)
{
    if (!reader.Take('['))
    {
        return false;
    }
    for (int octet = 0; octet < 3; ++octet)
    {
        if (!reader.TakeOctet() || !reader.Take('.'))
        {
            return false;
        }
    }
    std::string_view rest = reader.Rest();
    if (!rest.ends_with(']'))
    {
        return false;
    }
    rest.remove_suffix(1);
    return IsOctet(rest) || IsTagged(rest);
}

} // namespace

bool EmailUtils::IsValidEmail(const std::string& address)
{
    if (address.size() > kLongest)
    {
        return false;
    }
    Reader reader(address);
    const bool local = reader.IsNext('"') ? reader.TakeQuoted() : TakeAtoms(reader);
    return local && reader.Take('@') && (reader.IsNext('[') ? IsAddressLiteral(reader) : IsDomain(reader));
}

} // namespace UtilsLib
