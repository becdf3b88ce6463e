#pragma once

#include <UtilsLib/Export.h>

#include <cstdint>
#include <string>

namespace UtilsLib
{

/// The web addresses of the cloud drive's pages: those of the production drive, unless
/// "Corvane.Tarrow.Service.config" in the 32-bit system folder names another for the mode that it asks for.
class UTILSLIB_API DriveURLProvider
{
public:
    /// The page wanted.
    enum class URLType : std::int32_t
    {
        SignOn = 0,          ///< where a user signs on
        RegisterExisting = 1 ///< registers an account that exists already
    };

    /// The address of the page; empty for a value that is no page. Reads the file anew, and waits for it, at every
    /// call; whatever is wrong with the file ends in the production drive's address. Logs nothing. Any thread: COM is
    /// initialised on it meanwhile and undone as far as this has done it.
    static std::string GetCorvaneDriveURL(URLType type);
};

} // namespace UtilsLib
