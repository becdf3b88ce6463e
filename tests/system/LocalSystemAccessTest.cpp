#include <UtilsLib/system/HelperUtils.h>

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/platform/UniqueLocalMemory.h>
#include <UtilsLib/registry/LiveRegSettings.h>

#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/ScopedMachineHive.h>
#include <tests/support/TempFolder.h>

#include <accctrl.h>
#include <aclapi.h>
#include <sddl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <sstream>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using TestSupport::ImportPatch;
using UtilsLib::HelperUtils;
using UtilsLib::Platform::UniqueLocalMemory;

namespace
{

constexpr DWORD kFullAccess = 0x1F01FF;
// As much as Wine can keep in the mode of a file.
constexpr DWORD kReadWriteExecute = FILE_READ_DATA | FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_EXECUTE;
constexpr const char* kLocalSystem = "S-1-5-18";
constexpr const char* kEveryone = "S-1-1-0";

struct Entry
{
    std::string account;
    DWORD type;
    DWORD access;
    DWORD inheritance;

    bool operator==(const Entry&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Entry& entry)
{
    return stream << entry.account << " type " << entry.type << " access " << std::hex << entry.access
                  << " inheritance " << entry.inheritance;
}

std::vector<Entry> EntriesOf(ACL* list)
{
    std::vector<Entry> entries;
    ACCESS_ALLOWED_ACE* ace = nullptr;
    for (DWORD i = 0; list != nullptr && GetAce(list, i, reinterpret_cast<void**>(&ace)); ++i)
    {
        UniqueLocalMemory text;
        ConvertSidToStringSidA(&ace->SidStart, reinterpret_cast<char**>(text.Put()));
        entries.push_back({static_cast<const char*>(text.Get()), ace->Header.AceType, ace->Mask,
                           static_cast<DWORD>(ace->Header.AceFlags & (OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE))});
    }
    return entries;
}

/// The access list as the system has it now.
std::vector<Entry> EntriesOf(const std::string& path)
{
    ACL* list = nullptr;
    UniqueLocalMemory descriptor;
    EXPECT_EQ(GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                    nullptr, descriptor.Put()),
              static_cast<DWORD>(ERROR_SUCCESS));
    return EntriesOf(list);
}

/// What the folder's list grants an account for the folder and all that is in it.
DWORD InheritedAccessOf(const std::string& account, const std::string& path)
{
    DWORD access = 0;
    for (const Entry& entry : EntriesOf(path))
    {
        const bool counts = entry.account == account && entry.type == ACCESS_ALLOWED_ACE_TYPE &&
                            entry.inheritance == SUB_CONTAINERS_AND_OBJECTS_INHERIT;
        access |= counts ? entry.access : 0;
    }
    return access;
}

/// What the library asked of the three functions, and what they shall do.
struct Steps
{
    // Zero hands the call on to the system.
    DWORD getError = 0;
    DWORD mergeError = 0;
    DWORD setError = 0;
    DWORD lastError = 0; // as the failing call leaves it
    bool noList = false;
    bool forEveryone = false; // the entry's account is replaced

