#include <UtilsLib/cloud/DriveURLProvider.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/cloud/ConfigurationFixture.h>
#include <tests/logging/LoggerFixture.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/LiveBlocks.h>

#include <gmock/gmock.h>

#include <new>
#include <type_traits>

using CloudTests::Configuration;
using CloudTests::HaveNoMemory;
using CloudTests::MakeNothing;
using TestSupport::ImportPatch;
using UtilsLib::DriveURLProvider;

namespace
{

constexpr char kSignOn[] = "https://drive.corvane.example/mc/signon";
constexpr char kRegister[] = "https://drive.corvane.example/mc/registerExisting";

std::string Address(int type)
{
    return DriveURLProvider::GetCorvaneDriveURL(static_cast<DriveURLProvider::URLType>(type));
}

std::string Server(const std::string& name, const std::string& mc, const std::string& registerExisting)
{
    return "<server name=\"" + name + "\" mc=\"" + mc + "\" registerexisting=\"" + registerExisting + "\"/>";
}

class DriveURLProviderTest : public testing::Test, public CloudTests::ConfigurationFixture
{
protected:
    static void ExpectAddresses(const std::string& signOn, const std::string& registerExisting)
    {
        EXPECT_EQ(Address(0), signOn);
        EXPECT_EQ(Address(1), registerExisting);
        EXPECT_EQ(Address(2), "");
        EXPECT_TRUE(IsComBalanced());
    }
};

} // namespace

TEST_F(DriveURLProviderTest, WithoutAFileThePagesAreTheProductionDrives)
{
    ExpectAddresses(kSignOn, kRegister);
    EXPECT_EQ(Address(-1), "");
    EXPECT_EQ(CloudTests::g_system.shellCalls, std::vector<std::string>(4, "41 0"));
}

TEST_F(DriveURLProviderTest, ThePagesAreThoseOfTheModesServer)
{
    WriteConfiguration(
        Configuration("test", Server("live", "l1", "l2") + Server("test", " https://t/?a=1&amp;b ", "t2")));

    ExpectAddresses(" https://t/?a=1&b ", "t2");
    EXPECT_EQ(Address(-1), "");
}

TEST_F(DriveURLProviderTest, TheOtherAttributesOfAServerMayBeMissing)
{
    WriteConfiguration(Configuration("a", "<s name='a' mc='1'/>"));

    ExpectAddresses("1", kRegister);

    WriteConfiguration(Configuration("a", "<s name='a' registerexisting='2'/>"));

    ExpectAddresses(kSignOn, "2");
}

TEST_F(DriveURLProviderTest, OneServerWithoutTheAttributeHidesAllOfThem)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2") + "<s name='b' registerexisting='3'/>"));

    ExpectAddresses(kSignOn, "2");
}

TEST_F(DriveURLProviderTest, AFileThatNamesNoPageLeavesTheProductionDrives)
{
    const std::string good = Server("a", "1", "2");
    const std::string files[] = {
        "",
        "no XML",
        Configuration("a", good) + "x",
        "<config mode='a'><servers>" + good + "</servers></config>",
        "<tarrowConfig><servers>" + good + "</servers></tarrowConfig>",
        "<tarrowConfig mode='a'/>",
        Configuration("b", good),
        Configuration("A", good),
        Configuration("a", ""),
        Configuration("a", good + "<s mc='1' registerexisting='2'/>"),
        Configuration("a", good + "<!-- b -->"),
        Configuration("a", good + "text"),
        Configuration("a", "<s name='a' MC='1' registerExisting='2'/>"),
        Configuration("a", Server("a", "", "")),
    };
    for (const std::string& text : files)
    {
        SCOPED_TRACE(text);
        WriteConfiguration(text);
        ExpectAddresses(kSignOn, kRegister);
    }
}

TEST_F(DriveURLProviderTest, OfTwoEntriesWithOneNameTheLaterWins)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2") + Server("a", "3", "4")));

    ExpectAddresses("3", "4");
}

TEST_F(DriveURLProviderTest, TheFileIsReadAnewOnEveryCall)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2")));
    EXPECT_EQ(Address(0), "1");

    WriteConfiguration(Configuration("a", Server("a", "3", "4")));
    EXPECT_EQ(Address(0), "3");

    WriteConfiguration("");
    EXPECT_EQ(Address(0), kSignOn);
}

