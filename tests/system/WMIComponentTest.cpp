#include <UtilsLib/system/WMIComponent.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueInterface.h>

#include <tests/support/FieldsOf.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/InterfacePatch.h>
#include <tests/support/LiveBlocks.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <comdef.h>
#include <wbemidl.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using TestSupport::FieldsOf;
using TestSupport::ImportPatch;
using TestSupport::InterfacePatch;
using UtilsLib::WMIComponent;
using UtilsLib::Platform::UniqueInterface;

namespace
{

constexpr wchar_t kNamespace[] = L"root\\cimv2";
constexpr std::size_t kRelease = 2; // slots
constexpr std::size_t kConnectServer = 3;
constexpr std::size_t kExecQuery = 20;
constexpr std::size_t kNext = 4;
constexpr std::size_t kGet = 4;

struct Fields
{
    IWbemLocator* locator;
    IWbemServices* services;
};

const Fields& FieldsIn(const WMIComponent& component)
{
    return FieldsOf<Fields>(component);
}

ULONG References(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

std::wstring TextOf(const CComBSTR& string)
{
    return string.m_str == nullptr ? L"(null)" : std::wstring(string.m_str, string.Length());
}

std::string Narrow(BSTR text)
{
    return text == nullptr ? "null" : std::string(text, text + SysStringLen(text));
}

std::wstring Query(WMIComponent& component, const wchar_t* property, const wchar_t* className)
{
    return TextOf(component.QueryStringPropertyFromWMIClass(property, className));
}

std::wstring ComputerName()
{
    std::array<wchar_t, MAX_COMPUTERNAME_LENGTH + 1> name{};
    DWORD size = static_cast<DWORD>(name.size());
    EXPECT_TRUE(GetComputerNameW(name.data(), &size));
    return name.data();
}

UniqueInterface<IWbemClassObject> AnyObject(IWbemServices* services)
{
    const CComBSTR language = L"WQL";
    const CComBSTR query = L"Select Name FROM Win32_Processor";
    UniqueInterface<IEnumWbemClassObject> objects;
    UniqueInterface<IWbemClassObject> object;
    ULONG count = 0;
    EXPECT_EQ(services->ExecQuery(language, query, 0, nullptr, objects.Put()), S_OK);
    EXPECT_EQ(objects.Get()->Next(static_cast<LONG>(WBEM_INFINITE), 1, object.Put(), &count), S_OK);
    return object;
}

/// What was asked of COM, which does it too.
std::vector<std::string> g_calls;
HRESULT(WINAPI* g_initialize)(void*, DWORD) = nullptr;
void(WINAPI* g_uninitialize)() = nullptr;

HRESULT WINAPI NoteInitialize(void* reserved, DWORD kind)
{
    g_calls.push_back("initialize " + std::to_string(kind));
    return g_initialize(reserved, kind);
}

void WINAPI NoteUninitialize()
{
    g_calls.emplace_back("uninitialize");
    g_uninitialize();
}

HRESULT WINAPI NoteSecurity(PSECURITY_DESCRIPTOR descriptor, LONG services, SOLE_AUTHENTICATION_SERVICE* list,
                            void* reserved, DWORD authentication, DWORD impersonation, void* authenticationList,
                            DWORD capabilities, void* reserved3)
{
    EXPECT_EQ(descriptor, nullptr);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(reserved, nullptr);
    EXPECT_EQ(authenticationList, nullptr);
    EXPECT_EQ(reserved3, nullptr);
    g_calls.push_back("security " + std::to_string(services) + " " + std::to_string(authentication) + " " +
                      std::to_string(impersonation) + " " + std::to_string(capabilities));
    return RPC_E_TOO_LATE; // the host has set its own
}

HRESULT WINAPI NoteBlanket(IUnknown* proxy, DWORD authentication, DWORD authorisation, OLECHAR* principal, DWORD level,
                           DWORD impersonation, RPC_AUTH_IDENTITY_HANDLE identity, DWORD capabilities)
{
    EXPECT_NE(proxy, nullptr);
    EXPECT_EQ(principal, nullptr);
    EXPECT_EQ(identity, nullptr);
    g_calls.push_back("blanket " + std::to_string(authentication) + " " + std::to_string(authorisation) + " " +
                      std::to_string(level) + " " + std::to_string(impersonation) + " " + std::to_string(capabilities));
    return E_ACCESSDENIED;
}

HRESULT WINAPI MakeNothing(const CLSID& classId, IUnknown*, DWORD context, const IID&, void**)
{
    EXPECT_EQ(classId, CLSID_WbemLocator);
    EXPECT_EQ(context, DWORD{CLSCTX_INPROC_SERVER});
    return REGDB_E_CLASSNOTREG;
}

HRESULT WINAPI NoteConnect(IWbemLocator*, BSTR path, BSTR user, BSTR password, BSTR locale, long flags, BSTR authority,
                           IWbemContext* context, IWbemServices**)
{
    EXPECT_EQ(context, nullptr);
    g_calls.push_back("connect " + Narrow(path) + " " + Narrow(user) + " " + Narrow(password) + " " + Narrow(locale) +
                      " " + std::to_string(flags) + " " + Narrow(authority));
    return E_ACCESSDENIED;
}

HRESULT WINAPI NoteQuery(IWbemServices*, BSTR language, BSTR query, long flags, IWbemContext* context,
                         IEnumWbemClassObject**)
{
    EXPECT_EQ(context, nullptr);
    g_calls.push_back("query " + Narrow(language) + ": " + Narrow(query) + " " + std::to_string(flags));
    return E_INVALIDARG;
}

HRESULT WINAPI NoteNext(IEnumWbemClassObject*, long timeout, ULONG count, IWbemClassObject**, ULONG* returned)
{
    g_calls.push_back("next " + std::to_string(timeout) + " " + std::to_string(count));
    *returned = 0;
    return WBEM_S_FALSE;
}

VARIANT g_property{}; // what an object answers for every property
HRESULT g_propertyResult = S_OK;

HRESULT WINAPI GetAsTold(IWbemClassObject*, const wchar_t* name, long flags, VARIANT* value, CIMTYPE* /*type*/,
                         long* /*flavor*/)
{
    EXPECT_STREQ(name, L"Name");
    EXPECT_EQ(flags, 0);
    *value = g_property; // not by VariantCopy, which makes a null string an empty one
    if (V_VT(value) == VT_BSTR && V_BSTR(value) != nullptr)
    {
        V_BSTR(value) = SysAllocStringLen(V_BSTR(value), SysStringLen(V_BSTR(value)));
    }
    return g_propertyResult;
}

template <WORD Type>
VARIANT Holding(BSTR string)
{
    VARIANT value{};
    V_VT(&value) = Type;
    V_BSTR(&value) = string; // or any bits
    return value;
}

ULONG(WINAPI* g_releaseServices)(IUnknown*) = nullptr;
ULONG(WINAPI* g_releaseLocator)(IUnknown*) = nullptr;

ULONG WINAPI NoteReleaseOfServices(IUnknown* object)
{
    g_calls.emplace_back("release services");
    return g_releaseServices(object);
}

ULONG WINAPI NoteReleaseOfLocator(IUnknown* object)
{
    g_calls.emplace_back("release locator");
    return g_releaseLocator(object);
}

HRESULT WINAPI NoteMaking(const CLSID&, IUnknown*, DWORD, const IID&, void**)
{
    g_calls.emplace_back("locator");
    return REGDB_E_CLASSNOTREG;
}

int g_allocation = 0; // the one that fails, counted down
BSTR(WINAPI* g_allocate)(const wchar_t*, UINT) = nullptr;

BSTR WINAPI AllocateUntil(const wchar_t* text, UINT length)
{
    return --g_allocation == 0 ? nullptr : g_allocate(text, length);
}

class WMIComponentTest : public testing::Test
{
protected:
    WMIComponentTest()
    {
        g_calls.clear();
    }
};

} // namespace

TEST_F(WMIComponentTest, TheProcessorHasAName)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));

    const CComBSTR name = component.QueryStringPropertyFromWMIClass(L"Name", L"Win32_Processor");

    EXPECT_GT(name.Length(), 3u);
}

