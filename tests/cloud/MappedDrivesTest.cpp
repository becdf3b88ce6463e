#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/cloud/MappedDrives.h>

#include <tests/support/ImportPatch.h>
#include <tests/system/standins/NetworkProvider.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <winnetwk.h>

#include <cstring>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using UtilsLib::MappedDrives;

namespace
{

using Drives = std::map<char, std::string>;

/// What the library asked of the system, and what the system answers.
struct Machine
{
    std::string roots; // as the system gives them, without the last zero
    std::optional<DWORD> length;
    std::map<std::string, DWORD> errors; // of a network drive's root; 0 and its name
    std::map<std::string, std::string> names;
    bool namesNothing = false;
    std::vector<std::string> calls;
};
Machine g_machine;

DWORD WINAPI ListDrives(DWORD size, char* buffer)
{
    g_machine.calls.push_back("list " + std::to_string(size));
    std::memcpy(buffer, g_machine.roots.c_str(), g_machine.roots.size() + 1);
    return g_machine.length.value_or(static_cast<DWORD>(g_machine.roots.size()));
}

UINT WINAPI TypeOf(const char* root)
{
    g_machine.calls.push_back(std::string("type ") + root);
    return g_machine.errors.count(root) != 0 ? DRIVE_REMOTE : DRIVE_FIXED;
}

DWORD NameOf(const char* path, DWORD level, void* buffer, DWORD* size)
{
    g_machine.calls.push_back("name " + std::string(path) + " " + std::to_string(level) + " " + std::to_string(*size));
    std::memset(buffer, 'A', *size); // all of it is the caller's
    auto* const info = static_cast<REMOTE_NAME_INFOA*>(buffer);
    char* const text = static_cast<char*>(buffer) + sizeof(*info);
    const std::string& name = g_machine.names[path];
    std::memcpy(text, name.c_str(), name.size() + 1);
    *info = {};
    info->lpUniversalName = g_machine.namesNothing ? nullptr : text;
    return g_machine.errors[path];
}

constexpr NetworkProvider kProvider{&NameOf};

/// A machine whose drives the test chooses, with the stand-in for its network.
class MappedDrivesTest : public testing::Test
{
protected:
    MappedDrivesTest()
    {
        g_machine = {};
        const HMODULE provider = GetModuleHandleA("mpr.dll");
        const auto set = reinterpret_cast<decltype(&SetNetworkProvider)>(
            reinterpret_cast<void*>(GetProcAddress(provider, "SetNetworkProvider")));
        if (set == nullptr)
        {
            throw std::runtime_error("the stand-in of mpr.dll is not loaded");
        }
        set(&kProvider);
    }

    static void AddDrive(const std::string& root)
    {
        g_machine.roots += root + '\0';
    }
    static void AddNetworkDrive(const std::string& root, DWORD error, const std::string& name = "")
    {
        AddDrive(root);
        const std::string lowered(1, static_cast<char>(root[0] | 0x20));
        g_machine.errors[lowered + ":\\"] = error;
        g_machine.names[lowered + ":\\"] = name;
    }
    static Drives RemoteDrives(Drives drives = {})
    {
        const TestSupport::ImportPatch list("KERNEL32.dll", "GetLogicalDriveStringsA", &ListDrives);
        const TestSupport::ImportPatch type("KERNEL32.dll", "GetDriveTypeA", &TypeOf);
        MappedDrives::GetRemoteDrives(drives);
        return drives;
    }
};

} // namespace

TEST_F(MappedDrivesTest, EveryDriveOfTheRealMachineHasAnEntryAndNoneOfThemIsRemote)
{
    Drives expected;
    const DWORD present = GetLogicalDrives();
    for (int letter = 0; letter < 26; ++letter)
    {
        if ((present >> letter & 1) != 0)
        {
            expected[static_cast<char>('a' + letter)] = "";
        }
    }
    ASSERT_EQ(expected.count('c'), 1u);
    Drives drives;

    MappedDrives::GetRemoteDrives(drives);

    EXPECT_EQ(drives, expected);
    EXPECT_THAT(g_machine.calls, IsEmpty());
}

