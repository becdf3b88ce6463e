#pragma once

/// What the static pool or the static future of child_static_tasks.dll is given.
enum class StaticWork : int
{
    Endless,
    EndProcess // with the code 12
};

// Exports of child_static_tasks.dll, by these names.
using StartStaticWork = void(StaticWork work); // StartInPool, StartInFuture
using StaticWorkRuns = bool();
