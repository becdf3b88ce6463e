#include <UtilsLib/cloud/CloudServerHost.h>

#include <tests/cloud/ConfigurationFixture.h>

namespace
{

/// An instance of the test's own.
class Host : public UtilsLib::CloudServerHost
{
public:
    Host() = default;
};

class CloudServerHostLargeFileTest : public testing::Test, public CloudTests::ConfigurationFixture
{
};

} // namespace

// A file of this size takes Wine's way from the file to the parser a quarter of a minute.
TEST_F(CloudServerHostLargeFileTest, AFileOf50MiBThatIsNoXmlKeepsTheDefaults)
{
    WriteConfiguration("<tarrowConfig mode='a'>" + std::string(50U << 20, 'x'));

    Host host;

    EXPECT_EQ(host.GetAddress(), "https://drive.corvane.example");
    EXPECT_EQ(host.GetMCAddress(), "https://drive.corvane.example/mcapi");
    EXPECT_TRUE(IsComBalanced());
}
