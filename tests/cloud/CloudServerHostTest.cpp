#include <UtilsLib/cloud/CloudServerHost.h>

#include <UtilsLib/platform/UniqueBstr.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <UtilsLib/platform/UniqueInterface.h>

#include <tests/cloud/ConfigurationFixture.h>
#include <tests/logging/LoggerFixture.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/InterfacePatch.h>
#include <tests/support/LiveBlocks.h>

#include <gmock/gmock.h>

#include <msxml2.h>

#include <type_traits>

using CloudTests::Configuration;
using CloudTests::HaveNoMemory;
using CloudTests::MakeNothing;
using testing::ElementsAre;
using TestSupport::ImportPatch;
using UtilsLib::CloudServerHost;
using UtilsLib::Platform::UniqueInterface;

namespace
{

constexpr char kDrive[] = "https://drive.corvane.example";
constexpr char kMcapi[] = "https://drive.corvane.example/mcapi";
constexpr char kGetting[] = "(2:1), Getting Tarrow service configuration.";
constexpr char kLoaded[] = "(2:1), Loaded Tarrow service configuration.";
// What the system's text of E_POINTER is: there is none.
constexpr char kNullPointer[] = "(2:4), Tarrow service configuration failed with Unknown error 0x80004003";

/// An instance of the test's own.
class Host : public CloudServerHost
{
public:
    Host() = default;
};

std::string Server(const std::string& name, const std::string& url, const std::string& mcapi)
{
    return "<server name=\"" + name + "\" url=\"" + url + "\" mcapi=\"" + mcapi + "\"/>";
}

/// Live, test and staging, with "test" wanted.
std::string Sample()
{
    return "<?xml version=\"1.0\"?>\r\n<tarrowConfig mode=\"test\">\r\n  <servers>\r\n    " +
           Server("live", "https://live", "https://live/mcapi") + "\r\n    " +
           Server("test", "https://test", "https://test/mcapi") + "\r\n    " +
           Server("staging", "https://staging", "https://staging/mcapi") + "\r\n  </servers>\r\n</tarrowConfig>\r\n";
}

class CloudServerHostTest : public LoggerTests::LoggerFixture, public CloudTests::ConfigurationFixture
{
protected:
    /// What was logged, from its category on; logging is over then.
    std::vector<std::string> Logged() const
    {
        WriteAll(UtilsLib::Logger::GetInstance());
        std::vector<std::string> messages;
        std::istringstream text(Text());
        for (std::string line; std::getline(text, line);)
        {
            EXPECT_TRUE(line.ends_with('\r'));
            messages.push_back(line.substr(line.find("("), line.size() - 1 - line.find("(")));
        }
        return messages;
    }
    static void ExpectDefaults(CloudServerHost& host)
    {
        EXPECT_EQ(host.GetAddress(), kDrive);
        EXPECT_EQ(host.GetMCAddress(), kMcapi);
        EXPECT_TRUE(IsComBalanced());
    }
    static void ExpectAddresses(CloudServerHost& host, const std::string& address, const std::string& mcAddress)
    {
        EXPECT_EQ(host.GetAddress(), address);
        EXPECT_EQ(host.GetMCAddress(), mcAddress);
        EXPECT_TRUE(IsComBalanced());
    }
};

} // namespace

TEST_F(CloudServerHostTest, WithoutAFileTheAddressesAreTheProductionDrivesAndOneLineIsLogged)
{
    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(Logged(), ElementsAre(kGetting));
}

TEST_F(CloudServerHostTest, TheFolderIsAskedForOnceAsThe32BitSystemFolder)
{
    const Host host;

    EXPECT_THAT(CloudTests::g_system.shellCalls, ElementsAre("41 0"));
}

TEST_F(CloudServerHostTest, TheServerOfTheModeIsTakenAndEveryStepLogged)
{
    WriteConfiguration(Sample());

    Host host;

    ExpectAddresses(host, "https://test", "https://test/mcapi");
    EXPECT_THAT(Logged(), ElementsAre(kGetting, kLoaded, "(2:1), Requested mode is test",
                                      "(2:1), Found server config entry named live for https://live",
                                      "(2:1), Found server config entry named test for https://test",
                                      "(2:1), Found server config entry named staging for https://staging",
                                      "(2:1), Using server https://test for requested test"));
}