TEST_F(MappedDrivesTest, AShareWrittenInCapitalsComesInLowerCase)
{
    AddDrive("C:\\");
    AddNetworkDrive("Z:\\", NO_ERROR, "\\\\SERVER\\Company DATA 1");

    EXPECT_THAT(RemoteDrives(), ElementsAre(Pair('c', ""), Pair('z', "\\\\server\\company data 1")));
}

TEST_F(MappedDrivesTest, TheListIsAskedForOnceAndTheNetworkForItsOwnDrivesOnly)
{
    AddDrive("C:\\");
    AddNetworkDrive("Y:\\", NO_ERROR, "y");
    AddNetworkDrive("Z:\\", NO_ERROR, "z");

    RemoteDrives();

    EXPECT_THAT(g_machine.calls,
                ElementsAre("list 512", "type c:\\", "type y:\\", "name y:\\ 2 1024", "type z:\\", "name z:\\ 2 1024"));
}

TEST_F(MappedDrivesTest, ADriveThatIsDisconnectedOrHasNoNameIsPresentAndEmpty)
{
    AddNetworkDrive("W:\\", ERROR_CONNECTION_UNAVAIL, "\\\\server\\w");
    AddNetworkDrive("X:\\", ERROR_MORE_DATA, "\\\\server\\x");
    AddNetworkDrive("Y:\\", ERROR_NOT_CONNECTED, "\\\\server\\y");
    AddNetworkDrive("Z:\\", NO_ERROR, "\\\\SERVER\\z");

    EXPECT_THAT(RemoteDrives(), ElementsAre(Pair('w', ""), Pair('x', ""), Pair('y', ""), Pair('z', "\\\\server\\z")));
}

TEST_F(MappedDrivesTest, SuccessWithoutANameIsAnEmptyOne)
{
    AddNetworkDrive("Z:\\", NO_ERROR);
    g_machine.namesNothing = true;

    EXPECT_THAT(RemoteDrives(), ElementsAre(Pair('z', "")));
}

TEST_F(MappedDrivesTest, ANameMayFillTheWholeBuffer)
{
    const std::string name(1024 - sizeof(REMOTE_NAME_INFOA) - 1, 'n');
    AddNetworkDrive("Z:\\", NO_ERROR, name);

    EXPECT_THAT(RemoteDrives(), ElementsAre(Pair('z', name)));
}

TEST_F(MappedDrivesTest, EntriesOfItsDrivesAreOverwrittenAndOthersStay)
{
    AddDrive("C:\\");
    AddNetworkDrive("Y:\\", ERROR_NOT_CONNECTED);
    AddNetworkDrive("Z:\\", NO_ERROR, "new");

    EXPECT_THAT(RemoteDrives({{'C', "big"}, {'c', "old"}, {'d', "stays"}, {'y', "old"}, {'z', "old"}}),
                ElementsAre(Pair('C', "big"), Pair('c', ""), Pair('d', "stays"), Pair('y', ""), Pair('z', "new")));
}

TEST_F(MappedDrivesTest, AListThatCannotBeReadChangesNothing)
{
    AddDrive("C:\\");
    for (const DWORD length : {0u, 513u, 0xFFFFFFFFu})
    {
        g_machine.length = length;
        EXPECT_THAT(RemoteDrives({{'c', "old"}}), ElementsAre(Pair('c', "old"))) << length;
    }
}

TEST_F(MappedDrivesTest, TheLastCharacterOfTheListIsItsEndAndNoDrive)
{
    g_machine.roots = std::string("C:\\\0D", 5);

    EXPECT_THAT(RemoteDrives(), ElementsAre(Pair('c', "")));
}

TEST_F(MappedDrivesTest, AllTwentySixLettersFit)
{
    Drives expected;
    for (char letter = 'A'; letter <= 'Z'; ++letter)
    {
        const std::string lowered(1, static_cast<char>(letter | 0x20));
        AddNetworkDrive(std::string(1, letter) + ":\\", NO_ERROR, "\\\\S\\" + std::string(1, letter));
        expected[lowered[0]] = "\\\\s\\" + lowered;
    }

    EXPECT_EQ(RemoteDrives(), expected);
}

TEST_F(MappedDrivesTest, ItHasNoStateOfItsOwn)
{
    static_assert(std::is_empty_v<MappedDrives> && std::is_trivial_v<MappedDrives>);
}
