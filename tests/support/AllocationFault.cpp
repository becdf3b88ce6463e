#include <tests/support/AllocationFault.h>

#include <cstdlib>

namespace TestSupport
{

namespace
{

int g_live;
int g_count;
int g_failing;
void* g_second;

void* CountedMalloc(std::size_t size)
{
    void* const block = ++g_count == g_failing ? nullptr : std::malloc(size);
    g_live += block != nullptr ? 1 : 0;
    if (g_count == 2)
    {
        g_second = block;
    }
    return block;
}

void CountedFree(void* block)
{
    g_live -= block != nullptr ? 1 : 0;
    std::free(block);
}

void Reset(int failing)
{
    g_live = 0;
    g_count = 0;
    g_failing = failing;
    g_second = nullptr;
}

} // namespace

AllocationFault::AllocationFault(int failing)
    : m_libraryMalloc("msvcrt.dll", "malloc", &CountedMalloc),
      m_libraryFree("msvcrt.dll", "free", &CountedFree),
      m_runtimeMalloc("msvcrt.dll", "malloc", &CountedMalloc, "libstdc++-6.dll"),
      m_runtimeFree("msvcrt.dll", "free", &CountedFree, "libstdc++-6.dll")
{
    Reset(failing); // the patches' own strings are not counted
}

AllocationFault::~AllocationFault() = default;

int AllocationFault::Live() const
{
    return g_live;
}

int AllocationFault::Count() const
{
    return g_count;
}

bool AllocationFault::Happened() const
{
    return g_failing != 0 && g_count >= g_failing;
}

void* AllocationFault::Second() const
{
    return g_second;
}

} // namespace TestSupport
