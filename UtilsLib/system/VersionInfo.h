#pragma once

#include <string>

namespace RequestLib
{

/// A data service and the version of its executable. All numbers are 0 when no version could be read.
struct VersionInfo
{
    std::string name; ///< the service's display name; empty when only a file was asked about
    int major = 0;    ///< first number of the file version
    int minor = 0;    ///< second
    int build = 0;    ///< third; the fourth is not kept
};

} // namespace RequestLib