    std::vector<std::string> calls;
    std::string path;
    SE_OBJECT_TYPE type = SE_UNKNOWN_OBJECT_TYPE;
    SECURITY_INFORMATION information = 0;
    std::vector<Entry> oldEntries;
    std::optional<EXPLICIT_ACCESSA> entry;
    std::string trustee;
    void* descriptor = nullptr;
    void* newList = nullptr;
    void* setList = nullptr;
    std::vector<void*> freed;
};

Steps g_steps;

DWORD Fail(DWORD error)
{
    SetLastError(g_steps.lastError);
    return error;
}

DWORD WINAPI GetList(LPCSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION information, PSID* owner, PSID* group,
                     ACL** list, ACL** auditList, PSECURITY_DESCRIPTOR* descriptor)
{
    g_steps.calls.push_back("get");
    g_steps.path = path;
    g_steps.type = type;
    g_steps.information = information;
    EXPECT_TRUE(owner == nullptr && group == nullptr && auditList == nullptr);
    if (g_steps.getError != 0)
    {
        return Fail(g_steps.getError);
    }
    const DWORD error = GetNamedSecurityInfoA(path, type, information, owner, group, list, auditList, descriptor);
    g_steps.descriptor = *descriptor;
    if (g_steps.noList)
    {
        *list = nullptr;
    }
    return error;
}

DWORD WINAPI MergeEntries(ULONG count, EXPLICIT_ACCESSA* entries, ACL* oldList, ACL** newList)
{
    g_steps.calls.push_back("merge");
    EXPECT_EQ(count, 1u);
    g_steps.entry = entries[0];
    g_steps.trustee = entries[0].Trustee.ptstrName;
    g_steps.oldEntries = EntriesOf(oldList);
    if (g_steps.mergeError != 0)
    {
        return Fail(g_steps.mergeError);
    }
    EXPLICIT_ACCESSA entry = entries[0];
    char everyone[] = "Everyone";
    if (g_steps.forEveryone)
    {
        entry.Trustee.ptstrName = everyone;
    }
    const DWORD error = SetEntriesInAclA(1, &entry, oldList, newList);
    g_steps.newList = *newList;
    return error;
}

DWORD WINAPI SetList(LPSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION information, PSID owner, PSID group,
                     ACL* list, ACL* auditList)
{
    g_steps.calls.push_back("set");
    EXPECT_EQ(path, g_steps.path);
    EXPECT_EQ(type, SE_FILE_OBJECT);
    EXPECT_EQ(information, static_cast<DWORD>(DACL_SECURITY_INFORMATION));
    EXPECT_TRUE(owner == nullptr && group == nullptr && auditList == nullptr);
    EXPECT_THAT(g_steps.freed, IsEmpty()) << "the new list is in use";
    g_steps.setList = list;
    return g_steps.setError != 0 ? Fail(g_steps.setError)
                                 : SetNamedSecurityInfoA(path, type, information, owner, group, list, auditList);
}

HLOCAL WINAPI RecordFree(HLOCAL memory)
{
    g_steps.freed.push_back(memory);
    const HLOCAL rest = LocalFree(memory);
    SetLastError(ERROR_INVALID_HANDLE); // freeing may change it
    return rest;
}

/// Watches the library's calls for the scope.
class WatchSteps
{
public:
    explicit WatchSteps(const Steps& steps = {})
    {
        g_steps = steps;
    }

private:
    ImportPatch m_get{"ADVAPI32.dll", "GetNamedSecurityInfoA", &GetList};
    ImportPatch m_merge{"ADVAPI32.dll", "SetEntriesInAclA", &MergeEntries};
    ImportPatch m_set{"ADVAPI32.dll", "SetNamedSecurityInfoA", &SetList};
    ImportPatch m_free{"KERNEL32.dll", "LocalFree", &RecordFree};
};

Steps StepsThatFail(DWORD Steps::*step, DWORD error, DWORD lastError)
{
    Steps steps;
    steps.*step = error;
    steps.lastError = lastError;
    return steps;
}

/// The process's logger writes to a file of the suite; every test reads what came since its beginning.
class LocalSystemAccessTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ms_machine = std::make_unique<TestSupport::ScopedMachineHive>();
        ms_machine->SetDword("hx41svc_logging", 1);
        UtilsLib::LiveRegSettings::GetInstance().Read();
        ms_logs = std::make_unique<TestSupport::TempFolder>();
        UtilsLib::Logger& logger = UtilsLib::Logger::GetInstance();
        logger.SetPath(*ms_logs / "app.log");
        logger.Start();
        Log("started");
        ASSERT_TRUE(TestSupport::Eventually([] { return Lines().size() == 1; }));
    }
    static void TearDownTestSuite()
    {
        UtilsLib::Logger::GetInstance().Shutdown();
        ms_machine.reset();
    }

    void SetUp() override
    {
        m_root.MakeFolder("data");
        NewLines(); // of tests before
        m_linesBefore = Lines().size();
    }

    static void Log(const char* text)
    {
        static_cast<UtilsLib::ILogger&>(UtilsLib::Logger::GetInstance())
            .Log(UtilsLib::LogCategory::General, UtilsLib::LogTraceLevel::Error, "%s", text);
    }
    /// Lines without time and thread: "(2:4), text".
    static std::vector<std::string> Lines()
    {
        std::vector<std::string> lines;
        std::istringstream text(ms_logs->Read("app.log"));
        for (std::string line; std::getline(text, line) && line.ends_with('\r');)
        {
            lines.push_back(line.substr(line.find('('), line.size() - 1 - line.find('(')));
        }
        return lines;
    }
    /// What has been logged since the test began.
    std::vector<std::string> NewLines() const
    {
        static int count = 0;
        const std::string end = "end " + std::to_string(++count);
        Log(end.c_str());
        std::vector<std::string> lines;
        EXPECT_TRUE(TestSupport::Eventually([&] {
            lines = Lines();
            return lines.size() > m_linesBefore && lines.back() == "(1:4), " + end;
        }));
        lines.pop_back();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(m_linesBefore));
        return lines;
    }

    const TestSupport::TempFolder m_root;
    const std::string m_folder = m_root / "data";
    std::size_t m_linesBefore = 0;

