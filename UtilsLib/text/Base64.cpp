#include <UtilsLib/text/Base64.h>

#include <UtilsLib/platform/Base64Codec.h>
#include <UtilsLib/platform/CharacterSet.h>

#include <stdexcept>

namespace UtilsLib
{

namespace
{

constexpr Platform::CharacterSet kAlphabet = Platform::CharacterSet().Add("+/").AddLettersAndDigits();

std::size_t EncodedSize(unsigned int length)
{
    const unsigned long long size = (length + 2ull) / 3 * 4; // may pass 32 bits
    if (size > std::string().max_size())
    {
        throw std::length_error("Base64::encode");
    }
    return static_cast<std::size_t>(size);
}

} // namespace

bool Base64::is_base64(unsigned char c)
{
    return kAlphabet.Has(static_cast<char>(c));
}

std::string Base64::encode(const unsigned char* data, unsigned int length)
{
    std::string text(EncodedSize(length), '\0');
    Platform::FastestBase64().encode(data, length, text.data());
    return text;
}

std::string Base64::encode(const std::vector<unsigned char>& data)
{
    return encode(data.data(), static_cast<unsigned int>(data.size()));
}

std::vector<unsigned char> Base64::decode(const char* text, unsigned int length)
{
    std::vector<unsigned char> data(Platform::MostBase64Bytes(length));
    data.resize(Platform::FastestBase64().decode(text, length, data.data()));
    return data;
}

std::vector<unsigned char> Base64::decode(const std::string& text)
{
    return decode(text.data(), static_cast<unsigned int>(text.size()));
}

} // namespace UtilsLib
