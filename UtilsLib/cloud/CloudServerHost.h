#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Which cloud server the suite talks to: the production one, unless "Corvane.Tarrow.Service.config" in the 32-bit
/// system folder names another for the mode that it asks for.
///
/// The one instance reads the file once, at the first `GetInstance`; a change of the file counts in the next process.
/// Whatever is wrong with the file ends in the production addresses and at most in lines of the log, under the category
/// `CloudConfiguration`.
class UTILSLIB_API CloudServerHost
{
public:
    /// The one instance, made by the first call, which reads a file and waits for it; never null, and never freed.
    /// Takes no lock: let the first call come before other threads can call.
    static CloudServerHost* GetInstance();

    /// The base address of the cloud drive, as the file spells it. Never changes, so any thread may read it.
    const std::string& GetAddress();
    /// The address of the drive's "mcapi" interface; likewise.
    const std::string& GetMCAddress();

protected:
    /// Reads the configuration. COM is initialised on the thread meanwhile and undone as far as this has done it, so
    /// that the caller's apartment stays as it was.
    CloudServerHost();

private:
    void GetAddresses();
    void ReadConfiguration(const char* path);

    static CloudServerHost* m_pInstance; // null until the first GetInstance

    std::string m_address;
    std::string m_mcAddress;
};

} // namespace UtilsLib
