#include <UtilsLib/threading/Thread.h>

namespace UtilsLib
{

// Once the done event is signalled, the owner may go and this library be unloaded, while the thread itself cannot end
// before: an unloader holds the loader's lock, which every ending thread needs. So the stub's last step must not come
// back here. The two functions agree in what they take from the stack, and the compiler makes the call a jump into the
// system, which returns straight to the thread's caller. The options that this needs stand in CMakeLists.txt.
DWORD WINAPI Thread::ThreadStub(ThreadStruct* start)
{
    return static_cast<DWORD>(SetEvent(Run(start)));
}

} // namespace UtilsLib
