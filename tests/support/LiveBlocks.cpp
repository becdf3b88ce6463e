#include <tests/support/LiveBlocks.h>

#include <UtilsLib/WindowsTypes.h>

#include <array>

namespace TestSupport
{

std::size_t LiveBlocks()
{
    std::array<HANDLE, 64> heaps{};
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    std::size_t blocks = 0;
    for (DWORD index = 0; index < count && index < heaps.size(); ++index)
    {
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heaps[index], &entry))
        {
            blocks += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? 1U : 0U;
        }
    }
    return blocks;
}

} // namespace TestSupport
