#include <SampleConfiguration.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <tests/host/ScopedSystemFolder.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

using TestSupport::ImportPatch;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr char kModule[] = "host_tests.exe";
constexpr char kName[] = "Corvane.Tarrow.Service.config";

decltype(&::WriteFile) ms_write = nullptr;

BOOL WINAPI WriteToAFullDisk(HANDLE file, const void* data, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    ms_write(file, data, size / 2, written, overlapped);
    SetLastError(ERROR_DISK_FULL);
    return FALSE;
}

BOOL WINAPI RefuseToDelete(const char*)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

PHANDLER_ROUTINE ms_breakHandler = nullptr;

BOOL WINAPI RecordedBreakHandler(PHANDLER_ROUTINE handler, BOOL add)
{
    ms_breakHandler = add ? handler : nullptr;
    return TRUE;
}

class SampleConfigurationTest : public testing::Test
{
protected:
    /// As a run that was killed leaves it.
    void LeaveSampleBehind()
    {
        const ImportPatch remove("KERNEL32.dll", "DeleteFileA", &RefuseToDelete, kModule);
        const ScopedSampleConfiguration sample(m_path);
    }

    TestSupport::TempFolder m_folder;
    const std::string m_path = m_folder / kName;
};

} // namespace

TEST_F(SampleConfigurationTest, IsThereUntilTheScopesEnd)
{
    {
        const ScopedSampleConfiguration sample(m_path);
        EXPECT_TRUE(sample.IsInstalled());
        EXPECT_NE(m_folder.Read(kName).find("staging.corvane.example"), std::string::npos);
    }
    EXPECT_FALSE(m_folder.Exists(kName));
}

TEST_F(SampleConfigurationTest, RealConfigurationStaysAsItIs)
{
    for (const std::string& real : {std::string(), std::string("<tarrowConfig mode=\"production\"/>")})
    {
        m_folder.Write(kName, real);
        {
            ScopedSampleConfiguration sample(m_path);
            EXPECT_FALSE(sample.IsInstalled());
            EXPECT_EQ(m_folder.Read(kName), real);
            EXPECT_TRUE(sample.Remove());
        }
        EXPECT_TRUE(m_folder.Exists(kName));
        EXPECT_EQ(m_folder.Read(kName), real);
    }
}

TEST_F(SampleConfigurationTest, RealConfigurationThatCannotBeReadStaysAsItIs)
{
    m_folder.Write(kName, "real");
    {
        const UniqueFileHandle owner(
            CreateFileA(m_path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(owner);
        const ScopedSampleConfiguration sample(m_path);
        EXPECT_FALSE(sample.IsInstalled());
    }
    EXPECT_EQ(m_folder.Read(kName), "real");
}

TEST_F(SampleConfigurationTest, RealConfigurationThatComesMeanwhileStays)
{
    {
        ScopedSampleConfiguration sample(m_path);
        ASSERT_TRUE(sample.IsInstalled());
        m_folder.Write(kName, "real");
        EXPECT_TRUE(sample.Remove());
    }
    EXPECT_EQ(m_folder.Read(kName), "real");
}

TEST_F(SampleConfigurationTest, SampleThatDoesNotFitOnTheDiskLeavesNothing)
{
    const ImportPatch fullDisk("KERNEL32.dll", "WriteFile", &WriteToAFullDisk, kModule);
    ms_write = fullDisk.Original<std::remove_pointer_t<decltype(ms_write)>>();
    ScopedSampleConfiguration sample(m_path);

    EXPECT_FALSE(sample.IsInstalled());
    EXPECT_FALSE(m_folder.Exists(kName));
    EXPECT_TRUE(sample.Remove());
}

TEST_F(SampleConfigurationTest, FolderThatIsNotThereGetsNoSample)
{
    const ScopedSampleConfiguration sample(m_folder / "missing\\config");

    EXPECT_FALSE(sample.IsInstalled());
}

TEST_F(SampleConfigurationTest, SampleThatAKilledRunLeftBehindIsTakenOver)
{
    LeaveSampleBehind();
    ASSERT_TRUE(m_folder.Exists(kName));
    {
        const ScopedSampleConfiguration sample(m_path);
        EXPECT_TRUE(sample.IsInstalled());
    }
    EXPECT_FALSE(m_folder.Exists(kName));
}

TEST_F(SampleConfigurationTest, RemoveTellsWhenTheSampleIsStillThere)
{
    ScopedSampleConfiguration sample(m_path);
    {
        const ImportPatch remove("KERNEL32.dll", "DeleteFileA", &RefuseToDelete, kModule);
        EXPECT_FALSE(sample.Remove());
    }
    {
        const UniqueFileHandle user(
            CreateFileA(m_path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(user);
        EXPECT_FALSE(sample.Remove());
    }

    EXPECT_TRUE(sample.Remove());
    EXPECT_FALSE(m_folder.Exists(kName));
    EXPECT_FALSE(sample.IsInstalled());
}

TEST_F(SampleConfigurationTest, BreakFromTheKeyboardRemovesTheSampleAndEndsTheProgram)
{
    const ScopedSystemFolder folder(m_folder.Path());
    const ImportPatch handler("KERNEL32.dll", "SetConsoleCtrlHandler", &RecordedBreakHandler, kModule);
    {
        const ScopedSampleConfiguration sample(ServiceConfigurationPath());
        ASSERT_TRUE(m_folder.Exists(kName));
        ASSERT_NE(ms_breakHandler, nullptr);
        EXPECT_FALSE(ms_breakHandler(CTRL_C_EVENT)); // not handled: the system goes on to end the program
        EXPECT_FALSE(m_folder.Exists(kName));
    }
    EXPECT_EQ(ms_breakHandler, nullptr);
}

TEST_F(SampleConfigurationTest, PathIsInTheSystemsFolder)
{
    const ScopedSystemFolder folder("C:\\windows\\SysWOW64");

    EXPECT_EQ(ServiceConfigurationPath(), "C:\\windows\\SysWOW64\\Corvane.Tarrow.Service.config");
}
