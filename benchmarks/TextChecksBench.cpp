#include <benchmarks/Job.h>

#include <UtilsLib/cloud/OfficeAdapterBasedRegexURLValidator.h>
#include <UtilsLib/events/Cast.h>
#include <UtilsLib/platform/Base64Codec.h>
#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/text/Base64.h>
#include <UtilsLib/text/EmailUtils.h>
#include <tests/cloud/UrlPattern.h>
#include <tests/text/EmailPattern.h>

#include <modp_b64.h>
#include <pcre2.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

using UtilsLib::Base64;
using UtilsLib::Cast;
using UtilsLib::EmailUtils;
using UtilsLib::Event;
using UtilsLib::EventDontShow;
using UtilsLib::HelperUtils;

namespace Bench
{
namespace
{

using Bytes = std::vector<unsigned char>;

// Base64. All make the same new string or vector.

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

Bytes SomeBytes(std::size_t size)
{
    Bytes data(size);
    for (std::size_t i = 0; i < size; ++i)
    {
        data[i] = static_cast<unsigned char>(i * 131 + i / 7);
    }
    return data;
}

std::string EncodeBy(const UtilsLib::Platform::Base64Codec& codec, const Bytes& data)
{
    std::string text((data.size() + 2) / 3 * 4, '\0');
    codec.encode(data.data(), data.size(), text.data());
    return text;
}

Bytes DecodeBy(const UtilsLib::Platform::Base64Codec& codec, const std::string& text)
{
    Bytes data(UtilsLib::Platform::MostBase64Bytes(text.size()));
    data.resize(codec.decode(text.data(), text.size(), data.data()));
    return data;
}

std::string EncodeByModp(const Bytes& data)
{
    std::string text(modp_b64_encode_len(data.size()), '\0');
    text.resize(modp_b64_encode(text.data(), reinterpret_cast<const char*>(data.data()), data.size()));
    return text;
}

Bytes DecodeByModp(const std::string& text)
{
    Bytes data(modp_b64_decode_len(text.size()));
    data.resize(modp_b64_decode(reinterpret_cast<char*>(data.data()), text.data(), text.size()));
    return data;
}

/// Collects three bytes, hands out four characters, one by one.
std::string EncodeAsUsual(const Bytes& data)
{
    std::string text;
    unsigned int bits = 0;
    unsigned int collected = 0;
    for (const unsigned char byte : data)
    {
        collected = collected << 8 | byte;
        for (bits += 8; bits >= 6;)
        {
            bits -= 6;
            text += kAlphabet[collected >> bits & 0x3F];
        }
    }
    if (bits > 0)
    {
        text += kAlphabet[collected << (6 - bits) & 0x3F];
    }
    while (text.size() % 4 != 0)
    {
        text += '=';
    }
    return text;
}

Bytes DecodeAsUsual(const std::string& text)
{
    static const std::string alphabet = kAlphabet;
    Bytes data;
    unsigned int bits = 0;
    unsigned int collected = 0;
    for (const char character : text)
    {
        if (std::isalnum(static_cast<unsigned char>(character)) == 0 && character != '+' && character != '/')
        {
            break;
        }
        collected = collected << 6 | static_cast<unsigned int>(alphabet.find(character));
        bits += 6;
        if (bits >= 8)
        {
            bits -= 8;
            data.push_back(static_cast<unsigned char>(collected >> bits));
        }
    }
    return data;
}

void AddBase64Jobs(std::size_t size)
{
    namespace Platform = UtilsLib::Platform;
    static std::vector<std::unique_ptr<Bytes>> kept;
    static std::vector<std::unique_ptr<std::string>> keptTexts;
    kept.push_back(std::make_unique<Bytes>(SomeBytes(size)));
    keptTexts.push_back(std::make_unique<std::string>(Base64::encode(*kept.back())));
    Bytes* const data = kept.back().get();
    std::string* const text = keptTexts.back().get();

    const std::string label = std::to_string(size) + " bytes";
    Job::Add("Base64 encode: " + label, {.leastOfBestOther = 1.0})
        .BytesAnOperation(static_cast<double>(size))
        .Ours(Calling([data] { return Base64::encode(Opaque(*data)); }))
        .Alternative("modp_b64", Calling([data] { return EncodeByModp(Opaque(*data)); }))
        .Alternative("scalar tables", Calling([data] { return EncodeBy(Platform::PortableBase64(), Opaque(*data)); }))
        .Alternative("character by character", Calling([data] { return EncodeAsUsual(Opaque(*data)); }))
        .Floor("copy of the result", Calling([text] { return std::string(Opaque(*text)); }));
    Job::Add("Base64 decode: " + label, {.leastOfBestOther = 1.0})
        .BytesAnOperation(static_cast<double>(size))
        .Ours(Calling([text] { return Base64::decode(Opaque(*text)); }))
        .Alternative("modp_b64", Calling([text] { return DecodeByModp(Opaque(*text)); }))
        .Alternative("scalar tables", Calling([text] { return DecodeBy(Platform::PortableBase64(), Opaque(*text)); }))
        .Alternative("character by character", Calling([text] { return DecodeAsUsual(Opaque(*text)); }))
        .Floor("copy of the result", Calling([data] { return Bytes(Opaque(*data)); }));
}

// Expressions

/// An expression compiled once, with its machine code.
class JitExpression
{
public:
    explicit JitExpression(const std::string& pattern)
    {
        int error = 0;
        PCRE2_SIZE offset = 0;
        m_code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                               PCRE2_ANCHORED | PCRE2_ENDANCHORED | PCRE2_DOLLAR_ENDONLY, &error, &offset, nullptr);
        pcre2_jit_compile(m_code, PCRE2_JIT_COMPLETE);
        m_match = pcre2_match_data_create_from_pattern(m_code, nullptr);
    }
    ~JitExpression()
    {
        pcre2_match_data_free(m_match);
        pcre2_code_free(m_code);
    }
    JitExpression(const JitExpression&) = delete;
    JitExpression& operator=(const JitExpression&) = delete;

