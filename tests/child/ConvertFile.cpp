// Compresses or decompresses a file: child_convert_file compress|decompress SOURCE DESTINATION
#include <UtilsLib/compression/CompressionLib.h>

#include <string>

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        return 2;
    }
    const bool good = std::string(argv[1]) == "compress" ? UtilsLib::CompressionLib::CompressFile(argv[2], argv[3])
                                                         : UtilsLib::CompressionLib::DecompressFile(argv[2], argv[3]);
    return good ? 0 : 1;
}
