// Base64 by vectors of 16 and 32 bytes. Each group of 3 bytes stands in 4 bytes of a vector; all groups of a vector are
// handled at once, without tables in memory. The ends, which do not fill a vector, are left to the next smaller way.
#include <UtilsLib/platform/Base64Codec.h>
#include <UtilsLib/platform/Processor.h>

#include <immintrin.h>

namespace UtilsLib::Platform
{

namespace
{

// A character is its 6-bit value plus an offset that depends on the kind of character only:
// capital letters 0 to 25, small letters 26 to 51, digits 52 to 61, "+" 62 and "/" 63.
constexpr char kOffsetOfCapital = 'A';
constexpr char kOffsetOfSmall = 'a' - 26;
constexpr char kOffsetOfDigit = '0' - 52;
constexpr char kOffsetOfPlus = '+' - 62;
constexpr char kOffsetOfSlash = '/' - 63;

/// Offsets by the index that `Translate` makes of a value.
#define UTILSLIB_OFFSETS_BY_VALUE                                                                                      \
    kOffsetOfCapital, kOffsetOfSmall, kOffsetOfDigit, kOffsetOfDigit, kOffsetOfDigit, kOffsetOfDigit, kOffsetOfDigit,  \
        kOffsetOfDigit, kOffsetOfDigit, kOffsetOfDigit, kOffsetOfDigit, kOffsetOfDigit, kOffsetOfPlus, kOffsetOfSlash, \
        0, 0
/// Offsets by a character's upper four bits; "/", which shares them with "+", is counted one lower.
#define UTILSLIB_OFFSETS_BY_CHARACTER                                                                                  \
    0, -kOffsetOfSlash, -kOffsetOfPlus, -kOffsetOfDigit, -kOffsetOfCapital, -kOffsetOfCapital, -kOffsetOfSmall,        \
        -kOffsetOfSmall, 0, 0, 0, 0, 0, 0, 0, 0
/// The reasons why no character with these lower four bits is of the alphabet ...
#define UTILSLIB_REFUSED_BY_LOWER                                                                                      \
    0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A
/// ... and those that count with these upper four: the two have none in common for a character of the alphabet.
#define UTILSLIB_REFUSED_BY_UPPER                                                                                      \
    0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10

/// Spreads the 12 bytes at the front over 16: the middle byte of a group is needed twice.
#define UTILSLIB_SPREAD 1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10
/// Gathers the 12 bytes of four groups at the front.
#define UTILSLIB_GATHER 2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1

/// The four 6-bit values of each group, one a byte. Multiplying shifts each of the 16-bit halves by its own count.
UTILSLIB_USES_PROCESSOR("ssse3") inline __m128i Unpack(__m128i groups)
{
    const __m128i spread = _mm_shuffle_epi8(groups, _mm_setr_epi8(UTILSLIB_SPREAD));
    const __m128i odd = _mm_mulhi_epu16(_mm_and_si128(spread, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
    const __m128i even = _mm_mullo_epi16(_mm_and_si128(spread, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
    return _mm_or_si128(odd, even);
}

UTILSLIB_USES_PROCESSOR("avx2") inline __m256i Unpack(__m256i groups)
{
    const __m256i spread = _mm256_shuffle_epi8(groups, _mm256_setr_epi8(UTILSLIB_SPREAD, UTILSLIB_SPREAD));
    const __m256i odd =
        _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i even =
        _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(odd, even);
}

/// Values to characters. The index of an offset: 0 for capitals, 1 for small letters, 2 to 11 for digits, 12 and 13.
UTILSLIB_USES_PROCESSOR("ssse3") inline __m128i Translate(__m128i values)
{
    const __m128i beyondCapitals = _mm_cmpgt_epi8(values, _mm_set1_epi8(25));
    const __m128i index = _mm_sub_epi8(_mm_subs_epu8(values, _mm_set1_epi8(51)), beyondCapitals);
    return _mm_add_epi8(values, _mm_shuffle_epi8(_mm_setr_epi8(UTILSLIB_OFFSETS_BY_VALUE), index));
}

UTILSLIB_USES_PROCESSOR("avx2") inline __m256i Translate(__m256i values)
{
    const __m256i offsets = _mm256_setr_epi8(UTILSLIB_OFFSETS_BY_VALUE, UTILSLIB_OFFSETS_BY_VALUE);
    const __m256i beyondCapitals = _mm256_cmpgt_epi8(values, _mm256_set1_epi8(25));
    const __m256i index = _mm256_sub_epi8(_mm256_subs_epu8(values, _mm256_set1_epi8(51)), beyondCapitals);
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, index));
}

/// Characters to values; false when one of them is not of the alphabet. The constant '/' (0x2F) is also a mask: it
/// keeps the four bits of an index and clears the top one, for which a shuffle would give 0.
UTILSLIB_USES_PROCESSOR("ssse3") inline bool Value(__m128i characters, __m128i& values)
{
    const __m128i slash = _mm_set1_epi8('/');
    const __m128i upper = _mm_and_si128(_mm_srli_epi32(characters, 4), slash);
    const __m128i refused =
        _mm_and_si128(_mm_shuffle_epi8(_mm_setr_epi8(UTILSLIB_REFUSED_BY_LOWER), _mm_and_si128(characters, slash)),
                      _mm_shuffle_epi8(_mm_setr_epi8(UTILSLIB_REFUSED_BY_UPPER), upper));
    const __m128i index = _mm_add_epi8(upper, _mm_cmpeq_epi8(characters, slash));
    values = _mm_add_epi8(characters, _mm_shuffle_epi8(_mm_setr_epi8(UTILSLIB_OFFSETS_BY_CHARACTER), index));
    return _mm_movemask_epi8(_mm_cmpgt_epi8(refused, _mm_setzero_si128())) == 0;
}

UTILSLIB_USES_PROCESSOR("avx2") inline bool Value(__m256i characters, __m256i& values)
{
    const __m256i slash = _mm256_set1_epi8('/');
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi32(characters, 4), slash);
    const __m256i byLower = _mm256_shuffle_epi8(_mm256_setr_epi8(UTILSLIB_REFUSED_BY_LOWER, UTILSLIB_REFUSED_BY_LOWER),
                                                _mm256_and_si256(characters, slash));
    const __m256i byUpper =
        _mm256_shuffle_epi8(_mm256_setr_epi8(UTILSLIB_REFUSED_BY_UPPER, UTILSLIB_REFUSED_BY_UPPER), upper);
    const __m256i index = _mm256_add_epi8(upper, _mm256_cmpeq_epi8(characters, slash));
    values = _mm256_add_epi8(
        characters,
        _mm256_shuffle_epi8(_mm256_setr_epi8(UTILSLIB_OFFSETS_BY_CHARACTER, UTILSLIB_OFFSETS_BY_CHARACTER), index));
    return _mm256_testz_si256(byLower, byUpper) != 0;
}

/// Four values of 6 bits to three bytes: first to pairs of 12 bits, then to groups of 24.
UTILSLIB_USES_PROCESSOR("ssse3") inline __m128i Pack(__m128i values)
{
    const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
    const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
    return _mm_shuffle_epi8(groups, _mm_setr_epi8(UTILSLIB_GATHER));
}

UTILSLIB_USES_PROCESSOR("avx2") inline __m256i Pack(__m256i values)
{
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i halves = _mm256_shuffle_epi8(groups, _mm256_setr_epi8(UTILSLIB_GATHER, UTILSLIB_GATHER));
    return _mm256_permutevar8x32_epi32(halves, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

UTILSLIB_USES_PROCESSOR("ssse3") void EncodeSsse3(const unsigned char* data, std::size_t size, char* text)
{
    // 16 bytes are read for 12.
    for (; size >= 16; size -= 12, data += 12, text += 16)
    {
        const __m128i groups = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(text), Translate(Unpack(groups)));
    }
    PortableBase64().encode(data, size, text);
}

UTILSLIB_USES_PROCESSOR("avx2") void EncodeAvx2(const unsigned char* data, std::size_t size, char* text)
{
    // 28 bytes are read for 24, 12 for each half.
    for (; size >= 28; size -= 24, data += 24, text += 32)
    {
        const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
        const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 12));
        const __m256i groups = _mm256_inserti128_si256(_mm256_castsi128_si256(front), back, 1);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(text), Translate(Unpack(groups)));
    }
    EncodeSsse3(data, size, text);
}

UTILSLIB_USES_PROCESSOR("ssse3") std::size_t DecodeSsse3(const char* text, std::size_t size, unsigned char* data)
{
    const unsigned char* const start = data;
    // 16 bytes are written for 12: the characters behind must have room for the others.
    for (__m128i values; size >= 16 + 8; size -= 16, text += 16, data += 12)
    {
        if (!Value(_mm_loadu_si128(reinterpret_cast<const __m128i*>(text)), values))
        {
            break;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(data), Pack(values));
    }
    return static_cast<std::size_t>(data - start) + PortableBase64().decode(text, size, data);
}

UTILSLIB_USES_PROCESSOR("avx2") std::size_t DecodeAvx2(const char* text, std::size_t size, unsigned char* data)
{
    const unsigned char* const start = data;
    // 32 bytes are written for 24.
    for (__m256i values; size >= 32 + 12; size -= 32, text += 32, data += 24)
    {
        if (!Value(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(text)), values))
        {
            break;
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(data), Pack(values));
    }
    return static_cast<std::size_t>(data - start) + DecodeSsse3(text, size, data);
}

} // namespace

const Base64Codec& Ssse3Base64()
{
    static constexpr Base64Codec codec = {&EncodeSsse3, &DecodeSsse3};
    return codec;
}

const Base64Codec& Avx2Base64()
{
    static constexpr Base64Codec codec = {&EncodeAvx2, &DecodeAvx2};
    return codec;
}

} // namespace UtilsLib::Platform
