#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <string>

namespace UtilsLib
{

/// Reads and writes single registry values, most of them of the product key "Software\Corvane\Halden" below
/// HKEY_LOCAL_MACHINE. Names, paths and texts are in the ANSI code page; an empty name is the key's default value.
///
/// Every call opens the key, does one operation and closes the key. All return whether it succeeded; the reason of a
/// failure is not told, and output arguments are then as before. Nothing throws. Any thread; no locks.
class UTILSLIB_API RegUtils
{
public:
    /// Reads a number. The type is not looked at, on purpose: the bytes of any value of at most 4 bytes are copied over
    /// the first bytes of `value`, the others stay. The text "1" (two bytes) read into 0 is 49; an empty value succeeds
    /// and changes nothing. A longer value fails.
    static bool ReadHaldenRegDword(const std::string& name, unsigned long& value);
    /// The same, opening the key with KEY_READ and `extraAccess`: KEY_WOW64_64KEY or KEY_WOW64_32KEY choose the view.
    static bool ReadHaldenRegDword(const std::string& name, unsigned long& value, unsigned long extraAccess);
    /// Reads the product key's value `name` as text; see `ReadRegString`.
    static bool ReadHaldenRegString(const std::string& name, std::string& value);
    /// Stores `value` as REG_DWORD, over a value of any type. The product key is never created: without it this fails.
    static bool WriteHaldenRegDword(const std::string& name, const unsigned long& value);
    /// Deletes the value `name` of any type. Fails when there is none.
    static bool DeleteHaldenRegDword(const std::string& name);

    /// Reads text from the key `keyPath` below HKEY_LOCAL_MACHINE, opened with KEY_READ.
    static bool ReadRegString(const std::string& keyPath, const std::string& name, std::string& value);
    /// The same below `root`, opening the key with exactly `access`, which must hold the right to query values.
    ///
    /// The type is not looked at: the result is the value's bytes up to the first zero byte, whether it is text with
    /// or without a terminator, a list of texts or a number. A value that grows while it is read makes this fail.
    static bool ReadRegString(const std::string& keyPath, const std::string& name, std::string& value, HKEY root,
                              unsigned long access);
};

} // namespace UtilsLib
