#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/cloud/CloudServerHost.h>

#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <shlobj.h>

#include <fstream>

namespace
{

/// The file in the real system folder, deleted at scope end.
class ScopedSystemFile
{
public:
    explicit ScopedSystemFile(const std::string& text)
    {
        char folder[MAX_PATH] = "";
        EXPECT_EQ(SHGetFolderPathA(nullptr, CSIDL_SYSTEMX86, nullptr, SHGFP_TYPE_CURRENT, folder), S_OK);
        m_path = std::string(folder) + "\\Corvane.Tarrow.Service.config";
        EXPECT_TRUE(std::ofstream(m_path, std::ios::binary) << text) << m_path;
    }
    ~ScopedSystemFile()
    {
        EXPECT_TRUE(DeleteFileA(m_path.c_str())) << TestSupport::LastErrorText("DeleteFileA");
    }
    ScopedSystemFile(const ScopedSystemFile&) = delete;
    ScopedSystemFile& operator=(const ScopedSystemFile&) = delete;

private:
    std::string m_path;
};

} // namespace

TEST(CloudServerHostSystemFolderTest, TheFileIsReadFromTheRealSystemFolder)
{
    const ScopedSystemFile file("<tarrowConfig mode=\"test\"><servers>"
                                "<server name=\"test\" url=\"https://test\" mcapi=\"https://test/mcapi\"/>"
                                "</servers></tarrowConfig>");

    EXPECT_EQ(UtilsLib::CloudServerHost::GetInstance()->GetAddress(), "https://test");
    EXPECT_EQ(UtilsLib::CloudServerHost::GetInstance()->GetMCAddress(), "https://test/mcapi");
}

TEST(CloudServerHostSystemFolderTest, WithoutTheFileTheAddressesAreTheProductionDrives)
{
    EXPECT_EQ(UtilsLib::CloudServerHost::GetInstance()->GetAddress(), "https://drive.corvane.example");
}
