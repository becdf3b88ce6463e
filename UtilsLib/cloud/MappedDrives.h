#pragma once

#include <UtilsLib/Export.h>

#include <map>
#include <string>

namespace UtilsLib
{

/// Which drive letters of the machine are network drives, and where they lead.
class UTILSLIB_API MappedDrives
{
public:
    /// Sets an entry of `drives` for every drive letter that the calling thread's user sees, in lower case: for a
    /// connected network drive its UNC name, in lower case, else the empty string. Entries of other letters stay, and
    /// all of them when the drives cannot be listed. Any thread; a network that does not answer makes it wait.
    static void GetRemoteDrives(std::map<char, std::string>& drives);
};

} // namespace UtilsLib