    bool Matches(const std::string& text) const
    {
        return pcre2_match(m_code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0, 0, m_match, nullptr) > 0;
    }

private:
    pcre2_code* m_code;
    pcre2_match_data* m_match;
};

template <const char* pattern>
bool MatchesByJit(const std::string& text)
{
    static const JitExpression expression(pattern);
    return expression.Matches(text);
}

template <const char* pattern>
bool MatchesByStandard(const std::string& text)
{
    static const std::regex expression(pattern);
    return std::regex_match(text, expression);
}

// Web addresses

std::string g_url = "https://drive.corvane.example/mc/signon?x=%2F"; // 44 characters and one

enum : unsigned char
{
    kPlain = 1,
    kHex = 2,
    kMark = 4
};

const std::array<unsigned char, 256> kClasses = [] {
    std::array<unsigned char, 256> classes{};
    for (unsigned int c = 0; c < 128; ++c)
    {
        const char character = static_cast<char>(c);
        const bool letter = std::isalnum(static_cast<int>(c)) != 0;
        const bool plain = letter || (c != 0 && std::strchr("-()_.!~*';/?:@&=+$,", character) != nullptr);
        const bool mark = c != 0 && std::strchr(").!';/?:,", character) != nullptr;
        classes[c] = static_cast<unsigned char>((plain ? kPlain : 0) | (std::isxdigit(static_cast<int>(c)) ? kHex : 0) |
                                                (mark ? kMark : 0));
    }
    return classes;
}();

unsigned char ClassOf(char character)
{
    return kClasses[static_cast<unsigned char>(character)];
}

/// Knows one scheme only: the least that a check has to do for the address above.
__attribute__((noinline)) bool IsWebAddressByHand(const std::string& address)
{
    const char* at = address.data();
    const char* end = at + address.size();
    if (address.size() < 9 || std::memcmp(at, "https://", 8) != 0)
    {
        return false;
    }
    at += 8;
    if (end - at > 2 && (end[-1] == ' ' || end[-1] == '\t') && (ClassOf(end[-2]) & kMark) != 0)
    {
        end -= 2;
    }
    while (at != end)
    {
        if ((ClassOf(*at) & kPlain) != 0)
        {
            ++at;
        }
        else if (*at == '%' && end - at > 2 && (ClassOf(at[1]) & ClassOf(at[2]) & kHex) != 0)
        {
            at += 3;
        }
        else
        {
            return false;
        }
    }
    return true;
}

// E-mail addresses

std::string g_email = "first.last@accounts.corvane.example";

/// Knows plain names and domains only.
__attribute__((noinline)) bool IsEmailByHand(const std::string& address)
{
    if (address.empty() || address.size() > 255)
    {
        return false;
    }
    const auto isAtom = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_';
    };
    static const std::array<bool, 256> atoms = [&] {
        std::array<bool, 256> set{};
        for (int c = 0; c < 128; ++c)
        {
            set[static_cast<std::size_t>(c)] = isAtom(static_cast<char>(c));
        }
        return set;
    }();
    const std::size_t at = address.find('@');
    if (at == std::string::npos || at == 0)
    {
        return false;
    }
    char before = '.';
    int dots = 0;
    for (std::size_t i = 0; i < address.size(); before = address[i++])
    {
        if (i == at)
        {
            dots = 0;
            continue;
        }
        if (!atoms[static_cast<unsigned char>(address[i])])
        {
            return false;
        }
        if (address[i] == '.')
        {
            if (before == '.' || before == '@')
            {
                return false;
            }
            ++dots;
        }
    }
    return dots > 0 && before != '.';
}

// Events