private:
    inline static std::unique_ptr<TestSupport::ScopedMachineHive> ms_machine;
    inline static std::unique_ptr<TestSupport::TempFolder> ms_logs; // stays: the logger has the file open
};

} // namespace

TEST_F(LocalSystemAccessTest, TheSystemHasFullAccessAfterwardsAndTheOthersKeepTheirs)
{
    const std::vector<Entry> before = EntriesOf(m_folder);

    EXPECT_TRUE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));

    const std::vector<Entry> after = EntriesOf(m_folder);
    EXPECT_THAT(
        after, Contains(Entry{kLocalSystem, ACCESS_ALLOWED_ACE_TYPE, kFullAccess, SUB_CONTAINERS_AND_OBJECTS_INHERIT}));
    EXPECT_THAT(after, testing::IsSupersetOf(before));
    EXPECT_THAT(NewLines(), IsEmpty());
}

TEST_F(LocalSystemAccessTest, TheEntryIsAnInheritedGrantOfFullAccessToTheAccountNamedSystem)
{
    const WatchSteps watch;

    EXPECT_TRUE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));

    ASSERT_TRUE(g_steps.entry);
    EXPECT_EQ(g_steps.entry->grfAccessPermissions, kFullAccess);
    EXPECT_EQ(g_steps.entry->grfAccessMode, GRANT_ACCESS);
    EXPECT_EQ(g_steps.entry->grfInheritance, static_cast<DWORD>(CONTAINER_INHERIT_ACE | OBJECT_INHERIT_ACE));
    EXPECT_EQ(g_steps.entry->Trustee.TrusteeForm, TRUSTEE_IS_NAME);
    EXPECT_EQ(g_steps.entry->Trustee.MultipleTrusteeOperation, NO_MULTIPLE_TRUSTEE);
    EXPECT_EQ(g_steps.entry->Trustee.pMultipleTrustee, nullptr);
    EXPECT_EQ(g_steps.trustee, "SYSTEM");
}

TEST_F(LocalSystemAccessTest, TheFoldersOwnListIsReadMergedAndWrittenBack)
{
    const std::vector<Entry> before = EntriesOf(m_folder);
    const WatchSteps watch;

    EXPECT_TRUE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));

    EXPECT_THAT(g_steps.calls, ElementsAre("get", "merge", "set"));
    EXPECT_EQ(g_steps.path, m_folder);
    EXPECT_EQ(g_steps.type, SE_FILE_OBJECT);
    EXPECT_EQ(g_steps.information, static_cast<DWORD>(DACL_SECURITY_INFORMATION));
    EXPECT_EQ(g_steps.oldEntries, before);
    EXPECT_NE(g_steps.newList, nullptr);
    EXPECT_EQ(g_steps.setList, g_steps.newList);
}

// Wine makes lists up from the mode of the file, where the system's account has full access anyway. With another
// account in its place, what was granted can be read back.
TEST_F(LocalSystemAccessTest, AnAccountThatHadNoAccessCanBeReadBack)
{
    ASSERT_EQ(InheritedAccessOf(kEveryone, m_folder) & FILE_WRITE_DATA, 0u);
    Steps steps;
    steps.forEveryone = true;
    {
        const WatchSteps watch(steps);
        EXPECT_TRUE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
    }
    EXPECT_EQ(InheritedAccessOf(kEveryone, m_folder) & kReadWriteExecute, kReadWriteExecute);
    EXPECT_EQ(InheritedAccessOf(kLocalSystem, m_folder), kFullAccess);

    const std::vector<Entry> once = EntriesOf(m_folder);
    const WatchSteps watch(steps);
    EXPECT_TRUE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
    EXPECT_EQ(EntriesOf(m_folder), once) << "granted twice is granted once";
}

