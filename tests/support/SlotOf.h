#pragma once

#include <cstddef>
#include <cstring>

namespace TestSupport
{

#if defined(__GNUC__)
/// The number of a virtual operation in the function table: gcc keeps it in the member's pointer, one above its offset.
template <typename Member>
std::size_t SlotOf(Member member)
{
    std::size_t offset = 0;
    std::memcpy(&offset, &member, sizeof(offset));
    return (offset - 1) / sizeof(void*);
}
#endif

} // namespace TestSupport
