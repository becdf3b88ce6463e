// Ends with the code that is its last argument. Before that: writes its command line and its folder to the file that
// UTILSLIB_RECORD names, and waits for the event that UTILSLIB_HOLD names, if there are such.
#include <windows.h>

#include <cstdio>
#include <cstdlib>

namespace
{

void Record(const char* path)
{
    char folder[MAX_PATH] = "";
    GetCurrentDirectoryA(sizeof(folder), folder);
    if (std::FILE* const file = std::fopen(path, "wb"))
    {
        std::fprintf(file, "%s\n%s\n", GetCommandLineA(), folder);
        std::fclose(file);
    }
}

/// False when the event does not come, or is not there.
bool WaitFor(const char* name)
{
    const HANDLE event = OpenEventA(SYNCHRONIZE, FALSE, name);
    return event != nullptr && WaitForSingleObject(event, 30'000) == WAIT_OBJECT_0;
}

} // namespace

int main(int argc, char** argv)
{
    char record[MAX_PATH] = "";
    if (GetEnvironmentVariableA("UTILSLIB_RECORD", record, sizeof(record)) != 0)
    {
        Record(record);
    }
    char hold[MAX_PATH] = "";
    if (GetEnvironmentVariableA("UTILSLIB_HOLD", hold, sizeof(hold)) != 0 && !WaitFor(hold))
    {
        return 99;
    }
    return static_cast<int>(std::strtoul(argv[argc - 1], nullptr, 10));
}
