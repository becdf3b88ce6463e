#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <string>

namespace UtilsLib
{

/// The suite's rules about paths and file names, on narrow strings of any bytes and any length.
///
/// The only separator is the backslash; a slash is an ordinary character. Lower-casing is that of
/// `StringUtils::ToLower`. Only IsLocalMachine, GetHost and the last two ask the system for anything. Any thread.
class UTILSLIB_API Paths
{
public:
    /// What stands before the last separator, lower-cased; empty without one.
    static std::string GetPath(std::string path);
    /// The path without its last two components, lower-cased; empty with fewer than two separators.
    static std::string GetDataPath(std::string path);
    /// What stands behind the last separator, letter case kept; the whole path without one.
    static std::string GetFilename(std::string path);
    /// The two joined by exactly one separator, "." and ".." resolved. If one is empty, the other one as it is. A
    /// `second` with a drive replaces the first. Empty when the result would have more than 259 characters.
    static std::string CombinePaths(std::string first, std::string second);
    /// Lower-cased, without its last character if that is a separator.
    static std::string RemoveLastBackslashAndToLower(const std::string& path);
    /// The company folder of a data folder, letter case kept: without a separator at the end and, when "accdata" in any
    /// letter case occurs anywhere in what remains, without its last eight characters, whatever they are.
    static std::string StripAccdata(const std::string& path);
    /// Whether `host` is this computer's name, in any letter case. Lower-cases `host` in any case.
    static bool IsLocalMachine(std::string& host);
    /// The host of a network path ("\\host\..."), lower-cased; "127.0.0.1" for this computer and for any other path.
    static std::string GetHost(const std::string& path);
    /// Whether `path` may be touched: not in "c:\windows" (but in "c:\windows\temp") and not the root of a drive.
    /// Letter case counts, so "C:\Windows" is not refused.
    static bool SecurityCheckPath(const std::string& path);
    /// Without everything but the letters and digits of ASCII, "_", " ", "." and "-", and then without blanks and dots
    /// at the end.
    static std::string RemoveInvalidCharactersFromFileName(const std::string& name);
    /// The same of the lower-cased name: "My Report: 2024?.txt. " becomes "my report 2024.txt".
    static std::string SanitiseFileName(const std::string& name);
    /// The path of a known folder (one of Windows' FOLDERID_...); empty when there is none.
    static std::string GetSpecialFolderPath(GUID folder);
    /// The data service's folder below the folder of all users' application data (below the root of the current drive
    /// when the system names none); made, with its parents, if it is missing. The path comes back even when that fails.
    static std::string CreateProgramDataDatabaseFolder();
};

} // namespace UtilsLib
