#include <UtilsLib/files/FileAccess.h>

#include <UtilsLib/platform/UniqueLocalMemory.h>
#include <UtilsLib/platform/UniqueSid.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <aclapi.h>

#include <array>
#include <map>

using TestSupport::ImportPatch;
using TestSupport::OpenHandles;
using TestSupport::TempFolder;
using UtilsLib::FileAccess;
using UtilsLib::Platform::UniqueLocalMemory;
using UtilsLib::Platform::UniqueSid;

namespace
{

UniqueSid Everyone()
{
    SID_IDENTIFIER_AUTHORITY world = {SECURITY_WORLD_SID_AUTHORITY};
    UniqueSid sid;
    AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, sid.Put());
    return sid;
}

/// The access list's entries: who, as the bytes of the identifier, and what.
std::map<std::string, DWORD> Rights(std::string path)
{
    PACL list = nullptr;
    UniqueLocalMemory descriptor;
    GetNamedSecurityInfoA(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                          descriptor.Put());
    std::map<std::string, DWORD> rights;
    for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i)
    {
        void* entry = nullptr;
        GetAce(list, i, &entry);
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        PSID const sid = &allowed->SidStart;
        rights[std::string(static_cast<const char*>(sid), GetLengthSid(sid))] |= allowed->Mask;
    }
    return rights;
}

std::string EveryonesKey()
{
    const UniqueSid sid = Everyone();
    return std::string(static_cast<const char*>(sid.Get()), GetLengthSid(sid.Get()));
}

/// What the library asks of the system; handed on unless a fault is set.
struct Calls
{
    int readLists = 0;
    int merges = 0;
    int writtenLists = 0;
    int freedSids = 0;
    int freedBlocks = 0;
    SECURITY_INFORMATION readWhat = 0;
    SECURITY_INFORMATION writtenWhat = 0;
    EXPLICIT_ACCESSA entry = {};
    bool trusteeIsEveryone = false;
    PACL mergedInto = nullptr;
    PACL existing = nullptr;
};
Calls g_calls;
std::string g_fault; // the name of the step that fails

DWORD WINAPI ReadList(LPSTR name, SE_OBJECT_TYPE type, SECURITY_INFORMATION what, PSID* owner, PSID* group, PACL* dacl,
                      PACL* sacl, PSECURITY_DESCRIPTOR* descriptor)
{
    ++g_calls.readLists;
    g_calls.readWhat = what;
    if (g_fault == "read")
    {
        return ERROR_ACCESS_DENIED;
    }
    const DWORD error = GetNamedSecurityInfoA(name, type, what, owner, group, dacl, sacl, descriptor);
    g_calls.existing = *dacl;
    return error;
}

DWORD WINAPI Merge(ULONG count, EXPLICIT_ACCESSA* entries, PACL old, PACL* merged)
{
    ++g_calls.merges;
    EXPECT_EQ(count, 1u);
    g_calls.entry = entries[0];
    g_calls.trusteeIsEveryone = EqualSid(entries[0].Trustee.ptstrName, Everyone().Get()) != FALSE;
    g_calls.mergedInto = old;
    return g_fault == "merge" ? DWORD{ERROR_NOT_ENOUGH_MEMORY} : SetEntriesInAclA(count, entries, old, merged);
}

DWORD WINAPI WriteList(LPSTR name, SE_OBJECT_TYPE type, SECURITY_INFORMATION what, PSID owner, PSID group, PACL dacl,
                       PACL sacl)
{
    ++g_calls.writtenLists;
    g_calls.writtenWhat = what;
    return g_fault == "write" ? DWORD{ERROR_ACCESS_DENIED}
                              : SetNamedSecurityInfoA(name, type, what, owner, group, dacl, sacl);
}

BOOL WINAPI MakeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD a, DWORD b, DWORD c, DWORD d, DWORD e,
                    DWORD f, DWORD g, DWORD h, PSID* sid)
{
    return g_fault == "sid" ? FALSE : AllocateAndInitializeSid(authority, count, a, b, c, d, e, f, g, h, sid);
}

PVOID WINAPI FreeTheSid(PSID sid)
{
    ++g_calls.freedSids;
    return FreeSid(sid);
}

HLOCAL WINAPI FreeBlock(HLOCAL block)
{
    ++g_calls.freedBlocks;
    return LocalFree(block);
}

class FileAccessTest : public testing::Test
{
protected:
    FileAccessTest()
    {
        g_calls = {};
        g_fault.clear();
        m_folder.Write("a.dat", "1");
    }

