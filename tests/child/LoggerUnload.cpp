// A host that has the library by another one only: child_logger_unload WAY FOLDER unloads it, or ends without that and
// with a record of gRPC after the logger's end.
#include <windows.h>

#include <string>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    const bool late = std::string(argv[1]) == "late-record";
    // What is loaded first is destroyed last.
    if (late && LoadLibraryA("child_late_record.dll") == nullptr)
    {
        return 3;
    }
    const HMODULE library = LoadLibraryA("child_static_logger.dll");
    if (library == nullptr)
    {
        return 4;
    }
    const auto log =
        reinterpret_cast<void (*)(const char*)>(reinterpret_cast<void*>(GetProcAddress(library, "LogThousandLines")));
    log(argv[2]);
    if (late)
    {
        return 7;
    }
    FreeLibrary(library);
    return GetModuleHandleA("UtilsLib.dll") == nullptr ? 0 : 5;
}