TEST_F(CloudServerHostTest, ValuesAreTakenAsTheyStand)
{
    WriteConfiguration(
        Configuration(" a b ", Server(" a b ", " not a URL ", "x&amp;y/?q=%20%s%n&lt;") + Server("", "empty", "")));

    Host host;

    ExpectAddresses(host, " not a URL ", "x&y/?q=%20%s%n<");
    EXPECT_THAT(Logged(), testing::Contains("(2:1), Using server  not a URL  for requested  a b "));
}

TEST_F(CloudServerHostTest, PercentSignsOfTheFileStandInTheLogAsTheyAre)
{
    WriteConfiguration(Configuration("%d%%20", Server("%x%%", "%d://%%", "m") + Server("%d%%20", "u%%%d%s", "%")));

    Host host;

    ExpectAddresses(host, "u%%%d%s", "%");
    EXPECT_THAT(Logged(), ElementsAre(kGetting, kLoaded, "(2:1), Requested mode is %d%%20",
                                      "(2:1), Found server config entry named %x%% for %d://%%",
                                      "(2:1), Found server config entry named %d%%20 for u%%%d%s",
                                      "(2:1), Using server u%%%d%s for requested %d%%20"));
}

TEST_F(CloudServerHostTest, EmptyValuesAreValues)
{
    WriteConfiguration(Configuration("", Server("", "", "")));

    Host host;

    ExpectAddresses(host, "", "");
    EXPECT_THAT(Logged(), testing::Contains("(2:1), Found server config entry named  for "));
}

TEST_F(CloudServerHostTest, AnEntrysElementNameIsNotLookedAt)
{
    WriteConfiguration(
        Configuration("b", "<one name='a' url='1' mcapi='2'/><Two name='b' url='3' mcapi='4' more='5'/>"));

    Host host;

    ExpectAddresses(host, "3", "4");
}

TEST_F(CloudServerHostTest, AModeWithoutAnEntryKeepsTheDefaults)
{
    WriteConfiguration(Configuration("live", Server("test", "u", "m")));

    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(Logged(), ElementsAre(kGetting, kLoaded, "(2:1), Requested mode is live",
                                      "(2:1), Found server config entry named test for u",
                                      "(2:1), Failed to find requested mode in list of servers."));
}

TEST_F(CloudServerHostTest, NoServersAtAllAreAListWithoutTheMode)
{
    WriteConfiguration(Configuration("live", ""));

    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(Logged(), ElementsAre(kGetting, kLoaded, "(2:1), Requested mode is live",
                                      "(2:1), Failed to find requested mode in list of servers."));
}

TEST_F(CloudServerHostTest, AnotherLetterCaseIsNoMatch)
{
    WriteConfiguration(Configuration("Test", Server("test", "u", "m") + Server("TEST", "u", "m")));

    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(Logged(), testing::Contains("(2:1), Failed to find requested mode in list of servers."));
}

TEST_F(CloudServerHostTest, OfTwoEntriesWithOneNameTheLaterWins)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2") + Server("b", "3", "4") + Server("a", "5", "6")));

    Host host;

    ExpectAddresses(host, "5", "6");
}

TEST_F(CloudServerHostTest, OnlyTheFirstListOfServersBelowTheRootIsRead)
{
    WriteConfiguration("<tarrowConfig mode='a'><other><servers/></other><servers>" + Server("a", "1", "2") +
                       "</servers><servers>" + Server("a", "3", "4") + "</servers></tarrowConfig>");

    Host host;

    ExpectAddresses(host, "1", "2");
}