TEST_F(WMIComponentTest, ThePropertyIsTheOneThatIsAskedFor)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));

    EXPECT_EQ(Query(component, L"Name", L"Win32_ComputerSystem"), ComputerName());
    EXPECT_NE(Query(component, L"Manufacturer", L"Win32_Processor"), Query(component, L"Name", L"Win32_Processor"));
}

TEST_F(WMIComponentTest, ANamespaceThatDoesNotExistIsRefusedAndLeavesNoServices)
{
    WMIComponent component;

    EXPECT_FALSE(component.InitializeWMI(L"root\\nosuch"));

    EXPECT_NE(FieldsIn(component).locator, nullptr);
    EXPECT_EQ(FieldsIn(component).services, nullptr);
    EXPECT_EQ(Query(component, L"Name", L"Win32_Processor"), L"");
}

TEST_F(WMIComponentTest, AnEmptyNamespaceConnectsToNothing)
{
    const WMIComponent component;

    EXPECT_FALSE(component.InitializeWMI(CComBSTR()));
    EXPECT_EQ(FieldsIn(component).services, nullptr);
    EXPECT_FALSE(component.InitializeWMI(L""));

    EXPECT_EQ(FieldsIn(component).services, nullptr);
}

TEST_F(WMIComponentTest, BeforeItIsConnectedEveryTextIsEmpty)
{
    WMIComponent component;

    EXPECT_EQ(FieldsIn(component).locator, nullptr);
    EXPECT_EQ(FieldsIn(component).services, nullptr);
    EXPECT_EQ(Query(component, L"Name", L"Win32_Processor"), L"");
}

