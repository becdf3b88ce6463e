#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/ImportPatch.h>

#include <string>

/// The 32-bit system folder of the host and of the library until scope end. One at a time.
class ScopedSystemFolder
{
public:
    explicit ScopedSystemFolder(const std::string& path)
    {
        ms_path = path;
    }

private:
    static HRESULT WINAPI Tell(HWND, int, HANDLE, DWORD, char* path)
    {
        path[ms_path.copy(path, MAX_PATH - 1)] = '\0';
        return S_OK;
    }

    static inline std::string ms_path;

    const TestSupport::ImportPatch m_host{"SHELL32.dll", "SHGetFolderPathA", &Tell, "host_tests.exe"};
    const TestSupport::ImportPatch m_library{"SHELL32.dll", "SHGetFolderPathA", &Tell};
};
