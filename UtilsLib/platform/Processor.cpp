#include <UtilsLib/platform/Processor.h>

#if !defined(__GNUC__)
#include <immintrin.h>
#include <intrin.h>
#endif

namespace UtilsLib::Platform
{

#if defined(__GNUC__)

bool ProcessorHasSsse3()
{
    __builtin_cpu_init(); // this may run before the compiler's own initialisation
    return __builtin_cpu_supports("ssse3");
}

bool ProcessorHasAvx2()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}

#else

namespace
{

constexpr int kSsse3 = 1 << 9;       // leaf 1, ECX
constexpr int kXsaveInUse = 1 << 27; // leaf 1, ECX
constexpr int kAvx2 = 1 << 5;        // leaf 7, EBX
constexpr int kSseAndAvxState = 6;   // of XCR0

struct Leaf
{
    int eax, ebx, ecx, edx;
};

Leaf ReadLeaf(int number)
{
    int registers[4] = {};
    __cpuid(registers, 0);
    if (registers[0] < number)
    {
        return {};
    }
    __cpuidex(registers, number, 0);
    return {registers[0], registers[1], registers[2], registers[3]};
}

} // namespace

bool ProcessorHasSsse3()
{
    return (ReadLeaf(1).ecx & kSsse3) != 0;
}

bool ProcessorHasAvx2()
{
    return (ReadLeaf(7).ebx & kAvx2) != 0 && (ReadLeaf(1).ecx & kXsaveInUse) != 0 &&
           (_xgetbv(0) & kSseAndAvxState) == kSseAndAvxState;
}

#endif

} // namespace UtilsLib::Platform
