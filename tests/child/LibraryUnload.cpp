// Loads the library by name, starts the threads of its two singletons and unloads it while they run:
// child_library_unload ROUNDS AT_ONCE.
#include <tests/child/AfterUnload.h>
#include <tests/support/OpenHandles.h>

#include <windows.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace
{

/// A singleton of the library, known here by the names of its exports only.
class Singleton
{
public:
    /// Starts the thread that the class derives from first.
    void StartThread(HMODULE library)
    {
        // gcc's pointer to a member that is not virtual: the address, and nothing to add to the object's.
        struct
        {
            FARPROC address;
            std::ptrdiff_t adjustment;
        } const parts = {GetProcAddress(library, "_ZN8UtilsLib6Thread5StartEv"), 0};
        void (Singleton::*start)() = nullptr;
        static_assert(sizeof(start) == sizeof(parts));
        std::memcpy(&start, &parts, sizeof(start));
        (this->*start)();
    }
};

Singleton& Instance(HMODULE library, const char* name)
{
    using GetInstance = Singleton&();
    return reinterpret_cast<GetInstance*>(reinterpret_cast<void*>(GetProcAddress(library, name)))();
}

int Round(bool atOnce)
{
    const HMODULE library = LoadLibraryA("UtilsLib.dll");
    if (library == nullptr)
    {
        return 3;
    }
    Instance(library, "_ZN8UtilsLib6Logger11GetInstanceEv").StartThread(library);
    Instance(library, "_ZN8UtilsLib15LiveRegSettings11GetInstanceEv").StartThread(library);
    Sleep(atOnce ? 0 : 150);
    FreeLibrary(library);
    return GetModuleHandleA("UtilsLib.dll") != nullptr ? 4 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    const int rounds = std::atoi(argv[1]);
    const bool atOnce = std::atoi(argv[2]) != 0;
    Round(atOnce); // opens what the system itself keeps
    const unsigned long handles = TestSupport::OpenHandles();
    for (int i = 0; i < rounds; ++i)
    {
        if (const int failure = Round(atOnce))
        {
            return failure;
        }
    }
    return OnlyMainThreadAndHandlesStay(handles + kHandlesOfTheRunTime) ? 0 : 5;
}
