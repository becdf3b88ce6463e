#pragma once

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <string>

namespace TestSupport
{

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// A handle of the test's own on a file that is there, beside what the library does; the reason of a failure is in
/// GetLastError.
inline UtilsLib::Platform::UniqueFileHandle OpenFile(const std::string& path, DWORD access, DWORD share = kShareAll)
{
    return UtilsLib::Platform::UniqueFileHandle(
        CreateFileA(path.c_str(), access, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

/// The error of opening a file that is there, 0 when it can be opened.
inline DWORD ErrorOfOpening(const std::string& path, DWORD access)
{
    const UtilsLib::Platform::UniqueFileHandle file = OpenFile(path, access);
    return file ? 0 : GetLastError();
}

} // namespace TestSupport
