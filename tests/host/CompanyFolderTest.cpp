#include <CompanyFolder.h>

#include <UtilsLib/platform/UniqueFileHandle.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using UtilsLib::ProgressHandler;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr char kUmlauts[] = "K\xE4se\\M\xFCller.dta"; // in the ANSI code page

class CompanyFolderTest : public testing::Test
{
protected:
    std::optional<unsigned long long> Digest()
    {
        return CompanyDigest(m_company.Path(), m_progress, "reading");
    }

    TestSupport::TempFolder m_company;
    ProgressHandler m_progress{{"", 0, ""}};
};

} // namespace

TEST_F(CompanyFolderTest, NamesAreInTheAnsiCodePage)
{
    m_company.Write(kUmlauts, "12345");

    const std::vector<CompanyFile> files = ListCompany(m_company.Path());

    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].path, kUmlauts);
    EXPECT_EQ(files[0].size, 5u);
}

TEST_F(CompanyFolderTest, DigestTellsEveryByteAndNameAndNothingElse)
{
    m_company.Write("a.dta", "1");
    m_company.Write(kUmlauts, "12345");
    const std::optional<unsigned long long> before = Digest();
    ASSERT_TRUE(before);

    EXPECT_EQ(Digest(), before);
    m_company.Write(kUmlauts, "12344");
    EXPECT_NE(Digest(), before);
    m_company.Write(kUmlauts, "12345");
    EXPECT_EQ(Digest(), before);
    m_company.Write("b.dta", "");
    EXPECT_NE(Digest(), before);
}

TEST_F(CompanyFolderTest, DigestOfAFileThatCannotBeReadIsNone)
{
    m_company.Write("a.dta", "1");
    const UniqueFileHandle writer(CreateFileA((m_company / "a.dta").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(writer);

    EXPECT_EQ(Digest(), std::nullopt);
}