TEST_F(WMIComponentTest, AClassThatIsMissingOrHasNoInstancesAndABadQueryGiveTheEmptyText)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));

    EXPECT_EQ(Query(component, L"Name", L"Win32_NoSuch"), L"");
    EXPECT_EQ(Query(component, L"Name", L"Win32_Processor WHERE Name = 'nobody'"), L"");
    EXPECT_EQ(Query(component, L"1 2", L"3 4"), L"");
    EXPECT_EQ(TextOf(component.QueryStringPropertyFromWMIClass(CComBSTR(), CComBSTR())), L"");
}

TEST_F(WMIComponentTest, APropertyThatIsMissingOrHoldsANumberGivesANullText)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));

    EXPECT_EQ(Query(component, L"NumberOfCores", L"Win32_Processor"), L"(null)");
    EXPECT_EQ(Query(component, L"NoSuchProperty", L"Win32_Processor"), L"(null)");
}

TEST_F(WMIComponentTest, OnlyTheStringOfAStringVariantIsFollowedWhateverThePropertyHolds)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));
    const BSTR nowhere = reinterpret_cast<BSTR>(std::uintptr_t{2}); // a number's bits
    const CComBSTR empty = L"";
    CComBSTR zeroed;
    zeroed.Attach(SysAllocStringLen(L"a\0b", 3));
    struct
    {
        VARIANT property;
        HRESULT result;
        std::wstring expected;
    } const rows[] = {
        {Holding<VT_BSTR>(zeroed), S_OK, std::wstring(L"a\0b", 3)},
        {Holding<VT_BSTR>(empty), S_OK, L""},
        {Holding<VT_BSTR>(nullptr), S_OK, L"(null)"},
        {Holding<VT_NULL>(nullptr), S_OK, L"(null)"},
        {Holding<VT_NULL>(nowhere), S_OK, L"(null)"},
        {Holding<VT_EMPTY>(nowhere), static_cast<HRESULT>(WBEM_E_NOT_FOUND), L"(null)"},
        {Holding<VT_I4>(nowhere), S_OK, L"(null)"},
        {Holding<VT_BOOL>(nowhere), S_OK, L"(null)"},
        {Holding<VT_R8>(nowhere), S_OK, L"(null)"},
        {Holding<VT_UNKNOWN>(nullptr), S_OK, L"(null)"},
        {Holding<VT_ARRAY | VT_BSTR>(nullptr), S_OK, L"(null)"},
    };
    const auto object = AnyObject(FieldsIn(component).services);
    const InterfacePatch get(object.Get(), kGet, &GetAsTold);
    for (const auto& row : rows)
    {
        g_property = row.property;
        g_propertyResult = row.result;
        EXPECT_EQ(Query(component, L"Name", L"Win32_Processor"), row.expected) << V_VT(&row.property);
    }
}

