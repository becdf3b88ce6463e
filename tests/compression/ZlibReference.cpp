#include <tests/compression/ZlibReference.h>

#include <zlib.h>

#include <array>
#include <ostream>
#include <random>
#include <stdexcept>

namespace ZlibReference
{

namespace
{

int WindowBits(Container container)
{
    switch (container)
    {
    case Container::Gzip:
        return 31;
    case Container::Zlib:
        return 15;
    case Container::Raw:
        return -15;
    }
    return 0;
}

} // namespace

Bytes Text(std::size_t size, unsigned int seed)
{
    std::mt19937 random(seed);
    std::array<std::string, 64> words;
    for (std::string& word : words)
    {
        word.resize(2 + random() % 9);
        for (char& letter : word)
        {
            letter = static_cast<char>('a' + random() % 26);
        }
    }
    Bytes text;
    while (text.size() < size)
    {
        const std::string& word = words[random() % words.size()];
        text.insert(text.end(), word.begin(), word.end());
        text.push_back(random() % 12 == 0 ? '\n' : ' ');
    }
    text.resize(size);
    return text;
}

Bytes Noise(std::size_t size, unsigned int seed)
{
    std::mt19937 random(seed);
    Bytes noise(size);
    for (unsigned char& byte : noise)
    {
        byte = static_cast<unsigned char>(random());
    }
    return noise;
}

Bytes Zeros(std::size_t size)
{
    return Bytes(size);
}

Bytes Deflated(const Bytes& data, Container container, int memoryLevel)
{
    z_stream stream = {};
    if (deflateInit2(&stream, -1, 8, WindowBits(container), memoryLevel, 0) != Z_OK)
    {
        throw std::runtime_error("deflateInit2");
    }
    Bytes output(deflateBound(&stream, static_cast<uLong>(data.size())));
    stream.next_in = const_cast<unsigned char*>(data.data());
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    const int result = deflate(&stream, Z_FINISH);
    deflateEnd(&stream);
    if (result != Z_STREAM_END)
    {
        throw std::runtime_error("deflate");
    }
    output.resize(stream.total_out);
    return output;
}

Bytes NoiseDeflatingTo(std::size_t size)
{
    std::size_t length = size;
    for (int tries = 0; tries < 10; ++tries)
    {
        const Bytes noise = Noise(length);
        const std::size_t deflated = Deflated(noise).size();
        if (deflated == size)
        {
            return noise;
        }
        length = length + size - deflated;
    }
    throw std::runtime_error("no noise deflates to that size");
}

std::ostream& operator<<(std::ostream& stream, const Chunk& chunk)
{
    return stream << "(" << chunk.offset << ", " << chunk.length << ", " << chunk.total << ")";
}

Inflation InflatedByBuffers(const Bytes& input)
{
    Inflation inflation;
    z_stream stream = {};
    if (input.empty() || inflateInit2(&stream, 31) != Z_OK)
    {
        return inflation;
    }
    static unsigned char buffer[kBuffer];
    stream.next_in = const_cast<unsigned char*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    while (stream.avail_in > 0)
    {
        const unsigned int before = stream.total_out;
        stream.next_out = buffer;
        stream.avail_out = kBuffer;
        inflate(&stream, Z_NO_FLUSH);
        const unsigned int length = kBuffer - stream.avail_out;
        if (stream.total_out > 0)
        {
            inflation.chunks.push_back({before, length, static_cast<unsigned int>(stream.total_out)});
            inflation.data.insert(inflation.data.end(), buffer, buffer + length);
        }
        if (stream.avail_out > 0)
        {
            break;
        }
    }
    inflateEnd(&stream);
    inflation.result = stream.total_out;
    return inflation;
}

std::string AsText(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

Bytes AsBytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

} // namespace ZlibReference