    TempFolder m_folder;
    const std::string m_path = m_folder / "a.dat";
    const ImportPatch m_read{"ADVAPI32.dll", "GetNamedSecurityInfoA", &ReadList};
    const ImportPatch m_merge{"ADVAPI32.dll", "SetEntriesInAclA", &Merge};
    const ImportPatch m_write{"ADVAPI32.dll", "SetNamedSecurityInfoA", &WriteList};
    const ImportPatch m_makeSid{"ADVAPI32.dll", "AllocateAndInitializeSid", &MakeSid};
    const ImportPatch m_freeSid{"ADVAPI32.dll", "FreeSid", &FreeTheSid};
    const ImportPatch m_freeBlock{"KERNEL32.dll", "LocalFree", &FreeBlock};
};

} // namespace

TEST_F(FileAccessTest, EveryoneGetsEveryRightAndTheOthersKeepTheirs)
{
    const std::map<std::string, DWORD> before = Rights(m_path);
    ASSERT_FALSE(before.empty());

    FileAccess::SetFilePermissions(m_path);

    std::map<std::string, DWORD> after = Rights(m_path);
    EXPECT_EQ(after[EveryonesKey()] & FILE_ALL_ACCESS, DWORD{0x1301FF}); // as far as the file system can tell
    for (const auto& [who, rights] : before)
    {
        EXPECT_EQ(after[who] & rights, rights);
    }
}

TEST_F(FileAccessTest, OneGrantOfAllBitsIsMergedIntoTheExistingList)
{
    FileAccess::SetFilePermissions(m_path);

    EXPECT_EQ(g_calls.readWhat, DWORD{DACL_SECURITY_INFORMATION});
    EXPECT_EQ(g_calls.mergedInto, g_calls.existing);
    EXPECT_NE(g_calls.existing, nullptr);
    EXPECT_EQ(g_calls.entry.grfAccessPermissions, 0xFFFFFFFFu);
    EXPECT_EQ(g_calls.entry.grfAccessMode, GRANT_ACCESS);
    EXPECT_EQ(g_calls.entry.grfInheritance, DWORD{NO_INHERITANCE});
    EXPECT_EQ(g_calls.entry.Trustee.TrusteeForm, TRUSTEE_IS_SID);
    EXPECT_EQ(g_calls.entry.Trustee.TrusteeType, TRUSTEE_IS_WELL_KNOWN_GROUP);
    EXPECT_TRUE(g_calls.trusteeIsEveryone);
    EXPECT_EQ(g_calls.writtenWhat, DWORD{DACL_SECURITY_INFORMATION});
    EXPECT_EQ(g_calls.writtenLists, 1);
}

TEST_F(FileAccessTest, TheIdentifierAndBothBuffersAreFreedAndNoHandleStays)
{
    FileAccess::SetFilePermissions(m_path);
    const unsigned long before = OpenHandles();
    g_calls = {};

    FileAccess::SetFilePermissions(m_path);

    EXPECT_EQ(OpenHandles(), before);
    EXPECT_EQ(g_calls.freedSids, 1);
    EXPECT_EQ(g_calls.freedBlocks, 2);
}

TEST_F(FileAccessTest, AFailedStepLeavesTheFileAsItWasAndFreesWhatThereWas)
{
    const std::map<std::string, DWORD> before = Rights(m_path);
    const struct
    {
        const char* fault;
        int merges;
        int writtenLists;
        int freedSids;
        int freedBlocks;
    } cases[] = {{"read", 0, 0, 1, 0}, {"sid", 0, 0, 0, 1}, {"merge", 1, 0, 1, 1}, {"write", 1, 1, 1, 2}};
    for (const auto& [fault, merges, writtenLists, freedSids, freedBlocks] : cases)
    {
        g_calls = {};
        g_fault = fault;
        FileAccess::SetFilePermissions(m_path);
        EXPECT_EQ(g_calls.merges, merges) << fault;
        EXPECT_EQ(g_calls.writtenLists, writtenLists) << fault;
        EXPECT_EQ(g_calls.freedSids, freedSids) << fault;
        EXPECT_EQ(g_calls.freedBlocks, freedBlocks) << fault;
        EXPECT_EQ(Rights(m_path), before) << fault;
    }
}

TEST_F(FileAccessTest, AMissingFileAndAnEmptyPathAreHarmless)
{
    const unsigned long before = OpenHandles();

    FileAccess::SetFilePermissions(m_folder / "missing.dat");
    FileAccess::SetFilePermissions("");

    EXPECT_FALSE(m_folder.Exists("missing.dat"));
    EXPECT_EQ(g_calls.readLists, 2);
    EXPECT_EQ(g_calls.writtenLists, 0);
    EXPECT_EQ(OpenHandles(), before);
}
