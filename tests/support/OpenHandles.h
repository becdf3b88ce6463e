#pragma once

namespace TestSupport
{

/// How many kernel handles this process has open, as the system counts them: the same before and after a test that
/// leaks none. Registry keys count.
unsigned long OpenHandles();

/// How many threads this process has.
unsigned long RunningThreads();

} // namespace TestSupport