TEST_F(WMIComponentTest, TheQueryAndItsFlagsAreThoseOfAForwardReadOfOneObject)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));
    {
        const InterfacePatch query(FieldsIn(component).services, kExecQuery, &NoteQuery);
        EXPECT_EQ(Query(component, L"Some", L"Thing"), L"");
    }
    IEnumWbemClassObject* objects = nullptr;
    const CComBSTR language = L"WQL";
    const CComBSTR any = L"Select Name FROM Win32_Processor";
    ASSERT_EQ(FieldsIn(component).services->ExecQuery(language, any, 0, nullptr, &objects), S_OK);
    {
        const InterfacePatch next(objects, kNext, &NoteNext);
        EXPECT_EQ(Query(component, L"Name", L"Win32_Processor"), L"");
    }
    objects->Release();

    EXPECT_THAT(g_calls, ElementsAre("query WQL: Select Some FROM Thing 48", "next -1 1"));
}

TEST_F(WMIComponentTest, ItConnectsAsTheCurrentUser)
{
    const WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));

    const InterfacePatch connect(FieldsIn(component).locator, kConnectServer, &NoteConnect);
    EXPECT_FALSE(component.InitializeWMI(L"root\\some"));

    EXPECT_THAT(g_calls, ElementsAre("connect root\\some null null null 0 null"));
}

TEST_F(WMIComponentTest, WithoutALocatorNothingConnects)
{
    const WMIComponent component;
    {
        const ImportPatch nothing("ole32.dll", "CoCreateInstance", &MakeNothing);
        EXPECT_FALSE(component.InitializeWMI(kNamespace));
    }
    EXPECT_EQ(FieldsIn(component).locator, nullptr);
    EXPECT_EQ(FieldsIn(component).services, nullptr);
}

TEST_F(WMIComponentTest, AConnectionWhoseSecurityCannotBeSetIsGivenUp)
{
    WMIComponent component;
    {
        const ImportPatch blanket("ole32.dll", "CoSetProxyBlanket", &NoteBlanket);
        EXPECT_FALSE(component.InitializeWMI(kNamespace));
    }
    EXPECT_THAT(g_calls, ElementsAre("blanket 10 0 3 3 0"));
    EXPECT_EQ(FieldsIn(component).services, nullptr);
    EXPECT_EQ(Query(component, L"Name", L"Win32_Processor"), L"");
}

TEST_F(WMIComponentTest, COMsSecurityIsSetByTheFirstComponentOfTheProcessOnlyWhateverItAnswers)
{
    const ImportPatch security("ole32.dll", "CoInitializeSecurity", &NoteSecurity);
    const WMIComponent first;
    EXPECT_THAT(g_calls, ElementsAre());
    EXPECT_TRUE(first.InitializeWMI(kNamespace));
    EXPECT_THAT(g_calls, ElementsAre("security -1 0 3 0"));

    EXPECT_TRUE(first.InitializeWMI(kNamespace));
    const WMIComponent second;
    EXPECT_TRUE(second.InitializeWMI(kNamespace));

    EXPECT_EQ(g_calls.size(), 1u);
}

