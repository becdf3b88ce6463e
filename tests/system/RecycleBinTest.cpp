#include <UtilsLib/system/HelperUtils.h>

#include <tests/support/TempFolder.h>

#include <UtilsLib/WindowsTypes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

using UtilsLib::HelperUtils;

namespace
{

/// A folder of this process alone to delete, and where the system's recycle bin puts it.
class RecycleBinTest : public testing::Test
{
protected:
    void SetUp() override
    {
        const char* const home = std::getenv("XDG_DATA_HOME");
        ASSERT_NE(home, nullptr) << "set it to an existing folder: it gets the recycle bin";
        m_recycled = std::string("Z:") + home + "\\Trash\\files\\" + m_name;
        std::replace(m_recycled.begin(), m_recycled.end(), '/', '\\');
        m_root.Write(m_name + "\\sub\\a.txt", "kept");
    }
    void TearDown() override
    {
        HelperUtils::DeleteDirectory(m_recycled, true);
        DeleteFileA((m_recycled.substr(0, m_recycled.find("\\files\\")) + "\\info\\" + m_name + ".trashinfo").c_str());
    }

    const TestSupport::TempFolder m_root;
    const std::string m_name = m_root.Path().substr(m_root.Path().rfind('\\') + 1) + "_recycled";
    std::string m_recycled;
};

} // namespace

TEST_F(RecycleBinTest, AFolderThatIsNotDeletedPermanentlyGoesThereWhole)
{
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_root / m_name, false));

    EXPECT_FALSE(m_root.Exists(m_name));
    EXPECT_TRUE(HelperUtils::DirectoryExists(m_recycled + "\\sub"));
    EXPECT_NE(GetFileAttributesA((m_recycled + "\\sub\\a.txt").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(RecycleBinTest, AFolderThatIsDeletedPermanentlyDoesNot)
{
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_root / m_name, true));

    EXPECT_FALSE(m_root.Exists(m_name));
    EXPECT_FALSE(HelperUtils::DirectoryExists(m_recycled));
}