TEST_F(CloudServerHostTest, AFileOfAnotherShapeKeepsTheDefaultsAndLogsAComError)
{
    const std::string good = Server("a", "1", "2");
    const std::string mode = "(2:1), Requested mode is a";
    const std::string found = "(2:1), Found server config entry named a for 1";
    struct
    {
        const char* what;
        std::string text;
        std::vector<std::string> between;
    } const rows[] = {
        {"other root", "<config mode='a'><servers>" + good + "</servers></config>", {}},
        {"root in another case", "<TarrowConfig mode='a'><servers>" + good + "</servers></TarrowConfig>", {}},
        {"not the root", "<x><tarrowConfig mode='a'><servers>" + good + "</servers></tarrowConfig></x>", {}},
        {"no mode", "<tarrowConfig><servers>" + good + "</servers></tarrowConfig>", {}},
        {"no mode, no servers", "<tarrowConfig/>", {}},
        {"no servers", "<tarrowConfig mode='a'/>", {mode}},
        {"servers elsewhere", "<tarrowConfig mode='a'><x><servers>" + good + "</servers></x></tarrowConfig>", {mode}},
        {"no name", Configuration("a", good + "<s url='1' mcapi='2'/>"), {mode, found}},
        {"no url", Configuration("a", good + "<s name='a' mcapi='2'/>"), {mode, found}},
        {"no mcapi", Configuration("a", good + "<s name='a' url='1'/>"), {mode, found}},
        {"url in another case", Configuration("a", good + "<s name='a' Url='1' mcapi='2'/>"), {mode, found}},
        {"comment", Configuration("a", good + "<!-- b -->" + good), {mode, found}},
        {"comment first", Configuration("a", "<!-- b -->" + good), {mode}},
        {"text", Configuration("a", good + "b"), {mode, found}},
        {"characters", Configuration("a", good + "<![CDATA[b]]>"), {mode, found}},
        {"instruction", Configuration("a", good + "<?b c?>"), {mode, found}},
    };
    std::vector<std::string> expected;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        WriteConfiguration(row.text);
        Host host;
        ExpectDefaults(host);
        expected.insert(expected.end(), {kGetting, kLoaded});
        expected.insert(expected.end(), row.between.begin(), row.between.end());
        expected.push_back(kNullPointer);
    }
    EXPECT_EQ(Logged(), expected);
}

TEST_F(CloudServerHostTest, AFileThatIsNotWellFormedIsAsGoodAsNone)
{
    const std::string good = Configuration("a", Server("a", "1", "2"));
    const std::string files[] = {
        "",
        " ",
        "tarrowConfig",
        good.substr(0, good.size() - 1),
        good + good,
        good + "x",
        " <?xml version='1.0'?>" + good,
        Configuration("a", "<s name='a' url='1' url='3' mcapi='2'/>"),
        Configuration("a", Server("a", "1&2", "3")),
        Configuration("a", Server("a", "<", "3")),
        Configuration("a", "<s name=a url='1' mcapi='2'/>"),
        Configuration("a", Server("a", "1", "2") + "<s>"),
        Configuration("a", Server("a", "\xFC", "2")), // no UTF-8
        "<?xml version='1.0' encoding='utf-16'?>" + good,
        "<?xml version='1.0' encoding='no-such'?>" + good,
        std::string(100, '\0'),
    };
    std::vector<std::string> expected;
    for (const std::string& text : files)
    {
        SCOPED_TRACE(text);
        WriteConfiguration(text);
        Host host;
        ExpectDefaults(host);
        expected.emplace_back(kGetting);
    }
    EXPECT_EQ(Logged(), expected);
}

TEST_F(CloudServerHostTest, TheFileMayBeEncodedInAnyWayThatXmlKnows)
{
    const auto text = [](const std::string& encoding, const std::string& letter) {
        return "<?xml version=\"1.0\"" + (encoding.empty() ? "" : " encoding=\"" + encoding + "\"") + "?>" +
               Configuration("M" + letter, Server("M" + letter, "https://m" + letter + "nchen", "m"));
    };
    const auto wide = [&](bool bigEndian) {
        std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
        for (const char c : text("utf-16", "\xFC"))
        {
            bytes += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
        }
        return bytes;
    };
    const std::string files[] = {text("", "\xC3\xBC"),
                                 text("utf-8", "\xC3\xBC"),
                                 "\xEF\xBB\xBF" + text("", "\xC3\xBC"),
                                 "\xEF\xBB\xBF" + text("utf-8", "\xC3\xBC"),
                                 wide(false),
                                 wide(true),
                                 text("iso-8859-1", "\xFC"),
                                 text("", "&#252;")};
    for (const std::string& file : files)
    {
        WriteConfiguration(file);
        SCOPED_TRACE(file);
        Host host;
        ExpectAddresses(host, "https://m\xFCnchen", "m"); // in the ANSI code page
    }
}

