#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#if __has_include(<atlbase.h>)

#include <atlbase.h>

// As in WindowsTypes.h, should a header of the platform have brought them back.
#undef min
#undef max

#else

#include <oleauto.h>

/// Owns a COM string. The platform's class of this name where the compiler ships it; here the part of it that the
/// library and its callers use.
///
/// A null string and one of length 0 are two values, both empty to COM. Constructions and assignments copy, and throw
/// _com_error with E_OUTOFMEMORY when there is no memory. A plain value: one thread at a time.
class UTILSLIB_API CComBSTR
{
public:
    /// A null string.
    CComBSTR() noexcept;
    /// A copy up to the first zero; null for null. A BSTR is taken as such a text, too.
    CComBSTR(const wchar_t* text);
    /// The same of a text in the ANSI code page.
    CComBSTR(const char* text);
    /// Copies with all zeros in it.
    CComBSTR(const CComBSTR& other);
    /// Takes the string of `other`, which is null then.
    CComBSTR(CComBSTR&& other) noexcept;
    ~CComBSTR();
    /// As the construction; on failure the object is as it was.
    CComBSTR& operator=(const CComBSTR& other);
    /// Takes the string of `other`, which is null then.
    CComBSTR& operator=(CComBSTR&& other) noexcept;
    /// As the construction from such a text.
    CComBSTR& operator=(const wchar_t* text);
    /// As the construction from such a text.
    CComBSTR& operator=(const char* text);

    /// In characters, without the terminator.
    unsigned int Length() const noexcept;
    /// The string itself, still owned by the object.
    operator BSTR() const noexcept;
    /// A copy that the caller frees with SysFreeString; null for a null string and without memory.
    BSTR Copy() const noexcept;
    /// Frees its string and takes `text`, which must be a BSTR.
    void Attach(BSTR text) noexcept;
    /// Hands the string to the caller, who frees it, and is null.
    BSTR Detach() noexcept;
    /// Frees the string and is null.
    void Empty() noexcept;

    BSTR m_str = nullptr; ///< owned; may be written by a call that returns a string while it is null
};

#endif
