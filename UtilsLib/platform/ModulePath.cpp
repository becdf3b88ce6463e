#include <UtilsLib/platform/ModulePath.h>

namespace UtilsLib::Platform
{

std::string ModulePath(HMODULE module)
{
    std::string path(MAX_PATH, '\0');
    for (;;)
    {
        const DWORD size = static_cast<DWORD>(path.size());
        const DWORD length = GetModuleFileNameA(module, path.data(), size);
        if (length < size)
        {
            path.resize(length);
            return path;
        }
        // A full buffer means that the path was cut.
        path.resize(path.size() * 2);
    }
}

} // namespace UtilsLib::Platform
