// A DLL that writes a mark when its static objects are destroyed.
#include <tests/child/LibraryEnds.h>

#include <windows.h>

#include <string>

namespace
{

class StaticObject
{
public:
    ~StaticObject()
    {
        if (!folder.empty())
        {
            WriteMark(folder.c_str(), "library");
        }
    }
    std::string folder;
};

StaticObject g_object;

} // namespace

void WriteMark(const char* folder, const char* name)
{
    const std::string path = std::string(folder) + "\\" + name;
    const HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file != INVALID_HANDLE_VALUE)
    {
        CloseHandle(file);
    }
}

void MarkLibraryEnd(const char* folder)
{
    g_object.folder = folder;
}
