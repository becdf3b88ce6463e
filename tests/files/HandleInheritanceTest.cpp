// A handle that a process started meanwhile inherits would keep a file locked long after its owner closed it.
#include <UtilsLib/files/BatchFile.h>
#include <UtilsLib/files/FileHelper.h>
#include <UtilsLib/files/FileOperations.h>
#include <UtilsLib/files/ScopedFileLock.h>
#include <UtilsLib/files/ScopedFiles.h>
#include <UtilsLib/files/ScopedTempFile.h>

#include <tests/files/RecordingWatcher.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

using TestSupport::ImportPatch;

namespace
{

int g_handles = 0;
int g_inheritable = 0;

HANDLE WINAPI CountHandle(LPCSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD creation,
                          DWORD attributes, HANDLE model)
{
    const HANDLE handle = CreateFileA(path, access, share, security, creation, attributes, model);
    DWORD flags = 0;
    if (GetHandleInformation(handle, &flags))
    {
        ++g_handles;
        g_inheritable += (flags & HANDLE_FLAG_INHERIT) != 0 ? 1 : 0;
    }
    return handle;
}

} // namespace

TEST(HandleInheritanceTest, NoFileHandleOfTheLibraryIsInheritable)
{
    const TestSupport::TempFolder folder;
    folder.Write("a.dat", "1");
    RecordingWatcher watcher;
    const ImportPatch count("KERNEL32.dll", "CreateFileA", &CountHandle);

    UtilsLib::ScopedFiles set(&watcher, folder.Path(), {"a.dat"});
    EXPECT_TRUE(set.OpenWrite());
    set.Close();
    EXPECT_TRUE(set.LockFilesDenyWrite());
    UtilsLib::ScopedFileLock lock(folder.Path(), {"a.dat"});
    EXPECT_TRUE(lock.LockFilesDenyWrite());
    EXPECT_EQ(UtilsLib::FileHelper::GetFileSize(folder / "a.dat"), 1u);
    EXPECT_TRUE(UtilsLib::FileOperations::OperateOnFile(folder / "a.dat", 1,
                                                        [](const unsigned char*, unsigned int, bool) { return true; }));
    const std::string name = "utilslib_inheritance_" + std::to_string(GetCurrentProcessId()) + ".bat";
    const UtilsLib::ScopedTempFile temporary(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    const UtilsLib::BatchFile batch(name); // deleted by the one before

    EXPECT_EQ(g_handles, 7);
    EXPECT_EQ(g_inheritable, 0);
}
