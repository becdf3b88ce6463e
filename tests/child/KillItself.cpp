// Ends itself and says which of its exit handlers ran: child_kill_itself kill|return FOLDER. Each handler writes a file
// of its name there.
#include <UtilsLib/system/Process.h>

#include <tests/child/LibraryEnds.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace
{

std::string g_folder;

class StaticObject
{
public:
    ~StaticObject()
    {
        WriteMark(g_folder.c_str(), "static");
    }
};

void OnExit()
{
    WriteMark(g_folder.c_str(), "atexit");
}

class StackObject
{
public:
    ~StackObject()
    {
        WriteMark(g_folder.c_str(), "stack");
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    g_folder = argv[2];
    static const StaticObject object;
    const StackObject stackObject;
    std::atexit(&OnExit);
    MarkLibraryEnd(g_folder.c_str());
    std::FILE* const buffered = std::fopen((g_folder + "\\buffered").c_str(), "w");
    std::fputs("text", buffered);
    if (std::strcmp(argv[1], "kill") == 0)
    {
        std::thread(&UtilsLib::Process::KillCurrentProcess).join();
        return 3;
    }
    return 4;
}