const std::string_view kTypeTexts[] = {"eventtype_accesserror",
                                       "eventtype_connectionerror",
                                       "eventtype_accountslogonerror",
                                       "eventtype_muststopsyncerror",
                                       "eventtype_generalerror",
                                       "eventtype_bankcloudtokenerror",
                                       "eventtype_bankcloudunauthorised",
                                       "eventtype_dataserviceconnectionerror",
                                       "eventtype_drivelocaldatahasbeenbackedupbeforebeingoverwritten",
                                       "eventtype_drivedisconnectedduetoinactivity",
                                       "eventtype_invoicefinancedatasyncerror",
                                       "eventtype_lockstep",
                                       "eventtype_invoicefinancetransactionwritebackerror",
                                       "eventtype_accesscontrol",
                                       "eventtype_networksyncerror",
                                       "eventtype_paymentreminderssyncerror"};
std::string g_eventType = "EventType_InvoiceFinanceDataSyncError";

char LowerAscii(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

__attribute__((noinline)) std::ptrdiff_t TypeByLengthAndOneCharacter(std::string text)
{
    const auto found = std::find_if(std::begin(kTypeTexts), std::end(kTypeTexts), [&text](std::string_view name) {
        return name.size() == text.size() && name[10] == LowerAscii(text[10]) &&
               std::equal(name.begin(), name.end(), text.begin(), [](char a, char b) { return a == LowerAscii(b); });
    });
    return found - std::begin(kTypeTexts);
}

__attribute__((noinline)) std::ptrdiff_t TypeByStricmp(std::string text)
{
    const auto found = std::find_if(std::begin(kTypeTexts), std::end(kTypeTexts), [&text](std::string_view name) {
        return _stricmp(name.data(), text.c_str()) == 0;
    });
    return found - std::begin(kTypeTexts);
}

std::vector<Event> g_events = [] {
    std::vector<Event> events;
    for (int i = 0; i < 100; ++i)
    {
        events.push_back(
            {1, i % 15, i % 21, 1, "Drive " + std::to_string(i), "The drive cannot be reached at present."});
    }
    return events;
}();
std::vector<EventDontShow> g_hidden = {{1, 8, 2}, {1, 8, 14}, {1, 5, 10}, {1, 9, 15}, {1, 3, 3}};

bool IsHidden(const Event& event, const std::vector<EventDontShow>& hidden)
{
    for (const EventDontShow& kind : hidden)
    {
        if (kind.scope == event.scope && kind.zone == event.zone && kind.type == event.type)
        {
            return true;
        }
    }
    return false;
}

std::vector<Event> FilterByHand()
{
    std::vector<Event> shown;
    for (const Event& event : Opaque(g_events))
    {
        if (!IsHidden(event, Opaque(g_hidden)))
        {
            shown.push_back(event);
        }
    }
    return shown;
}

} // namespace

void AddTextChecksJobs()
{
    for (const std::size_t size : {3u, 16u, 48u, 256u, 4096u, 65536u, 1048576u})
    {
        AddBase64Jobs(size);
    }
    static const OfficeAdapterBasedRegexURLValidator validator;
    Job::Add("URL check: 45 characters", {.mostOfFloor = 1.5, .leastOfBestOther = 1.0})
        .Ours(Calling([] { return validator.ValidateURL(Opaque(g_url)); }))
        .Alternative("PCRE2 with JIT", Calling([] { return MatchesByJit<TestSupport::kUrlPattern>(Opaque(g_url)); }))
        .Alternative("std::regex", Calling([] { return MatchesByStandard<TestSupport::kUrlPattern>(Opaque(g_url)); }))
        .Floor("one pass by hand", Calling([] { return IsWebAddressByHand(Opaque(g_url)); }));
    Job::Add("e-mail check: 35 characters", {.leastOfBestOther = 1.0})
        .Ours(Calling([] { return EmailUtils::IsValidEmail(Opaque(g_email)); }))
        .Alternative("PCRE2 with JIT",
                     Calling([] { return MatchesByJit<TestSupport::kEmailPattern>(Opaque(g_email)); }))
        .Alternative("std::regex, compiled once",
                     Calling([] { return MatchesByStandard<TestSupport::kEmailPattern>(Opaque(g_email)); }))
        .Floor("one pass by hand, plain forms only", Calling([] { return IsEmailByHand(Opaque(g_email)); }));
    Job::Add("EventTypeFromString", {.mostOfFloor = 1.2, .leastOfBestOther = 1.0})
        .Ours(Calling([] { return Cast::EventTypeFromString(Opaque(g_eventType)); }))
        .Alternative("_stricmp in turn", Calling([] { return TypeByStricmp(Opaque(g_eventType)); }))
        .Floor("length and one character first",
               Calling([] { return TypeByLengthAndOneCharacter(Opaque(g_eventType)); }));
    Job::Add("FilterEvents: 100 events, 5 hidden kinds", {.mostOfFloor = 1.1})
        .Ours(Calling([] { return HelperUtils::FilterEvents(Opaque(g_events), Opaque(g_hidden)); }))
        .Floor("the same, ending at the first hit", Calling(&FilterByHand));
}

} // namespace Bench
