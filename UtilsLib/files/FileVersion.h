#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// The file version of a program or library, read once from its version resource.
///
/// Failures are not reported: they leave an empty version. Copies are independent.
class UTILSLIB_API FileVersion
{
public:
    /// Four numbers in the order of their weight, for comparison by the caller.
    struct Version
    {
        int Major = 0;    ///< first number
        int Minor = 0;    ///< second
        int Build = 0;    ///< third
        int Revision = 0; ///< last
    };

    /// Reads the version of the file at `path`; an empty path is the running program.
    explicit FileVersion(const std::string& path);

    /// Four decimal numbers of 0 to 65535 ("28.1.305.0"); empty for a file without a readable version.
    std::string GetVersion() const;

    /// The numbers of a dotted text; those that are missing are 0, from the fifth on they are ignored. Each is read as
    /// the C library's atoi does: "3a" is 3, "x" and "" are 0, and one beyond an int is whatever atoi makes of it.
    static Version ParseVersion(const std::string& text);

private:
    std::string m_version;
};

} // namespace UtilsLib
