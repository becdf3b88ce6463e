#include <UtilsLib/registry/RegUtils.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/ScopedMachineHive.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using TestSupport::ImportPatch;
using TestSupport::ScopedMachineHive;
using UtilsLib::RegUtils;

namespace
{

constexpr unsigned long kUntouched = 0xAABBCCDD;
const char* const kProductKey = "Software\\Corvane\\Halden";

struct Opening
{
    HKEY root;
    std::string path;
    unsigned long options;
    unsigned long access;
};

struct Query
{
    std::string name;
    const void* data;
    unsigned long type; // as preset; none when the caller does not ask for it
    unsigned long size;
    std::vector<unsigned char> before; // what the buffer held
};

// What the library asked of the system since the test began. Only one test runs in a process at a time.
struct Calls
{
    std::vector<Opening> openings;
    std::vector<Query> queries;
    std::vector<HKEY> opened;
    std::vector<HKEY> closed;
};
Calls g_calls;

LSTATUS WINAPI RecordOpen(HKEY root, const char* path, DWORD options, REGSAM access, HKEY* key)
{
    g_calls.openings.push_back({root, path, options, access});
    const LSTATUS status = RegOpenKeyExA(root, path, options, access, key);
    if (status == ERROR_SUCCESS)
    {
        g_calls.opened.push_back(*key);
    }
    return status;
}

LSTATUS WINAPI RecordQuery(HKEY key, const char* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size)
{
    Query query{name, data, type ? *type : 0, *size, {}};
    if (data != nullptr)
    {
        query.before.assign(data, data + *size);
    }
    g_calls.queries.push_back(query);
    return RegQueryValueExA(key, name, reserved, type, data, size);
}

LSTATUS WINAPI RecordClose(HKEY key)
{
    g_calls.closed.push_back(key);
    return RegCloseKey(key);
}

LSTATUS WINAPI OpenFailsWithAHandle(HKEY, const char*, DWORD, REGSAM, HKEY* key)
{
    *key = reinterpret_cast<HKEY>(0x1234);
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI ScribbleAndFail(HKEY, const char*, DWORD*, DWORD*, BYTE* data, DWORD* size)
{
    std::memset(data, 0xEE, *size);
    *size = 64;
    return ERROR_MORE_DATA;
}

LSTATUS WINAPI ClaimFourGigabytes(HKEY, const char*, DWORD*, DWORD*, BYTE* data, DWORD* size)
{
    EXPECT_EQ(data, nullptr);
    *size = 0xFFFFFFFF;
    return ERROR_SUCCESS;
}

const ScopedMachineHive* g_machine = nullptr;

// Another program writes a longer, or a shorter, text between the two queries.
template <bool longer>
LSTATUS WINAPI QueryAndChange(HKEY key, const char* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size)
{
    const LSTATUS status = RegQueryValueExA(key, name, reserved, type, data, size);
    if (data == nullptr)
    {
        g_machine->SetText(name, longer ? "a longer text than before" : "s");
    }
    return status;
}

class RegUtilsTest : public testing::Test
{
protected:
    RegUtilsTest()
    {
        g_calls = {};
        g_machine = &m_machine;
    }

    ScopedMachineHive m_machine;
};

// Every call out of the library goes through the recorder while it lives.
class RecordedRegUtilsTest : public RegUtilsTest
{
protected:
    const ImportPatch m_open{"ADVAPI32.dll", "RegOpenKeyExA", &RecordOpen};
    const ImportPatch m_query{"ADVAPI32.dll", "RegQueryValueExA", &RecordQuery};
};

} // namespace

// --- Numbers

TEST_F(RegUtilsTest, ReadsANumber)
{
    m_machine.SetDword("switch", 0x89ABCDEF);
    unsigned long value = 0;

    EXPECT_TRUE(RegUtils::ReadHaldenRegDword("switch", value));

    EXPECT_EQ(value, 0x89ABCDEFu);
}

TEST_F(RegUtilsTest, ReadDwordOfAOneCharacterTextOverwritesOnlyItsLowTwoBytes)
{
    m_machine.SetText("switch", "1"); // two bytes with its terminator
    unsigned long value = 0xAABB0000;
    unsigned long zero = 0;

    EXPECT_TRUE(RegUtils::ReadHaldenRegDword("switch", value));
    EXPECT_TRUE(RegUtils::ReadHaldenRegDword("switch", zero));

    EXPECT_EQ(value, 0xAABB0031u);
    EXPECT_EQ(zero, 49u);
}

TEST_F(RegUtilsTest, ReadDwordTakesUpToFourBytesOfAnyType)
{
    const struct
    {
        unsigned long type;
        std::vector<unsigned char> stored;
        unsigned long expected;
    } cases[] = {
        {REG_BINARY, {}, 0xAABBCCDD},
        {REG_BINARY, {0x11}, 0xAABBCC11},
        {REG_BINARY, {0x11, 0x22}, 0xAABB2211},
        {REG_BINARY, {0x11, 0x22, 0x33}, 0xAA332211},
        {REG_BINARY, {0x11, 0x22, 0x33, 0x44}, 0x44332211},
        {REG_NONE, {0x11, 0x22, 0x33, 0x44}, 0x44332211},
        {REG_DWORD, {0x11, 0x22, 0x33, 0x44}, 0x44332211},
        {REG_DWORD_BIG_ENDIAN, {0x11, 0x22, 0x33, 0x44}, 0x44332211},
        {REG_SZ, {'a', 'b', 'c', 0}, 0x00636261},
        {REG_EXPAND_SZ, {'a', 'b', 'c', 0}, 0x00636261},
        {REG_MULTI_SZ, {'a', 0, 0}, 0xAA000061},
    };
    for (const auto& one : cases)
    {
        m_machine.SetBytes("switch", one.type, one.stored);
        unsigned long value = kUntouched;

        EXPECT_TRUE(RegUtils::ReadHaldenRegDword("switch", value)) << one.type << " of " << one.stored.size();

        EXPECT_EQ(value, one.expected) << one.type << " of " << one.stored.size();
    }
}

TEST_F(RegUtilsTest, ReadDwordOfMoreThanFourBytesFailsAndLeavesTheNumber)
{
    const struct
    {
        unsigned long type;
        std::vector<unsigned char> stored;
    } cases[] = {
        {REG_BINARY, {1, 2, 3, 4, 5}},
        {REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}},
        {REG_SZ, {'1', '2', '3', '4', 0}},
        {REG_SZ, {'1', '2', '3', '4', '5', 0}},
        {REG_MULTI_SZ, {'1', '2', 0, '3', 0, 0}},
    };
    for (const auto& one : cases)
    {
        m_machine.SetBytes("switch", one.type, one.stored);
        unsigned long value = kUntouched;

        EXPECT_FALSE(RegUtils::ReadHaldenRegDword("switch", value)) << one.type << " of " << one.stored.size();
        EXPECT_FALSE(RegUtils::ReadHaldenRegDword("switch", value, 0)) << one.type << " of " << one.stored.size();

        EXPECT_EQ(value, kUntouched) << one.type << " of " << one.stored.size();
    }
}