TEST_F(LocalSystemAccessTest, AFolderWithoutAListIsLeftAlone)
{
    Steps steps;
    steps.noList = true;
    const WatchSteps watch(steps);

    EXPECT_TRUE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));

    EXPECT_THAT(g_steps.calls, ElementsAre("get"));
    EXPECT_THAT(g_steps.freed, ElementsAre(g_steps.descriptor));
    EXPECT_THAT(NewLines(), IsEmpty());
}

TEST_F(LocalSystemAccessTest, WhatTheSystemAllocatedIsFreedOnce)
{
    {
        const WatchSteps watch;
        EXPECT_TRUE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
        EXPECT_THAT(g_steps.freed, testing::UnorderedElementsAre(g_steps.descriptor, g_steps.newList));
    }
    {
        const WatchSteps watch(StepsThatFail(&Steps::getError, 5, 0));
        EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
        EXPECT_THAT(g_steps.freed, IsEmpty());
    }
    {
        const WatchSteps watch(StepsThatFail(&Steps::mergeError, 5, 0));
        EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
        EXPECT_THAT(g_steps.freed, ElementsAre(g_steps.descriptor));
    }
    const WatchSteps watch(StepsThatFail(&Steps::setError, 5, 0));
    EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
    EXPECT_THAT(g_steps.freed, testing::UnorderedElementsAre(g_steps.descriptor, g_steps.newList));
}

TEST_F(LocalSystemAccessTest, AFailureIsLoggedWithItsCodeAndTheLastErrorThatItLeft)
{
    for (DWORD Steps::*const step : {&Steps::getError, &Steps::mergeError, &Steps::setError})
    {
        const WatchSteps watch(StepsThatFail(step, 1336, 4321));
        EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
        EXPECT_EQ(GetLastError(), 4321u);
    }

    const std::string first = "(2:4), GrantDirectoryAccessToLocalSystem Failed with error code 1336";
    const std::string second = "(2:4), GetLastError after call to GrantDirectoryAccessToLocalSystem is 4321";
    EXPECT_THAT(NewLines(), ElementsAre(first, second, first, second, first, second));
}

TEST_F(LocalSystemAccessTest, NothingIsWrittenAfterAFailedStep)
{
    {
        const WatchSteps watch(StepsThatFail(&Steps::getError, 5, 5));
        EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
        EXPECT_THAT(g_steps.calls, ElementsAre("get"));
    }
    const WatchSteps watch(StepsThatFail(&Steps::mergeError, 5, 5));
    EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder));
    EXPECT_THAT(g_steps.calls, ElementsAre("get", "merge"));
}

TEST_F(LocalSystemAccessTest, AnEmptyPathIsAnInvalidParameter)
{
    const WatchSteps watch;
    SetLastError(1234);

    EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(""));

    EXPECT_EQ(GetLastError(), 1234u); // no call of the system has failed
    EXPECT_THAT(g_steps.calls, IsEmpty());
    EXPECT_THAT(NewLines(), ElementsAre("(2:4), GrantDirectoryAccessToLocalSystem Failed with error code 87",
                                        "(2:4), GetLastError after call to GrantDirectoryAccessToLocalSystem is 1234"));
}

TEST_F(LocalSystemAccessTest, AMissingFolderFailsWithTheSystemsError)
{
    EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory(m_root / "missing"));
    EXPECT_FALSE(HelperUtils::GrantLocalSystemFullAccessToDirectory("C:\\" + std::string(40'000, 'x')));

    const std::vector<std::string> lines = NewLines();
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_EQ(lines[0], "(2:4), GrantDirectoryAccessToLocalSystem Failed with error code 2");
}

TEST_F(LocalSystemAccessTest, NoHandleIsLeftOpen)
{
    HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder);
    const unsigned long before = TestSupport::OpenHandles();

    HelperUtils::GrantLocalSystemFullAccessToDirectory(m_folder);
    HelperUtils::GrantLocalSystemFullAccessToDirectory(m_root / "missing");
    HelperUtils::GrantLocalSystemFullAccessToDirectory("");

    EXPECT_EQ(TestSupport::OpenHandles(), before);
}
