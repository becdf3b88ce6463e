#pragma once

/// What the static thread of child_static_thread.dll does.
enum StaticThreadWork : int
{
    SleepUntilStopped, // in the controlled sleep
    SpinUntilStopped,  // looks at its stop flag all the time, so that unloading meets it everywhere
    EndAtOnce,
    Throw,
    EndProcess // with the code 10
};

// Exports of child_static_thread.dll, by these names.
using StartStaticThread = void(int work);
using StaticThreadRuns = bool();