TEST_F(WMIComponentTest, COMsSecurityIsSetBeforeAnObjectIsMade)
{
    const WMIComponent component;
    const ImportPatch security("ole32.dll", "CoInitializeSecurity", &NoteSecurity);
    const ImportPatch making("ole32.dll", "CoCreateInstance", &NoteMaking);

    EXPECT_FALSE(component.InitializeWMI(kNamespace));

    EXPECT_THAT(g_calls, ElementsAre("security -1 0 3 0", "locator"));
}

TEST_F(WMIComponentTest, ItsEndReleasesTheServicesThenTheLocatorThenUndoesCOM)
{
    auto component = std::make_unique<WMIComponent>();
    const WMIComponent keepsComLoaded;
    ASSERT_TRUE(component->InitializeWMI(kNamespace));
    const InterfacePatch services(FieldsIn(*component).services, kRelease, &NoteReleaseOfServices);
    const InterfacePatch locator(FieldsIn(*component).locator, kRelease, &NoteReleaseOfLocator);
    const ImportPatch uninitialize("ole32.dll", "CoUninitialize", &NoteUninitialize);
    g_releaseServices = services.Original<ULONG WINAPI(IUnknown*)>();
    g_releaseLocator = locator.Original<ULONG WINAPI(IUnknown*)>();
    g_uninitialize = uninitialize.Original<void WINAPI()>();

    component.reset();

    EXPECT_THAT(g_calls, ElementsAre("release services", "release locator", "uninitialize"));
}

TEST_F(WMIComponentTest, ASecondConnectionReleasesTheFirst)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));
    const Fields first = FieldsIn(component);
    first.locator->AddRef();
    first.services->AddRef();

    EXPECT_TRUE(component.InitializeWMI(kNamespace));

    EXPECT_NE(FieldsIn(component).locator, first.locator);
    EXPECT_NE(FieldsIn(component).services, first.services);
    EXPECT_EQ(Query(component, L"Name", L"Win32_ComputerSystem"), ComputerName());
    EXPECT_EQ(first.services->Release(), 0u);
    EXPECT_EQ(first.locator->Release(), 0u);
}

TEST_F(WMIComponentTest, ASecondConnectionThatFailsReleasesTheFirstToo)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));
    IWbemServices* const services = FieldsIn(component).services;
    services->AddRef();

    EXPECT_FALSE(component.InitializeWMI(L"root\\nosuch"));

    EXPECT_EQ(FieldsIn(component).services, nullptr);
    EXPECT_EQ(Query(component, L"Name", L"Win32_Processor"), L"");
    EXPECT_EQ(services->Release(), 0u);
}

TEST_F(WMIComponentTest, CopiesTakeReferencesOfTheirOwn)
{
    auto source = std::make_unique<WMIComponent>();
    ASSERT_TRUE(source->InitializeWMI(kNamespace));
    const Fields held = FieldsIn(*source);
    {
        WMIComponent copy = *source;
        EXPECT_EQ(FieldsIn(copy).locator, held.locator);
        EXPECT_EQ(FieldsIn(copy).services, held.services);
        EXPECT_EQ(References(held.locator), 2u);
        EXPECT_EQ(References(held.services), 2u);
        WMIComponent& same = copy;
        copy = same;
        EXPECT_EQ(References(held.services), 2u);
        copy = WMIComponent();
        EXPECT_EQ(FieldsIn(copy).locator, nullptr);
        EXPECT_EQ(FieldsIn(copy).services, nullptr);
        EXPECT_EQ(References(held.locator), 1u);
        EXPECT_EQ(References(held.services), 1u);
        copy = *source;
        EXPECT_EQ(References(held.locator), 2u);
        EXPECT_EQ(References(held.services), 2u);
        copy = *source;
        EXPECT_EQ(References(held.services), 2u);

        source.reset();
        EXPECT_EQ(Query(copy, L"Name", L"Win32_ComputerSystem"), ComputerName());
        held.locator->AddRef();
        held.services->AddRef();
    }
    EXPECT_EQ(held.services->Release(), 0u);
    EXPECT_EQ(held.locator->Release(), 0u);
}

