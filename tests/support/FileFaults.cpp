#include <tests/support/FileFaults.h>

#include <tests/support/ImportPatch.h>

namespace TestSupport
{

namespace
{

struct State
{
    std::size_t faultAt = 0;
    FileFaults::Fault fault = FileFaults::Fault::Error;
    std::vector<std::string> calls;
};
State g_state;

/// Whether this operation is to fail.
bool FailsNow(const char* name, const char* path)
{
    g_state.calls.push_back(std::string(name) + " " + path);
    if (g_state.calls.size() != g_state.faultAt)
    {
        return false;
    }
    if (g_state.fault == FileFaults::Fault::EndProcess)
    {
        TerminateProcess(GetCurrentProcess(), FileFaults::kExitCode);
    }
    SetLastError(FileFaults::kError);
    return true;
}

HANDLE WINAPI FindFirst(const char* pattern, WIN32_FIND_DATAA* entry)
{
    return FailsNow("FindFirstFileA", pattern) ? INVALID_HANDLE_VALUE : FindFirstFileA(pattern, entry);
}

BOOL WINAPI FindNext(HANDLE search, WIN32_FIND_DATAA* entry)
{
    return !FailsNow("FindNextFileA", "") && FindNextFileA(search, entry);
}

HANDLE WINAPI Create(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD disposition,
                     DWORD flags, HANDLE pattern)
{
    return FailsNow("CreateFileA", path) ? INVALID_HANDLE_VALUE
                                         : CreateFileA(path, access, share, security, disposition, flags, pattern);
}

BOOL WINAPI SetAttributes(const char* path, DWORD attributes)
{
    return !FailsNow("SetFileAttributesA", path) && SetFileAttributesA(path, attributes);
}

DWORD WINAPI GetAttributes(const char* path)
{
    return FailsNow("GetFileAttributesA", path) ? INVALID_FILE_ATTRIBUTES : GetFileAttributesA(path);
}

BOOL WINAPI CreateFolder(const char* path, SECURITY_ATTRIBUTES* security)
{
    return !FailsNow("CreateDirectoryA", path) && CreateDirectoryA(path, security);
}

BOOL WINAPI Copy(const char* source, const char* destination, BOOL failIfExists)
{
    return !FailsNow("CopyFileA", source) && CopyFileA(source, destination, failIfExists);
}

BOOL WINAPI Delete(const char* path)
{
    return !FailsNow("DeleteFileA", path) && DeleteFileA(path);
}

BOOL WINAPI RemoveFolder(const char* path)
{
    return !FailsNow("RemoveDirectoryA", path) && RemoveDirectoryA(path);
}

} // namespace

struct FileFaults::Patches
{
    ImportPatch findFirst{"KERNEL32.dll", "FindFirstFileA", &FindFirst};
    ImportPatch findNext{"KERNEL32.dll", "FindNextFileA", &FindNext};
    ImportPatch create{"KERNEL32.dll", "CreateFileA", &Create};
    ImportPatch setAttributes{"KERNEL32.dll", "SetFileAttributesA", &SetAttributes};
    ImportPatch getAttributes{"KERNEL32.dll", "GetFileAttributesA", &GetAttributes};
    ImportPatch createFolder{"KERNEL32.dll", "CreateDirectoryA", &CreateFolder};
    ImportPatch copy{"KERNEL32.dll", "CopyFileA", &Copy};
    ImportPatch deleteFile{"KERNEL32.dll", "DeleteFileA", &Delete};
    ImportPatch removeFolder{"KERNEL32.dll", "RemoveDirectoryA", &RemoveFolder};
};

FileFaults::FileFaults(int call, Fault fault)
{
    g_state = {static_cast<std::size_t>(call), fault, {}};
    m_patches = std::make_unique<Patches>();
}

FileFaults::~FileFaults() = default;

const std::vector<std::string>& FileFaults::Calls() const
{
    return g_state.calls;
}

std::string FileFaults::Faulted() const
{
    const std::size_t at = g_state.faultAt;
    return at == 0 || at > g_state.calls.size() ? "" : g_state.calls[at - 1];
}

} // namespace TestSupport
