#pragma once

namespace UtilsLib::Platform
{

/// Waits until no other thread has the lock of the system's loader, which is held while a DllMain runs; `limit` ms at
/// most. False when one has it still: loading a library or starting a thread would then wait, maybe for ever.
bool WaitForLoader(unsigned long limit);

} // namespace UtilsLib::Platform
