#include <UtilsLib/files/FileAccess.h>

#include <UtilsLib/platform/UniqueLocalMemory.h>
#include <UtilsLib/platform/UniqueSid.h>

#include <aclapi.h>

namespace UtilsLib
{

using Platform::UniqueLocalMemory;
using Platform::UniqueSid;

namespace
{

constexpr DWORD kEveryRight = 0xFFFFFFFF;

UniqueSid MakeEveryoneSid()
{
    SID_IDENTIFIER_AUTHORITY world = {SECURITY_WORLD_SID_AUTHORITY};
    UniqueSid sid;
    AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, sid.Put());
    return sid;
}

EXPLICIT_ACCESSA GrantEverything(PSID trustee)
{
    EXPLICIT_ACCESSA entry = {};
    entry.grfAccessPermissions = kEveryRight;
    entry.grfAccessMode = GRANT_ACCESS;
    entry.grfInheritance = NO_INHERITANCE;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    entry.Trustee.ptstrName = static_cast<LPSTR>(trustee);
    return entry;
}

} // namespace

void FileAccess::SetFilePermissions(const std::string& path)
{
    std::string name = path; // the functions take it without const
    PACL existing = nullptr;
    UniqueLocalMemory descriptor; // holds the existing list
    const DWORD error = GetNamedSecurityInfoA(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                              &existing, nullptr, descriptor.Put());
    const UniqueSid everyone = MakeEveryoneSid();
    if (error != ERROR_SUCCESS || !everyone)
    {
        return; // a list made without the existing one would take everybody else's rights away
    }
    EXPLICIT_ACCESSA entry = GrantEverything(everyone.Get());
    PACL merged = nullptr;
    if (SetEntriesInAclA(1, &entry, existing, &merged) != ERROR_SUCCESS)
    {
        return;
    }
    const UniqueLocalMemory mergedOwner(merged);
    SetNamedSecurityInfoA(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, merged, nullptr);
}

} // namespace UtilsLib
