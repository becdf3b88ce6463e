#include <UtilsLib/system/ComString.h>

#if !__has_include(<atlbase.h>)

#include <comdef.h>

#include <utility>

namespace
{

/// `text` itself, unless it is what a failed copy of `source` leaves.
BSTR Checked(BSTR text, const void* source)
{
    if (text == nullptr && source != nullptr)
    {
        throw _com_error(E_OUTOFMEMORY);
    }
    return text;
}

BSTR FromAnsi(const char* text)
{
    if (text == nullptr)
    {
        return nullptr;
    }
    const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0); // with the terminator
    const BSTR wide = size > 0 ? SysAllocStringLen(nullptr, static_cast<UINT>(size) - 1) : nullptr;
    MultiByteToWideChar(CP_ACP, 0, text, -1, Checked(wide, text), size);
    return wide;
}

} // namespace

CComBSTR::CComBSTR() noexcept = default;

CComBSTR::CComBSTR(const wchar_t* text) : m_str(Checked(SysAllocString(text), text))
{
}

CComBSTR::CComBSTR(const char* text) : m_str(FromAnsi(text))
{
}

CComBSTR::CComBSTR(const CComBSTR& other) : m_str(Checked(other.Copy(), other.m_str))
{
}

CComBSTR::CComBSTR(CComBSTR&& other) noexcept : m_str(other.Detach())
{
}

CComBSTR::~CComBSTR()
{
    Empty();
}

CComBSTR& CComBSTR::operator=(const CComBSTR& other)
{
    if (this != &other)
    {
        Attach(Checked(other.Copy(), other.m_str));
    }
    return *this;
}

CComBSTR& CComBSTR::operator=(CComBSTR&& other) noexcept
{
    if (this != &other)
    {
        Attach(other.Detach());
    }
    return *this;
}

CComBSTR& CComBSTR::operator=(const wchar_t* text)
{
    return *this = CComBSTR(text); // the text may be its own
}

CComBSTR& CComBSTR::operator=(const char* text)
{
    return *this = CComBSTR(text);
}

unsigned int CComBSTR::Length() const noexcept
{
    return SysStringLen(m_str);
}

CComBSTR::operator BSTR() const noexcept
{
    return m_str;
}

BSTR CComBSTR::Copy() const noexcept
{
    return m_str == nullptr ? nullptr : SysAllocStringLen(m_str, SysStringLen(m_str));
}

void CComBSTR::Attach(BSTR text) noexcept
{
    if (text != m_str)
    {
        SysFreeString(std::exchange(m_str, text));
    }
}

BSTR CComBSTR::Detach() noexcept
{
    return std::exchange(m_str, nullptr);
}

void CComBSTR::Empty() noexcept
{
    Attach(nullptr);
}

#endif
