#pragma once

#include <UtilsLib/WindowsTypes.h>

namespace UtilsLib::Platform
{

using GuardedBody = void (*)(void* argument) noexcept;
using GuardFilter = LONG (*)(EXCEPTION_POINTERS* exception, void* argument) noexcept;

/// Calls `body(argument)` as Visual C++'s `__try { body } __except (filter)` does, also for compilers without these.
///
/// A structured exception in `body` (an access violation, RaiseException) is shown to `filter`, on the thread and above
/// the stack that it happened on. The filter answers as filters do:
/// EXCEPTION_EXECUTE_HANDLER gives `body` up where it stands, without running the destructors of its locals, and the
/// result is false; EXCEPTION_CONTINUE_SEARCH leaves the exception to outer guards and the system;
/// EXCEPTION_CONTINUE_EXECUTION goes on in `body`. True when `body` came to its end. Guards nest, any thread.
/// An exception in the filter is shown to the same filter again, so it must see to it that this ends.
bool CallGuarded(GuardedBody body, GuardFilter filter, void* argument);

/// Raises an access violation where it stands, by the write that the name says.
void WriteToAddressZero();

} // namespace UtilsLib::Platform