TEST_F(RegUtilsTest, ReadDwordPutsTheNumberBackWhenAFailedQueryChangedIt)
{
    const ImportPatch scribble("ADVAPI32.dll", "RegQueryValueExA", &ScribbleAndFail);
    unsigned long value = kUntouched;

    EXPECT_FALSE(RegUtils::ReadHaldenRegDword("switch", value));

    EXPECT_EQ(value, kUntouched);
}

TEST_F(RegUtilsTest, ReadDwordOfAMissingValueFailsAndLeavesTheNumber)
{
    unsigned long value = kUntouched;

    EXPECT_FALSE(RegUtils::ReadHaldenRegDword("switch", value));

    EXPECT_EQ(value, kUntouched);
}

TEST_F(RegUtilsTest, ReadDwordAcceptsTheRegistryViewFlags)
{
    m_machine.SetDword("switch", 7);
    for (const unsigned long view :
         {0ul, static_cast<unsigned long>(KEY_WOW64_32KEY), static_cast<unsigned long>(KEY_WOW64_64KEY)})
    {
        unsigned long value = 0;
        EXPECT_TRUE(RegUtils::ReadHaldenRegDword("switch", value, view)) << view;
        EXPECT_EQ(value, 7u) << view;
    }
}

TEST_F(RecordedRegUtilsTest, ReadDwordQueriesStraightIntoTheCallersNumber)
{
    m_machine.SetDword("switch", 7);
    unsigned long value = kUntouched;

    ASSERT_TRUE(RegUtils::ReadHaldenRegDword("switch", value));

    ASSERT_EQ(g_calls.queries.size(), 1u);
    EXPECT_EQ(g_calls.queries[0].name, "switch");
    EXPECT_EQ(g_calls.queries[0].data, &value);
    EXPECT_EQ(g_calls.queries[0].size, 4u);
    EXPECT_EQ(g_calls.queries[0].type, static_cast<unsigned long>(REG_DWORD));
}

