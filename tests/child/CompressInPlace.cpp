// Compresses a file in place and stops for ever at one of its steps, to be killed there:
// child_compress_in_place PATH write|delete|move
#include <UtilsLib/compression/CompressionLib.h>

#include <tests/child/Signals.h>
#include <tests/support/ImportPatch.h>

#include <cstdio>
#include <string>

namespace
{

std::string g_step;
int g_writes;

void StopAt(const char* step)
{
    if (g_step == step)
    {
        SignalReady();
        Sleep(INFINITE);
    }
}

std::size_t __cdecl StopOrWrite(const void* buffer, std::size_t size, std::size_t count, FILE* file)
{
    if (++g_writes == 3)
    {
        StopAt("write");
    }
    return std::fwrite(buffer, size, count, file);
}

BOOL WINAPI StopOrDelete(const char* path)
{
    StopAt("delete");
    return DeleteFileA(path);
}

BOOL WINAPI StopOrMove(const char* from, const char* to)
{
    StopAt("move");
    return MoveFileA(from, to);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    std::string path = argv[1];
    g_step = argv[2];
    const TestSupport::ImportPatch writing("msvcrt.dll", "fwrite", &StopOrWrite);
    const TestSupport::ImportPatch deleting("KERNEL32.dll", "DeleteFileA", &StopOrDelete);
    const TestSupport::ImportPatch moving("KERNEL32.dll", "MoveFileA", &StopOrMove);
    UtilsLib::CompressionLib::CompressFile(path);
    return 3;
}
