#include <UtilsLib/text/Base64.h>

#include <UtilsLib/platform/Base64Codec.h>
#include <UtilsLib/platform/CharacterSet.h>

#include <algorithm>
#include <stdexcept>

namespace UtilsLib
{

namespace
{

// A result is made from parts that were coded on the stack: made at its whole size it would be filled with zeros first,
// which takes as long as the coding itself. A short one is a single part.
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

std::string EncodeShort(const unsigned char* data, unsigned int length)
{
    char text[kShortCharacters];
    CodecFor(length).encode(data, length, text);
    return std::string(text, EncodedSize(length));
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

std::vector<unsigned char> DecodeShort(const char* text, unsigned int length)
{
    unsigned char data[kShortBytes];
    return std::vector<unsigned char>(data, data + CodecFor(length).decode(text, length, data));
}

std::vector<unsigned char> DecodeByParts(const char* text, unsigned int length)
{
    std::vector<unsigned char> data;
    unsigned char part[kPartBytes];
    std::size_t decoded = kPartBytes;
    // A part that is not full is the last one: the text ended in it.
    while (length > 0 && decoded == kPartBytes)
    {
        const unsigned int size = std::min(length, kPartCharacters);
        decoded = CodecFor(size).decode(text, size, part);
        if (data.empty() && decoded == kPartBytes)
        {
            data.reserve(Platform::MostBase64Bytes(length)); // not for a text that ends at once
        }
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
    return length > kShortBytes ? EncodeByParts(data, length) : EncodeShort(data, length);
}

std::string Base64::encode(const std::vector<unsigned char>& data)
{
    return encode(data.data(), static_cast<unsigned int>(data.size()));
}

std::vector<unsigned char> Base64::decode(const char* text, unsigned int length)
{
    return length > kShortCharacters ? DecodeByParts(text, length) : DecodeShort(text, length);
}

std::vector<unsigned char> Base64::decode(const std::string& text)
{
    return decode(text.data(), static_cast<unsigned int>(text.size()));
}

} // namespace UtilsLib
