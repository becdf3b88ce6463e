#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Checks of e-mail addresses. No state; any thread.
class UTILSLIB_API EmailUtils
{
public:
    /// True when the whole address has one of the forms that the suite sends to; any length and any bytes.
    ///
    /// At most 255 bytes. Before the "@": atoms joined by dots (letters, digits, backquotes and any of
    /// `! # $ % & ' * + / = ? ^ _ { | } ~ -`), or a quoted text in which spaces, tabs, quotes and backslashes stand
    /// behind a backslash each. Behind it: at least two labels joined by dots (letters, digits, hyphens inside), or an
    /// IPv4 address in square brackets, whose last number may be a tag, a colon and a text ("[1.2.3.tag:text]").
    /// Letters are ASCII's.
    static bool IsValidEmail(const std::string& address);
};

} // namespace UtilsLib
