#pragma once

#include <tests/support/ImportPatch.h>

#include <cstddef>

namespace TestSupport
{

/// Counts the heap blocks that UtilsLib.dll (zlib in it) and the C++ run-time take, and refuses one of them on demand,
/// until scope end. One at a time; no other thread may allocate meanwhile.
class AllocationFault
{
public:
    /// The allocation number `failing` is refused, from 1 on; 0 refuses none.
    explicit AllocationFault(int failing = 0);
    ~AllocationFault();

    /// Blocks taken and not given back since construction. Free only what was taken inside the scope.
    int Live() const;
    /// Allocations asked for so far.
    int Count() const;
    /// Whether the failing one was asked for.
    bool Happened() const;
    /// The second block that was given: after the buffer of an inflation, the state of zlib.
    void* Second() const;

private:
    ImportPatch m_libraryMalloc;
    ImportPatch m_libraryFree;
    ImportPatch m_runtimeMalloc;
    ImportPatch m_runtimeFree;
};

} // namespace TestSupport
