#include <CloudStage.h>

#include <tests/host/Printed.h>
#include <tests/host/ScopedSystemFolder.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr char kName[] = "Corvane.Tarrow.Service.config";

class CloudStageTest : public testing::Test
{
protected:
    /// What the stage prints.
    std::string Run()
    {
        return Printed([&](Console& console) { ShowCloudServer(console, m_folder / "host.log"); });
    }

    TestSupport::TempFolder m_folder;
    const ScopedSystemFolder m_systemFolder{m_folder.Path()};
};

} // namespace

TEST_F(CloudStageTest, MachineWithoutAConfigurationUsesTheSampleForTheStageOnly)
{
    EXPECT_THAT(Run(), AllOf(HasSubstr("sample configuration   " + m_folder / kName),
                             HasSubstr("sign-on page           https://staging.corvane.example/mc/signon\n"),
                             HasSubstr("https://staging.corvane.example/mc/registerExisting\n")));
    EXPECT_FALSE(m_folder.Exists(kName));
}

TEST_F(CloudStageTest, MachineWithAConfigurationUsesAndKeepsIt)
{
    const std::string real = "<tarrowConfig mode=\"x\"><servers><server name=\"x\" mc=\"https://x.corvane.example/s\" "
                             "registerexisting=\"https://x.corvane.example/r\"/></servers></tarrowConfig>";
    m_folder.Write(kName, real);

    EXPECT_THAT(Run(),
                AllOf(HasSubstr("sign-on page           https://x.corvane.example/s\n"),
                      HasSubstr("registration page      https://x.corvane.example/r\n"), Not(HasSubstr("sample"))));
    EXPECT_EQ(m_folder.Read(kName), real);
}
