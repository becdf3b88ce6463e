#include <UtilsLib/text/Base64.h>

#include <UtilsLib/platform/Base64Codec.h>
#include <UtilsLib/platform/CharacterSet.h>

#include <algorithm>
#include <stdexcept>

namespace UtilsLib
{

namespace
{

// A long result is made part by part and appended: made at its whole size it would be filled with zeros first, which
// takes as long as the coding itself. For a short one that costs less than the detour.
constexpr unsigned int kShortBytes = 192;
constexpr unsigned int kShortCharacters = kShortBytes / 3 * 4;
constexpr unsigned int kPartBytes = 6144;
constexpr unsigned int kPartCharacters = kPartBytes / 3 * 4;
constexpr unsigned int kVector = 16; // no vector is filled by less

const Platform::Base64Codec& CodecFor(unsigned int size)
{
    return size < kVector ? Platform::PortableBase64() : Platform::FastestBase64();
}

constexpr Platform::CharacterSet kAlphabet = Platform::CharacterSet().Add("+/").AddLettersAndDigits();

std::size_t EncodedSize(unsigned int length)
{
    if (length > std::string().max_size() / 4 * 3)
    {
        throw std::length_error("Base64::encode");
    }
    return (length + 2) / 3 * 4;
}

std::string EncodeByParts(const unsigned char* data, unsigned int length)
{
    std::string text;
    text.reserve(EncodedSize(length));
    char part[kPartCharacters];
    while (length > 0)
    {
        const unsigned int size = std::min(length, kPartBytes);
        CodecFor(size).encode(data, size, part);
        text.append(part, EncodedSize(size));
        data += size;
        length -= size;
    }
    return text;
}

std::vector<unsigned char> DecodeByParts(const char* text, unsigned int length)
{
    std::vector<unsigned char> data;
    data.reserve(Platform::MostBase64Bytes(length));
    unsigned char part[kPartBytes];
    std::size_t decoded = kPartBytes;
    // A part that is not full is the last one: the text ended in it.
    while (length > 0 && decoded == kPartBytes)
    {
        const unsigned int size = std::min(length, kPartCharacters);
        decoded = CodecFor(size).decode(text, size, part);
        data.insert(data.end(), part, part + decoded);
        text += size;
        length -= size;
    }
    return data;
}

} // namespace

bool Base64::is_base64(unsigned char c)
{
    return kAlphabet.Has(static_cast<char>(c));
}

std::string Base64::encode(const unsigned char* data, unsigned int length)
{
    if (length > kShortBytes)
    {
        return EncodeByParts(data, length);
    }
    std::string text(EncodedSize(length), '\0');
    CodecFor(length).encode(data, length, text.data());
    return text;
}

std::string Base64::encode(const std::vector<unsigned char>& data)
{
    return encode(data.data(), static_cast<unsigned int>(data.size()));
}

std::vector<unsigned char> Base64::decode(const char* text, unsigned int length)
{
    if (length > kShortCharacters)
    {
        return DecodeByParts(text, length);
    }
    std::vector<unsigned char> data(Platform::MostBase64Bytes(length));
    data.resize(CodecFor(length).decode(text, length, data.data()));
    return data;
}

std::vector<unsigned char> Base64::decode(const std::string& text)
{
    return decode(text.data(), static_cast<unsigned int>(text.size()));
}

} // namespace UtilsLib
