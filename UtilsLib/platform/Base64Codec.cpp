#include <UtilsLib/platform/Base64Codec.h>

#include <UtilsLib/platform/Processor.h>

#include <array>

namespace UtilsLib::Platform
{

namespace
{

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kNone = 0xFF; // of a character that is not in the alphabet

constexpr std::array<unsigned char, 256> kValues = [] {
    std::array<unsigned char, 256> values{};
    values.fill(kNone);
    for (unsigned char value = 0; value < 64; ++value)
    {
        values[static_cast<unsigned char>(kAlphabet[value])] = value;
    }
    return values;
}();

unsigned int ValueOf(char character)
{
    return kValues[static_cast<unsigned char>(character)];
}

/// One or two bytes at the end.
void EncodeRest(const unsigned char* data, std::size_t size, char* text)
{
    const unsigned int second = size == 2 ? data[1] : 0;
    text[0] = kAlphabet[data[0] >> 2];
    text[1] = kAlphabet[(data[0] << 4 | second >> 4) & 0x3F];
    text[2] = size == 2 ? kAlphabet[second << 2 & 0x3F] : '=';
    text[3] = '=';
}

void Encode(const unsigned char* data, std::size_t size, char* text)
{
    for (; size >= 3; size -= 3, data += 3, text += 4)
    {
        const unsigned int group = static_cast<unsigned int>(data[0] << 16 | data[1] << 8 | data[2]);
        text[0] = kAlphabet[group >> 18];
        text[1] = kAlphabet[group >> 12 & 0x3F];
        text[2] = kAlphabet[group >> 6 & 0x3F];
        text[3] = kAlphabet[group & 0x3F];
    }
    if (size > 0)
    {
        EncodeRest(data, size, text);
    }
}

/// The characters before the first one that is not of the alphabet: less than four. A single one is no byte.
std::size_t DecodeRest(const char* text, std::size_t size, unsigned char* data)
{
    unsigned int values[3] = {};
    std::size_t count = 0;
    while (count < size && ValueOf(text[count]) != kNone)
    {
        values[count] = ValueOf(text[count]);
        ++count;
    }
    if (count >= 2)
    {
        data[0] = static_cast<unsigned char>(values[0] << 2 | values[1] >> 4);
    }
    if (count == 3)
    {
        data[1] = static_cast<unsigned char>(values[1] << 4 | values[2] >> 2);
    }
    return count == 0 ? 0 : count - 1;
}

std::size_t Decode(const char* text, std::size_t size, unsigned char* data)
{
    const unsigned char* const start = data;
    for (; size >= 4; size -= 4, text += 4, data += 3)
    {
        const unsigned int first = ValueOf(text[0]);
        const unsigned int second = ValueOf(text[1]);
        const unsigned int third = ValueOf(text[2]);
        const unsigned int fourth = ValueOf(text[3]);
        if ((first | second | third | fourth) == kNone)
        {
            size = 3; // the fourth is the first that can be wrong behind three good ones
            break;
        }
        data[0] = static_cast<unsigned char>(first << 2 | second >> 4);
        data[1] = static_cast<unsigned char>(second << 4 | third >> 2);
        data[2] = static_cast<unsigned char>(third << 6 | fourth);
    }
    return static_cast<std::size_t>(data - start) + DecodeRest(text, size, data);
}

const Base64Codec& ChooseBase64()
{
    if (ProcessorHasAvx2())
    {
        return Avx2Base64();
    }
    return ProcessorHasSsse3() ? Ssse3Base64() : PortableBase64();
}

} // namespace

const Base64Codec& PortableBase64()
{
    static constexpr Base64Codec codec = {&Encode, &Decode};
    return codec;
}

const Base64Codec& FastestBase64()
{
    static const Base64Codec& codec = ChooseBase64();
    return codec;
}

} // namespace UtilsLib::Platform