TEST_F(WMIComponentTest, EveryComponentInitialisesCOMOnceAndUndoesItOnce)
{
    const ImportPatch initialize("ole32.dll", "CoInitializeEx", &NoteInitialize);
    const ImportPatch uninitialize("ole32.dll", "CoUninitialize", &NoteUninitialize);
    g_initialize = initialize.Original<HRESULT WINAPI(void*, DWORD)>();
    g_uninitialize = uninitialize.Original<void WINAPI()>();
    {
        const WMIComponent component;
        component.InitializeWMI(kNamespace);
        component.InitializeWMI(L"root\\nosuch");
        WMIComponent copy = component;
        copy = component;
        EXPECT_THAT(g_calls, ElementsAre("initialize 0", "initialize 0"));
    }
    EXPECT_THAT(g_calls, ElementsAre("initialize 0", "initialize 0", "uninitialize", "uninitialize"));
}

TEST_F(WMIComponentTest, InASingleThreadedApartmentItTakesAnInitialisationAway)
{
    HRESULT after = S_OK;
    std::thread([&after] {
        ASSERT_EQ(CoInitialize(nullptr), S_OK);
        {
            const WMIComponent component;
        }
        APTTYPE type{};
        APTTYPEQUALIFIER qualifier{};
        after = CoGetApartmentType(&type, &qualifier);
    }).join();
    EXPECT_EQ(after, CO_E_NOTINITIALIZED);
}

TEST_F(WMIComponentTest, WithoutMemoryForATextItThrowsTheComErrorAndLeaksNothing)
{
    WMIComponent component;
    ASSERT_TRUE(component.InitializeWMI(kNamespace));
    const CComBSTR property = L"Name";
    const CComBSTR className = L"Win32_Processor"; // which leaks nothing by itself
    const ImportPatch allocate("oleaut32.dll", "SysAllocStringLen", &AllocateUntil);
    g_allocate = allocate.Original<BSTR WINAPI(const wchar_t*, UINT)>();
    const auto run = [&](int failing) {
        g_allocation = failing;
        try
        {
            component.QueryStringPropertyFromWMIClass(property, className);
            return S_OK;
        }
        catch (const _com_error& error)
        {
            return error.Error();
        }
    };
    for (int failing = 1; failing <= 3; ++failing) // the query, the language, the result
    {
        EXPECT_EQ(run(failing), E_OUTOFMEMORY) << failing;
    }
    EXPECT_EQ(run(4), S_OK);

    constexpr int kRuns = 60;
    const auto runAll = [&] {
        for (int i = 0; i < kRuns; ++i)
        {
            run(i % 4);
        }
    };
    runAll();
    const std::size_t before = TestSupport::LiveBlocks();
    runAll();
    EXPECT_LT(TestSupport::LiveBlocks(), before + kRuns / 4);
}

TEST_F(WMIComponentTest, NothingIsLeftOfComponentsAndQueries)
{
    const auto run = [] {
        WMIComponent component;
        component.InitializeWMI(kNamespace);
        for (const wchar_t* const property : {L"Name", L"NumberOfCores", L"NoSuchProperty", L"1 2"})
        {
            Query(component, property, L"Win32_Processor");
        }
        Query(component, L"Name", L"Win32_NoSuch");
        const WMIComponent copy = component;
        copy.InitializeWMI(L"root\\nosuch");
        const ImportPatch blanket("ole32.dll", "CoSetProxyBlanket", &NoteBlanket);
        copy.InitializeWMI(kNamespace);
        g_calls.clear();
        g_calls.shrink_to_fit();
    };
    const WMIComponent keepsComLoaded;
    constexpr std::size_t kRuns = 20;
    for (int i = 0; i < 5; ++i)
    {
        run();
    }

    const std::size_t before = TestSupport::LiveBlocks();
    for (std::size_t i = 0; i < kRuns; ++i)
    {
        run();
    }

    EXPECT_LT(TestSupport::LiveBlocks(), before + kRuns);
}
