#pragma once

#include <cstddef>

namespace TestSupport
{

/// How many blocks of all heaps of this process are in use. What leaks objects that count no handle, such as COM
/// interfaces, makes it grow from run to run; the first runs of anything fill caches.
std::size_t LiveBlocks();

} // namespace TestSupport
