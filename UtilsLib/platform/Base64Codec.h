#pragma once

#include <cstddef>

namespace UtilsLib::Platform
{

/// One way of turning bytes into Base64 and back. All ways give the same results.
struct Base64Codec
{
    /// Writes 4 characters for every 3 bytes, the last ones padded with "=".
    void (*encode)(const unsigned char* data, std::size_t size, char* text);
    /// Writes the bytes of the characters up to the first one that is not of the alphabet, and returns their number.
    /// `data` has room for MostBase64Bytes(size); what is beyond the result may be overwritten too.
    std::size_t (*decode)(const char* text, std::size_t size, unsigned char* data);
};

/// How many bytes `size` characters can stand for.
constexpr std::size_t MostBase64Bytes(std::size_t size)
{
    return size / 4 * 3 + size % 4 * 3 / 4;
}

/// For any processor.
const Base64Codec& PortableBase64();
/// For processors with SSSE3; nothing may be called without it.
const Base64Codec& Ssse3Base64();
/// For processors with AVX2; nothing may be called without it.
const Base64Codec& Avx2Base64();
/// The fastest one that this processor can run.
const Base64Codec& FastestBase64();

} // namespace UtilsLib::Platform
