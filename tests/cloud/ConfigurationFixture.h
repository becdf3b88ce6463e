#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <objbase.h>
#include <shlobj.h>

#include <optional>
#include <string>
#include <vector>

namespace CloudTests
{

/// What the library asked of COM and of the shell, and what the shell answers.
struct System
{
    std::string folder; // empty: the shell fails
    std::vector<std::string> shellCalls;
    int initialised = 0; // calls
    int succeeded = 0;   // of them
    int undone = 0;
};
inline System g_system;

inline HRESULT WINAPI TellFolder(HWND window, int folder, HANDLE token, DWORD flags, char* path)
{
    g_system.shellCalls.push_back((window == nullptr && token == nullptr ? "" : "owner ") + std::to_string(folder) +
                                  " " + std::to_string(flags));
    if (g_system.folder.empty())
    {
        return E_FAIL;
    }
    lstrcpynA(path, g_system.folder.c_str(), MAX_PATH);
    return S_OK;
}

/// The 32-bit system folder, as the library sees it, is a folder of the test's own; COM's initialisations are counted.
class ConfigurationFixture
{
public:
    ConfigurationFixture()
    {
        g_system = {};
        g_system.folder = m_system.Path();
        s_initialize = m_initialize.Original<HRESULT WINAPI(void*)>();
        s_uninitialize = m_uninitialize.Original<void WINAPI()>();
    }

    void WriteConfiguration(const std::string& text) const
    {
        m_system.Write(kName, text);
    }
    /// Every initialisation that succeeded was undone, and no other.
    static bool IsComBalanced()
    {
        return g_system.initialised > 0 && g_system.succeeded == g_system.undone;
    }

    static constexpr const char* kName = "Corvane.Tarrow.Service.config";
    const TestSupport::TempFolder m_system;

private:
    static HRESULT WINAPI CountInitialize(void* reserved)
    {
        EXPECT_EQ(reserved, nullptr);
        const HRESULT result = s_initialize(reserved);
        ++g_system.initialised;
        g_system.succeeded += SUCCEEDED(result) ? 1 : 0;
        return result;
    }
    static void WINAPI CountUninitialize()
    {
        ++g_system.undone;
        s_uninitialize();
    }

    static inline HRESULT(WINAPI* s_initialize)(void*) = nullptr;
    static inline void(WINAPI* s_uninitialize)() = nullptr;
    TestSupport::ImportPatch m_shell{"shell32.dll", "SHGetFolderPathA", &TellFolder};
    TestSupport::ImportPatch m_initialize{"ole32.dll", "CoInitialize", &CountInitialize};
    TestSupport::ImportPatch m_uninitialize{"ole32.dll", "CoUninitialize", &CountUninitialize};
};

/// The text of a configuration with these server elements.
inline std::string Configuration(const std::string& mode, const std::string& servers)
{
    return "<tarrowConfig mode=\"" + mode + "\"><servers>" + servers + "</servers></tarrowConfig>";
}

/// In place of CoCreateInstance.
inline HRESULT WINAPI MakeNothing(const CLSID&, IUnknown*, DWORD, const IID&, void**)
{
    return REGDB_E_CLASSNOTREG;
}

/// In place of SysAllocString.
inline BSTR WINAPI HaveNoMemory(const wchar_t*)
{
    return nullptr;
}

/// COM for a scope of a test's own thread.
class ScopedApartment
{
public:
    explicit ScopedApartment(DWORD kind)
    {
        EXPECT_EQ(CoInitializeEx(nullptr, kind), S_OK);
    }
    ~ScopedApartment()
    {
        CoUninitialize();
    }
    ScopedApartment(const ScopedApartment&) = delete;
    ScopedApartment& operator=(const ScopedApartment&) = delete;
};

/// The calling thread's apartment; nothing without COM.
inline std::optional<APTTYPE> Apartment()
{
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    if (CoGetApartmentType(&type, &qualifier) != S_OK)
    {
        return std::nullopt;
    }
    return type;
}

} // namespace CloudTests
