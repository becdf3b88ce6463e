#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

/// What zlib itself makes of data: the yardstick of the compression tests.
namespace ZlibReference
{

using Bytes = std::vector<unsigned char>;

constexpr unsigned int kBuffer = 131072;

/// Words of a small vocabulary: shrinks to about a fifth.
Bytes Text(std::size_t size, unsigned int seed = 1);
/// Cannot be compressed.
Bytes Noise(std::size_t size, unsigned int seed = 1);
/// Shrinks to about a thousandth.
Bytes Zeros(std::size_t size);

enum class Container
{
    Gzip,
    Zlib,
    Raw,
};

/// One call of deflate over the whole data.
Bytes Deflated(const Bytes& data, Container container = Container::Gzip, int memoryLevel = 9);
/// Noise whose gzip form is exactly `size` bytes long.
Bytes NoiseDeflatingTo(std::size_t size);

struct Chunk
{
    unsigned int offset = 0;
    unsigned int length = 0;
    unsigned int total = 0;

    bool operator==(const Chunk&) const = default;
};
/// For failure messages.
std::ostream& operator<<(std::ostream& stream, const Chunk& chunk);

struct Inflation
{
    unsigned int result = 0;
    std::vector<Chunk> chunks;
    Bytes data;
};

/// Inflates gzip data round by round into one buffer of 128 KiB, until the input is used up or the buffer is not full.
Inflation InflatedByBuffers(const Bytes& input);

std::string AsText(const Bytes& bytes);
Bytes AsBytes(const std::string& text);

} // namespace ZlibReference