TEST_F(CloudServerHostTest, LettersThatTheCodePageLacksBecomeQuestionMarks)
{
    WriteConfiguration(Configuration("a", Server("a", "https://\xE6\x9D\xB1", "m")));

    Host host;

    ExpectAddresses(host, "https://?", "m");
}

TEST_F(CloudServerHostTest, ManyServersAreReadInTheTimeThatTheirNumberTakes)
{
    std::string servers;
    for (int i = 0; i < 20'000; ++i)
    {
        servers += Server(std::to_string(i), "u" + std::to_string(i), "m");
    }
    WriteConfiguration(Configuration("19999", servers));
    m_machine.SetDword("hx41svc_logging", 0);
    UtilsLib::LiveRegSettings::GetInstance().Read();
    UtilsLib::Logger::GetInstance().SetRegistryKey("hx41svc_logging");
    const unsigned long long start = GetTickCount64();

    Host host;

    EXPECT_LT(GetTickCount64() - start, 10'000u);
    ExpectAddresses(host, "u19999", "m");
}

TEST_F(CloudServerHostTest, AFileThatMayNotBeReadIsAsGoodAsNone)
{
    WriteConfiguration(Sample());
    const UtilsLib::Platform::UniqueFileHandle holder(
        CreateFileA((m_system / kName).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder) << TestSupport::LastErrorText("CreateFileA");

    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(Logged(), ElementsAre(kGetting));
}

TEST_F(CloudServerHostTest, AFolderInThePlaceOfTheFileIsAsGoodAsNone)
{
    m_system.MakeFolder(kName);

    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(Logged(), ElementsAre(kGetting));
}

TEST_F(CloudServerHostTest, WithoutTheSystemFolderTheDefaultsHold)
{
    CloudTests::g_system.folder.clear();

    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(Logged(), ElementsAre(kGetting, "(2:1), Tarrow service configuration failed to load."));
}

namespace
{

HRESULT WINAPI KnowNoParser(const wchar_t* identifier, CLSID*)
{
    EXPECT_STREQ(identifier, L"MSXML2.FreeThreadedDOMDocument");
    return REGDB_E_CLASSNOTREG;
}

/// What the stand-in of `load` answers.
HRESULT g_loadResult = S_OK;
VARIANT_BOOL g_loaded = VARIANT_FALSE;

HRESULT WINAPI LoadAsTold(void*, VARIANT source, VARIANT_BOOL* loaded)
{
    EXPECT_EQ(V_VT(&source), VT_BSTR);
    *loaded = g_loaded;
    return g_loadResult;
}

std::vector<int> g_async; // what the document was set to

HRESULT WINAPI RefuseAsync(void*, VARIANT_BOOL async)
{
    g_async.push_back(async);
    return E_ACCESSDENIED;
}

HRESULT WINAPI FailToAnswer(void*, void** /*result*/)
{
    return E_ACCESSDENIED;
}

HRESULT WINAPI FailToFind(void*, BSTR, void** /*result*/)
{
    return E_ACCESSDENIED;
}

/// A document, its root element and what belongs to that: any object of their classes shares the method tables.
struct ScopedDocument
{
    ScopedDocument()
    {
        CLSID parser{};
        EXPECT_EQ(CLSIDFromProgID(L"MSXML2.FreeThreadedDOMDocument", &parser), S_OK);
        EXPECT_EQ(CoCreateInstance(parser, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                   reinterpret_cast<void**>(document.Put())),
                  S_OK);
        const UtilsLib::Platform::UniqueBstr text(SysAllocString(L"<a b='c'/>"));
        VARIANT_BOOL loaded = VARIANT_FALSE;
        EXPECT_EQ(document.Get()->loadXML(text.Get(), &loaded), S_OK);
        EXPECT_EQ(document.Get()->get_documentElement(element.Put()), S_OK);
        EXPECT_EQ(element.Get()->get_attributes(attributes.Put()), S_OK);
        EXPECT_EQ(attributes.Get()->get_item(0, attribute.Put()), S_OK);
    }

    const CloudTests::ScopedApartment apartment{COINIT_APARTMENTTHREADED};
    UniqueInterface<IXMLDOMDocument> document;
    UniqueInterface<IXMLDOMElement> element;
    UniqueInterface<IXMLDOMNamedNodeMap> attributes;
    UniqueInterface<IXMLDOMNode> attribute;
};

// Slots of the parser's interfaces.
constexpr std::size_t kGetNamedItem = 7;
constexpr std::size_t kNodeValue = 8;
constexpr std::size_t kFirstChild = 13;
constexpr std::size_t kNextSibling = 16;
constexpr std::size_t kAttributes = 17;
constexpr std::size_t kSelectSingleNode = 37;
constexpr std::size_t kLoad = 58;
constexpr std::size_t kPutAsync = 63;

std::string SystemText(HRESULT error)
{
    char text[256] = "";
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, static_cast<DWORD>(error), 0, text, sizeof(text), nullptr);
    std::string message = text;
    return message.substr(0, message.find('\r'));
}

} // namespace

TEST_F(CloudServerHostTest, AParserThatIsNotThereIsLoggedAsANullPointer)
{
    WriteConfiguration(Sample());
    {
        const ImportPatch noParser("ole32.dll", "CLSIDFromProgID", &KnowNoParser);
        Host host;
        ExpectDefaults(host);
    }
    {
        const ImportPatch noObject("ole32.dll", "CoCreateInstance", &MakeNothing);
        Host host;
        ExpectDefaults(host);
    }

    EXPECT_THAT(Logged(), ElementsAre(kGetting, kNullPointer, kGetting, kNullPointer));
}

TEST_F(CloudServerHostTest, ACallThatFailsEndsTheReadingAndIsLoggedWithTheSystemsText)
{
    WriteConfiguration(Configuration("a", Server("a", "1", "2") + Server("b", "3", "4")));
    const ScopedDocument objects;
    const std::string mode = "(2:1), Requested mode is a";
    const std::string found = "(2:1), Found server config entry named a for 1";
    struct
    {
        const char* what;
        void* object;
        std::size_t slot;
        void* replacement;
        std::vector<std::string> before;
    } const rows[] = {
        {"root", objects.document.Get(), kSelectSingleNode, reinterpret_cast<void*>(&FailToFind), {kLoaded}},
        {"attributes", objects.element.Get(), kAttributes, reinterpret_cast<void*>(&FailToAnswer), {kLoaded}},
        {"attribute", objects.attributes.Get(), kGetNamedItem, reinterpret_cast<void*>(&FailToFind), {kLoaded}},
        {"value", objects.attribute.Get(), kNodeValue, reinterpret_cast<void*>(&FailToAnswer), {kLoaded}},
        {"servers", objects.element.Get(), kSelectSingleNode, reinterpret_cast<void*>(&FailToFind), {kLoaded, mode}},
        {"first", objects.element.Get(), kFirstChild, reinterpret_cast<void*>(&FailToAnswer), {kLoaded, mode}},
        {"next", objects.element.Get(), kNextSibling, reinterpret_cast<void*>(&FailToAnswer), {kLoaded, mode, found}},
    };
    ASSERT_NE(SystemText(E_ACCESSDENIED), "");
    std::vector<std::string> expected;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const TestSupport::InterfacePatch failing(row.object, row.slot, row.replacement);
        Host host;
        ExpectDefaults(host);
        expected.emplace_back(kGetting);
        expected.insert(expected.end(), row.before.begin(), row.before.end());
        expected.push_back("(2:4), Tarrow service configuration failed with " + SystemText(E_ACCESSDENIED));
    }
    EXPECT_EQ(Logged(), expected);
}

TEST_F(CloudServerHostTest, ALoadWithoutSuccessIsQuietHoweverTheParserSaysSo)
{
    WriteConfiguration(Sample());
    const ScopedDocument objects;
    const TestSupport::InterfacePatch load(objects.document.Get(), kLoad, &LoadAsTold);
    struct
    {
        HRESULT result;
        VARIANT_BOOL loaded;
    } const rows[] = {{S_OK, VARIANT_FALSE},
                      {S_OK, VARIANT_BOOL{1}},
                      {S_FALSE, VARIANT_FALSE},
                      {E_ACCESSDENIED, VARIANT_FALSE},
                      {E_FAIL, VARIANT_TRUE}};
    for (const auto& row : rows)
    {
        g_loadResult = row.result;
        g_loaded = row.loaded;
        Host host;
        ExpectDefaults(host);
    }

    EXPECT_EQ(Logged(), std::vector<std::string>(std::size(rows), kGetting));
}

TEST_F(CloudServerHostTest, TheDocumentIsSetToLoadSynchronouslyFirst)
{
    WriteConfiguration(Sample());
    const ScopedDocument objects;
    const TestSupport::InterfacePatch async(objects.document.Get(), kPutAsync, &RefuseAsync);
    g_async.clear();

    Host host;

    ExpectDefaults(host);
    EXPECT_THAT(g_async, ElementsAre(VARIANT_FALSE));
    EXPECT_THAT(Logged(),
                ElementsAre(kGetting, "(2:4), Tarrow service configuration failed with " + SystemText(E_ACCESSDENIED)));
}

TEST_F(CloudServerHostTest, AComStringWithoutMemoryIsAComError)
{
    WriteConfiguration(Sample());
    const ImportPatch noMemory("oleaut32.dll", "SysAllocString", &HaveNoMemory);

    Host host;

    ExpectDefaults(host);
    const std::string text = SystemText(E_OUTOFMEMORY);
    EXPECT_THAT(Logged(), ElementsAre(kGetting, "(2:4), Tarrow service configuration failed with " +
                                                    (text.empty() ? "Unknown error 0x8007000E" : text)));
}

TEST_F(CloudServerHostTest, WhereverMemoryEndsTheAddressesBelongTogetherAndComIsBalanced)
{
    WriteConfiguration(
        Configuration("a long name of the mode",
                      Server("a long name of the mode", "https://a.long.address", "https://a.long.address/mcapi")));
    UtilsLib::Logger::GetInstance();
    int unmade = 0;
    int unread = 0;
    bool happened = true;
    for (int failing = 1; happened; ++failing)
    {
        ASSERT_LT(failing, 1'000);
        SCOPED_TRACE(failing);
        std::string address;
        std::string mcAddress;
        try
        {
            const TestSupport::AllocationFault fault(failing);
            Host host;
            happened = fault.Happened();
            address.swap(const_cast<std::string&>(host.GetAddress()));
            mcAddress.swap(const_cast<std::string&>(host.GetMCAddress()));
        }
        catch (const std::bad_alloc&)
        {
            ++unmade; // the defaults themselves
            continue;
        }
        EXPECT_TRUE(IsComBalanced());
        unread += address == kDrive ? 1 : 0;
        EXPECT_EQ(address, address == kDrive ? kDrive : "https://a.long.address");
        EXPECT_EQ(mcAddress, address + "/mcapi");
    }

    EXPECT_GT(unmade, 0);
    EXPECT_GT(unread, 4);
    EXPECT_THAT(Logged(),
                testing::Contains("(2:4), Tarrow service configuration failed for an unknown reason").Times(unread));
}

TEST_F(CloudServerHostTest, AThreadWithoutComHasNoneAfterwards)
{
    WriteConfiguration(Sample());
    ASSERT_EQ(CloudTests::Apartment(), std::nullopt);

    Host host;

    ExpectAddresses(host, "https://test", "https://test/mcapi");
    EXPECT_EQ(CloudTests::Apartment(), std::nullopt);
}

TEST_F(CloudServerHostTest, ACallerKeepsItsOwnApartmentOfEitherKind)
{
    WriteConfiguration(Sample());
    {
        const CloudTests::ScopedApartment own(COINIT_APARTMENTTHREADED);
        Host host;
        ExpectAddresses(host, "https://test", "https://test/mcapi");
        EXPECT_NE(CloudTests::Apartment(), std::nullopt);
    }
    {
        const CloudTests::ScopedApartment own(COINIT_MULTITHREADED);
        Host host;
        ExpectAddresses(host, "https://test", "https://test/mcapi");
        EXPECT_EQ(CloudTests::Apartment(), APTTYPE_MTA);
    }
    EXPECT_EQ(CloudTests::Apartment(), std::nullopt);
}

TEST_F(CloudServerHostTest, NothingIsLeftOfAReading)
{
    m_machine.SetDword("hx41svc_logging", 0);
    UtilsLib::LiveRegSettings::GetInstance().Read();
    UtilsLib::Logger::GetInstance().SetRegistryKey("hx41svc_logging");
    const CloudTests::ScopedApartment apartment(COINIT_APARTMENTTHREADED); // the parser stays loaded
    const std::string good = Server("a", "1", "2");
    for (const std::string& text :
         {Configuration("a", good), Configuration("b", good), Configuration("a", good + "<!-- -->"),
          Configuration("a", good + "<s name='a'/>"), std::string("<tarrowConfig mode='a'/>"), std::string("no")})
    {
        SCOPED_TRACE(text);
        WriteConfiguration(text);
        constexpr std::size_t kRuns = 40;
        const auto run = [] {
            for (std::size_t i = 0; i < kRuns; ++i)
            {
                const Host host;
            }
        };
        run();

        const std::size_t before = TestSupport::LiveBlocks();
        run();

        EXPECT_LT(TestSupport::LiveBlocks(), before + kRuns);
    }
}

TEST_F(CloudServerHostTest, TheOneInstanceReadsTheFileOnceAndStays)
{
    WriteConfiguration(Sample());
    CloudServerHost* const host = CloudServerHost::GetInstance();
    ASSERT_NE(host, nullptr);
    WriteConfiguration(Configuration("a", Server("a", "1", "2")));

    EXPECT_EQ(CloudServerHost::GetInstance(), host);

    EXPECT_EQ(CloudTests::g_system.shellCalls.size(), 1u);
    ExpectAddresses(*host, "https://test", "https://test/mcapi");
}

TEST_F(CloudServerHostTest, ItIsTwoTextsAndCopiedAndMovedAsThese)
{
    struct Fields
    {
        std::string address;
        std::string mcAddress;
    };
    static_assert(sizeof(CloudServerHost) == sizeof(Fields));
    static_assert(!std::is_default_constructible_v<CloudServerHost> && std::is_destructible_v<CloudServerHost>);
    static_assert(std::is_nothrow_move_constructible_v<CloudServerHost>);
    WriteConfiguration(Sample());
    Host host;
    WriteConfiguration(Configuration("a", Server("a", "1", "2")));
    CloudServerHost other = Host();
    ExpectAddresses(other, "1", "2");
    const auto& fields = TestSupport::FieldsOf<Fields>(host);
    EXPECT_EQ(fields.address, "https://test");
    EXPECT_EQ(fields.mcAddress, "https://test/mcapi");

    CloudServerHost copy = host;
    ExpectAddresses(copy, "https://test", "https://test/mcapi");
    EXPECT_NE(&copy.GetAddress(), &host.GetAddress());
    other = copy;
    ExpectAddresses(other, "https://test", "https://test/mcapi");
    CloudServerHost moved = std::move(copy);
    ExpectAddresses(moved, "https://test", "https://test/mcapi");
    moved = Host();
    ExpectAddresses(moved, "1", "2");
}
