#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// GUIDs as texts: lower-case hexadecimal digits in groups of 8-4-4-4-12 with hyphens, no braces. No state; any thread.
class UTILSLIB_API Guid
{
public:
    /// A new GUID; empty when the system cannot make one that is unique beyond this computer.
    static std::string CreateGuid();
    /// `guid` with `delta` added to its second group, which wraps round in both directions; the other groups stay. For
    /// families of related identifiers: "...-ffff-..." and 1 is "...-0000-...". Letters may be capitals. Empty when
    /// `guid` is not in the form above.
    static std::string AdjustGuid(const std::string& guid, short delta);
    /// 32 hexadecimal digits with the hyphens put in. The answer is the suite's own formatter's, also for other texts.
    static std::string FormatGuidFromAlphaNumericOnly(const std::string& text);
};

} // namespace UtilsLib
