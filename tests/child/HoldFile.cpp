// Holds a file open until told to go: child_hold_file PATH ACCESS SHARE (the masks of CreateFile, in decimal).
#include <tests/child/Signals.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        return 2;
    }
    const HANDLE file = CreateFileA(argv[1], std::strtoul(argv[2], nullptr, 10), std::strtoul(argv[3], nullptr, 10),
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return 3;
    }
    SignalReady();
    const bool told = WaitForGo();
    CloseHandle(file);
    return told ? 0 : 4;
}