TEST_F(RegUtilsTest, WritesANumberThatIsReadBack)
{
    for (const unsigned long number : {0ul, 1ul, 0x80000000ul, 0xFFFFFFFFul})
    {
        unsigned long value = kUntouched;
        EXPECT_TRUE(RegUtils::WriteHaldenRegDword("switch", number));
        EXPECT_TRUE(RegUtils::ReadHaldenRegDword("switch", value));
        EXPECT_EQ(value, number);
    }
}

TEST_F(RegUtilsTest, WriteStoresFourBytesOfTypeDwordOverAnyType)
{
    m_machine.SetText("switch", "some text");

    EXPECT_TRUE(RegUtils::WriteHaldenRegDword("switch", 0x01020304));

    DWORD type = 0;
    unsigned char data[16] = {};
    DWORD size = sizeof(data);
    ASSERT_EQ(RegGetValueA(HKEY_LOCAL_MACHINE, kProductKey, "switch", RRF_RT_ANY, &type, data, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(data[0], 4);
    EXPECT_EQ(data[3], 1);
}

TEST_F(RegUtilsTest, DeletesAValueOfAnyTypeOnce)
{
    m_machine.SetDword("number", 1);
    m_machine.SetText("text", "a text");
    m_machine.SetBytes("bytes", REG_BINARY, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    for (const char* const name : {"number", "text", "bytes"})
    {
        EXPECT_TRUE(RegUtils::DeleteHaldenRegDword(name)) << name;
        EXPECT_FALSE(RegUtils::DeleteHaldenRegDword(name)) << name;
        std::string text = "untouched";
        EXPECT_FALSE(RegUtils::ReadHaldenRegString(name, text)) << name;
    }
}

TEST_F(RegUtilsTest, AnEmptyNameIsTheDefaultValue)
{
    unsigned long value = kUntouched;
    EXPECT_FALSE(RegUtils::DeleteHaldenRegDword(""));
    EXPECT_FALSE(RegUtils::ReadHaldenRegDword("", value));

    EXPECT_TRUE(RegUtils::WriteHaldenRegDword("", 9));

    EXPECT_TRUE(RegUtils::ReadHaldenRegDword("", value));
    EXPECT_EQ(value, 9u);
    EXPECT_TRUE(RegUtils::DeleteHaldenRegDword(""));
}

// --- Text

TEST_F(RegUtilsTest, ReadStringEndsAtTheFirstZeroByteOfAnyType)
{
    const struct
    {
        const char* what;
        unsigned long type;
        std::vector<unsigned char> stored;
        std::string expected;
    } cases[] = {
        {"text", REG_SZ, {'a', 'b', 'c', 0}, "abc"},
        {"without a terminator", REG_SZ, {'a', 'b', 'c'}, "abc"},
        {"embedded zero", REG_SZ, {'a', 0, 'c', 0}, "a"},
        {"leading zero", REG_SZ, {0, 'b', 'c', 0}, ""},
        {"two terminators", REG_SZ, {'a', 0, 0}, "a"},
        {"only a terminator", REG_SZ, {0}, ""},
        {"no bytes", REG_SZ, {}, ""},
        {"not expanded", REG_EXPAND_SZ, {'%', 'P', 'A', 'T', 'H', '%', 0}, "%PATH%"},
        {"list", REG_MULTI_SZ, {'a', 'b', 0, 'c', 0, 0}, "ab"},
        {"bytes", REG_BINARY, {'x', 'y', 'z'}, "xyz"},
        {"high bytes", REG_BINARY, {0xE9, 0x80, 0x00, 0x41}, "\xE9\x80"},
        {"number", REG_DWORD, {0x41, 0x42, 0x00, 0x01}, "AB"},
        {"number without a zero byte", REG_DWORD, {0x41, 0x42, 0x43, 0x44}, "ABCD"},
        {"number 0", REG_DWORD, {0, 0, 0, 0}, ""},
    };
    for (const auto& one : cases)
    {
        m_machine.SetBytes("text", one.type, one.stored);
        std::string value = "untouched";
        std::string same = "untouched";

        EXPECT_TRUE(RegUtils::ReadHaldenRegString("text", value)) << one.what;
        EXPECT_TRUE(RegUtils::ReadRegString(kProductKey, "text", same)) << one.what;

        EXPECT_EQ(value, one.expected) << one.what;
        EXPECT_EQ(same, one.expected) << one.what;
    }
}

TEST_F(RegUtilsTest, ReadStringOfALongTextIsWhole)
{
    const std::string text(100'000, 'x');
    m_machine.SetText("text", text);
    std::string value;

    EXPECT_TRUE(RegUtils::ReadHaldenRegString("text", value));

    EXPECT_EQ(value, text);
}

TEST_F(RegUtilsTest, ReadStringOfAMissingValueFailsAndLeavesTheText)
{
    std::string value = "untouched";

    EXPECT_FALSE(RegUtils::ReadHaldenRegString("text", value));
    EXPECT_FALSE(RegUtils::ReadRegString(kProductKey, "text", value));
    EXPECT_FALSE(RegUtils::ReadRegString("Software\\No\\Such\\Key", "text", value));
    EXPECT_FALSE(RegUtils::ReadRegString(kProductKey, "text", value, nullptr, KEY_READ));

    EXPECT_EQ(value, "untouched");
}

TEST_F(RecordedRegUtilsTest, ReadStringQueriesTheSizeAndThenAZeroFilledBufferOfIt)
{
    m_machine.SetText("text", "abc");
    std::string value;

    ASSERT_TRUE(RegUtils::ReadHaldenRegString("text", value));

    ASSERT_EQ(g_calls.queries.size(), 2u);
    EXPECT_EQ(g_calls.queries[0].data, nullptr);
    EXPECT_NE(g_calls.queries[1].data, nullptr);
    EXPECT_EQ(g_calls.queries[1].size, 4u);
    EXPECT_EQ(g_calls.queries[1].before, std::vector<unsigned char>(4));
}

TEST_F(RegUtilsTest, ReadStringOfAValueThatGrewBetweenTheQueriesFailsAndLeavesTheText)
{
    m_machine.SetText("text", "short");
    const ImportPatch grow("ADVAPI32.dll", "RegQueryValueExA", &QueryAndChange<true>);
    std::string value = "untouched";

    EXPECT_FALSE(RegUtils::ReadHaldenRegString("text", value));

    EXPECT_EQ(value, "untouched");
}

TEST_F(RegUtilsTest, ReadStringOfAValueThatShrankBetweenTheQueriesIsTheNewText)
{
    m_machine.SetText("text", "a text that is longer");
    const ImportPatch shrink("ADVAPI32.dll", "RegQueryValueExA", &QueryAndChange<false>);
    std::string value = "untouched";

    EXPECT_TRUE(RegUtils::ReadHaldenRegString("text", value));

    EXPECT_EQ(value, "s");
}

TEST_F(RegUtilsTest, ReadStringOfMoreThanMemoryHoldsFailsWithoutAnException)
{
    std::string value = "untouched";
    const ImportPatch claim("ADVAPI32.dll", "RegQueryValueExA", &ClaimFourGigabytes);
    RegUtils::ReadHaldenRegString("text",
                                  value); // the run-time opens handles of its own at a process's first exception
    const unsigned long before = TestSupport::OpenHandles();

    EXPECT_FALSE(RegUtils::ReadHaldenRegString("text", value));

    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(TestSupport::OpenHandles(), before);
}

TEST_F(RegUtilsTest, FullFormReadsBelowAnyRoot)
{
    const std::string path = "Software\\UtilsLibTests\\RegUtils" + std::to_string(GetCurrentProcessId());
    ASSERT_EQ(RegSetKeyValueA(HKEY_CURRENT_USER, path.c_str(), "text", REG_SZ, "mine", 5), ERROR_SUCCESS);
    std::string user;
    std::string machine = "untouched";

    EXPECT_TRUE(RegUtils::ReadRegString(path, "text", user, HKEY_CURRENT_USER, KEY_READ));
    EXPECT_FALSE(RegUtils::ReadRegString(path, "text", machine));

    EXPECT_EQ(user, "mine");
    EXPECT_EQ(machine, "untouched");
    RegDeleteTreeA(HKEY_CURRENT_USER, path.c_str());
}

TEST_F(RegUtilsTest, FullFormReadsBelowAnOpenKeyAndLeavesItOpen)
{
    m_machine.SetText("text", "abc");
    HKEY software = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Corvane", 0, KEY_READ, &software), ERROR_SUCCESS);
    std::string value;

    EXPECT_TRUE(RegUtils::ReadRegString("Halden", "text", value, software, KEY_QUERY_VALUE));

    EXPECT_EQ(value, "abc");
    EXPECT_EQ(RegCloseKey(software), ERROR_SUCCESS);
}

TEST_F(RegUtilsTest, FullFormWithoutTheRightToQueryFailsThoughTheValueExists)
{
    m_machine.SetText("text", "abc");
    for (const unsigned long access :
         {0ul, static_cast<unsigned long>(KEY_WRITE), static_cast<unsigned long>(KEY_NOTIFY)})
    {
        std::string value = "untouched";
        EXPECT_FALSE(RegUtils::ReadRegString(kProductKey, "text", value, HKEY_LOCAL_MACHINE, access)) << access;
        EXPECT_EQ(value, "untouched") << access;
    }
}

// --- The key

TEST_F(RecordedRegUtilsTest, ASuccessfulCallOpensOneKeyWithExactlyItsAccess)
{
    m_machine.SetDword("number", 1);
    m_machine.SetText("text", "abc");
    unsigned long number = 0;
    std::string text;
    const struct
    {
        const char* what;
        std::function<bool()> call;
        unsigned long access;
    } cases[] = {
        {"read a number", [&] { return RegUtils::ReadHaldenRegDword("number", number); }, 0x20019},
        {"with 0", [&] { return RegUtils::ReadHaldenRegDword("number", number, 0); }, 0x20019},
        {"64-bit view", [&] { return RegUtils::ReadHaldenRegDword("number", number, 0x100); }, 0x20119},
        {"32-bit view", [&] { return RegUtils::ReadHaldenRegDword("number", number, 0x200); }, 0x20219},
        {"read a text", [&] { return RegUtils::ReadHaldenRegString("text", text); }, 0x20019},
        {"write", [&] { return RegUtils::WriteHaldenRegDword("number", 2); }, 0x20006},
        {"delete", [&] { return RegUtils::DeleteHaldenRegDword("number"); }, 0xF003F},
        {"short form", [&] { return RegUtils::ReadRegString(kProductKey, "text", text); }, 0x20019},
        {"full form", [&] { return RegUtils::ReadRegString(kProductKey, "text", text, HKEY_LOCAL_MACHINE, 0x101); },
         0x101},
    };
    for (const auto& one : cases)
    {
        g_calls = {};

        EXPECT_TRUE(one.call()) << one.what;

        ASSERT_EQ(g_calls.openings.size(), 1u) << one.what;
        EXPECT_EQ(g_calls.openings[0].root, HKEY_LOCAL_MACHINE) << one.what;
        EXPECT_EQ(g_calls.openings[0].path, kProductKey) << one.what;
        EXPECT_EQ(g_calls.openings[0].options, 0u) << one.what;
        EXPECT_EQ(g_calls.openings[0].access, one.access) << one.what;
    }
}

TEST(RegUtilsKeyTest, EveryProductKeyCallFailsWithoutTheKeyAndNoneMakesIt)
{
    const ScopedMachineHive machine(/*withProductKey=*/false);
    unsigned long number = kUntouched;
    std::string text = "untouched";

    EXPECT_FALSE(RegUtils::ReadHaldenRegDword("switch", number));
    EXPECT_FALSE(RegUtils::ReadHaldenRegDword("switch", number, KEY_WOW64_64KEY));
    EXPECT_FALSE(RegUtils::ReadHaldenRegString("switch", text));
    EXPECT_FALSE(RegUtils::WriteHaldenRegDword("switch", 1));
    EXPECT_FALSE(RegUtils::DeleteHaldenRegDword("switch"));

    EXPECT_EQ(number, kUntouched);
    EXPECT_EQ(text, "untouched");
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kProductKey, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegUtilsTest, EveryOpenedKeyIsClosedOnceWhateverTheOutcome)
{
    m_machine.SetDword("number", 1);
    m_machine.SetText("text", "too long for a number");
    const ImportPatch open("ADVAPI32.dll", "RegOpenKeyExA", &RecordOpen);
    const ImportPatch close("ADVAPI32.dll", "RegCloseKey", &RecordClose);
    const unsigned long before = TestSupport::OpenHandles();
    unsigned long number = 0;
    std::string text;

    RegUtils::ReadHaldenRegDword("number", number);
    RegUtils::ReadHaldenRegDword("text", number);
    RegUtils::ReadHaldenRegDword("missing", number);
    RegUtils::ReadHaldenRegString("text", text);
    RegUtils::ReadHaldenRegString("missing", text);
    RegUtils::ReadRegString(kProductKey, "text", text, HKEY_LOCAL_MACHINE, KEY_WRITE);
    RegUtils::ReadRegString("no such key", "text", text);
    RegUtils::WriteHaldenRegDword("number", 2);
    RegUtils::DeleteHaldenRegDword("number");
    RegUtils::DeleteHaldenRegDword("missing");

    EXPECT_EQ(g_calls.openings.size(), 10u);
    EXPECT_EQ(g_calls.opened.size(), 9u);
    EXPECT_EQ(g_calls.closed, g_calls.opened);
    EXPECT_EQ(TestSupport::OpenHandles(), before);
}

TEST_F(RegUtilsTest, AKeyThatDidNotOpenIsNeitherUsedNorClosed)
{
    const ImportPatch open("ADVAPI32.dll", "RegOpenKeyExA", &OpenFailsWithAHandle);
    const ImportPatch query("ADVAPI32.dll", "RegQueryValueExA", &RecordQuery);
    const ImportPatch close("ADVAPI32.dll", "RegCloseKey", &RecordClose);
    unsigned long number = kUntouched;
    std::string text = "untouched";

    EXPECT_FALSE(RegUtils::ReadHaldenRegDword("number", number));
    EXPECT_FALSE(RegUtils::ReadHaldenRegString("text", text));
    EXPECT_FALSE(RegUtils::WriteHaldenRegDword("number", 1));
    EXPECT_FALSE(RegUtils::DeleteHaldenRegDword("number"));

    EXPECT_TRUE(g_calls.queries.empty());
    EXPECT_TRUE(g_calls.closed.empty());
}

TEST_F(RegUtilsTest, AnyThreadMayReadAndWriteAtAnyTime)
{
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (unsigned long id = 0; id < 4; ++id)
    {
        threads.emplace_back([id, &wrong] {
            const std::string name = "switch" + std::to_string(id);
            for (unsigned long i = 0; i < 50; ++i)
            {
                unsigned long value = 0;
                const bool same = RegUtils::WriteHaldenRegDword(name, i * 4 + id) &&
                                  RegUtils::ReadHaldenRegDword(name, value) && value == i * 4 + id;
                wrong += same ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
}