TEST_F(DriveURLProviderTest, WithoutTheSystemFolderOrAParserOrMemoryThePagesAreTheProductionDrives)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2")));
    {
        const ImportPatch noParser("ole32.dll", "CoCreateInstance", &MakeNothing);
        ExpectAddresses(kSignOn, kRegister);
    }
    {
        const ImportPatch noMemory("oleaut32.dll", "SysAllocString", &HaveNoMemory);
        ExpectAddresses(kSignOn, kRegister);
    }
    CloudTests::g_system.folder.clear();
    ExpectAddresses(kSignOn, kRegister);
}

TEST_F(DriveURLProviderTest, AFileThatMayNotBeReadIsAsGoodAsNone)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2")));
    const UtilsLib::Platform::UniqueFileHandle holder(
        CreateFileA((m_system / kName).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder) << TestSupport::LastErrorText("CreateFileA");

    ExpectAddresses(kSignOn, kRegister);
}

TEST_F(DriveURLProviderTest, ComIsBalancedWhereverMemoryEnds)
{
    WriteConfiguration(
        Configuration("a long name of the mode", Server("a long name of the mode", "https://a.long.address", "2")));
    int thrown = 0;
    bool happened = true;
    for (int failing = 1; happened; ++failing)
    {
        ASSERT_LT(failing, 1'000);
        std::string address = "thrown";
        try
        {
            const TestSupport::AllocationFault fault(failing);
            address.swap(const_cast<std::string&>(static_cast<const std::string&>(Address(0))));
            happened = fault.Happened();
        }
        catch (const std::bad_alloc&)
        {
            ++thrown;
        }
        EXPECT_THAT(address, testing::AnyOf("thrown", "https://a.long.address"));
        EXPECT_TRUE(IsComBalanced());
    }
    EXPECT_GT(thrown, 4);
}

TEST_F(DriveURLProviderTest, ACallerKeepsItsOwnApartmentOfEitherKind)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2")));
    {
        const CloudTests::ScopedApartment own(COINIT_APARTMENTTHREADED);
        ExpectAddresses("1", "2");
        EXPECT_NE(CloudTests::Apartment(), std::nullopt);
    }
    {
        const CloudTests::ScopedApartment own(COINIT_MULTITHREADED);
        ExpectAddresses("1", "2");
        EXPECT_EQ(CloudTests::Apartment(), APTTYPE_MTA);
    }
    ExpectAddresses("1", "2");
    EXPECT_EQ(CloudTests::Apartment(), std::nullopt);
}

TEST_F(DriveURLProviderTest, NothingIsLeftOfACall)
{
    const CloudTests::ScopedApartment apartment(COINIT_APARTMENTTHREADED); // the parser stays loaded
    for (const std::string& text : {Configuration("a", Server("a", "1", "2")), Configuration("a", "<!-- -->")})
    {
        WriteConfiguration(text);
        constexpr std::size_t kRuns = 40;
        const auto run = [] {
            for (std::size_t i = 0; i < kRuns; ++i)
            {
                Address(0);
            }
        };
        run();

        const std::size_t before = TestSupport::LiveBlocks();
        run();

        EXPECT_LT(TestSupport::LiveBlocks(), before + kRuns) << text;
    }
}

TEST_F(DriveURLProviderTest, ItHasTwoKindsOfPageAndNoStateOfItsOwn)
{
    EXPECT_EQ(static_cast<int>(DriveURLProvider::URLType::SignOn), 0);
    EXPECT_EQ(static_cast<int>(DriveURLProvider::URLType::RegisterExisting), 1);
    static_assert(std::is_empty_v<DriveURLProvider> && std::is_trivial_v<DriveURLProvider>);
}

namespace
{

class DriveURLProviderLogTest : public LoggerTests::LoggerFixture, public CloudTests::ConfigurationFixture
{
};

} // namespace

TEST_F(DriveURLProviderLogTest, NothingIsEverLogged)
{
    UtilsLib::Logger& logger = UtilsLib::Logger::GetInstance();
    logger.SetPath(m_path);
    logger.Start();

    Address(0);
    WriteConfiguration(Configuration("a", Server("a", "1", "2")));
    Address(0);
    Address(2);
    WriteConfiguration("<tarrowConfig/>");
    Address(1);
    CloudTests::g_system.folder.clear();
    Address(1);
    static_cast<UtilsLib::ILogger&>(logger).Log(UtilsLib::LogCategory::General, UtilsLib::LogTraceLevel::Error, "end");

    logger.Shutdown();
    EXPECT_THAT(Messages(), testing::ElementsAre("end"));
}
