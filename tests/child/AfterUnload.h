#pragma once

#include <tests/support/OpenHandles.h>

#include <windows.h>

#include <cstdio>

/// The C++ run-time makes a few more handles when threads first wait for each other; a leak makes one in every round.
constexpr unsigned long kHandlesOfTheRunTime = 8;

/// Whether, before long, only the main thread and no more than `handles` handles are left; tells the counts if not.
inline bool OnlyMainThreadAndHandlesStay(unsigned long handles)
{
    for (int i = 0; i < 200; ++i)
    {
        if (TestSupport::RunningThreads() <= 1 && TestSupport::OpenHandles() <= handles)
        {
            return true;
        }
        Sleep(10);
    }
    std::printf("threads %lu; handles %lu, allowed %lu\n", TestSupport::RunningThreads(), TestSupport::OpenHandles(),
                handles);
    return false;
}
