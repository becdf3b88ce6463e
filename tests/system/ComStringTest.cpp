#include <UtilsLib/system/ComString.h>

#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <comdef.h>

#include <functional>
#include <string>
#include <type_traits>
#include <utility>

using TestSupport::ImportPatch;

namespace
{

std::wstring TextOf(const CComBSTR& string)
{
    return {string.m_str, string.Length()};
}

/// Of a string with a zero in it.
CComBSTR Zeroed()
{
    CComBSTR string;
    string.Attach(SysAllocStringLen(L"a\0b", 3));
    return string;
}

BSTR WINAPI HaveNoMemory(const wchar_t*)
{
    return nullptr;
}

BSTR WINAPI HaveNoMemoryFor(const wchar_t*, UINT)
{
    return nullptr;
}

int g_live = 0;

} // namespace

TEST(ComStringTest, WithoutATextItIsNull)
{
    const CComBSTR none;
    const CComBSTR wide(static_cast<const wchar_t*>(nullptr));
    const CComBSTR narrow(static_cast<const char*>(nullptr));

    for (const CComBSTR* const string : {&none, &wide, &narrow})
    {
        EXPECT_EQ(string->m_str, nullptr);
        EXPECT_EQ(string->Length(), 0u);
        EXPECT_EQ(string->Copy(), nullptr);
    }
}

TEST(ComStringTest, AnEmptyTextIsNotNull)
{
    for (const CComBSTR& string : {CComBSTR(L""), CComBSTR("")})
    {
        ASSERT_NE(string.m_str, nullptr);
        EXPECT_EQ(string.Length(), 0u);
    }
}

TEST(ComStringTest, ItIsMadeOfWideAndNarrowTextsAndComStrings)
{
    const BSTR source = SysAllocString(L"text");
    const CComBSTR ofBstr(source);

    EXPECT_EQ(TextOf(L"text"), L"text");
    EXPECT_EQ(TextOf("\xFC\x80"), L"\u00FC\u20AC"); // the ANSI code page
    EXPECT_EQ(TextOf(ofBstr), L"text");
    EXPECT_NE(ofBstr.m_str, source);
    EXPECT_EQ(static_cast<BSTR>(ofBstr), ofBstr.m_str);
    SysFreeString(source);
}

TEST(ComStringTest, CopiesAreTheirOwnAndKeepZeros)
{
    const CComBSTR string = Zeroed();
    const CComBSTR copy = string;
    CComBSTR assigned = L"old";
    assigned = string;
    const BSTR plain = string.Copy();

    EXPECT_EQ(TextOf(copy), std::wstring(L"a\0b", 3));
    EXPECT_EQ(TextOf(assigned), std::wstring(L"a\0b", 3));
    EXPECT_EQ(std::wstring(plain, SysStringLen(plain)), std::wstring(L"a\0b", 3));
    EXPECT_NE(copy.m_str, string.m_str);
    EXPECT_NE(assigned.m_str, string.m_str);
    SysFreeString(plain);
    assigned = CComBSTR();
    EXPECT_EQ(assigned.m_str, nullptr);
}

TEST(ComStringTest, AMoveHandsTheStringOver)
{
    CComBSTR string = L"text";
    const BSTR held = string.m_str;
    CComBSTR moved = std::move(string);
    EXPECT_EQ(moved.m_str, held);
    EXPECT_EQ(string.m_str, nullptr); // NOLINT(bugprone-use-after-move): null is what is promised
    string = L"other";
    string = std::move(moved);
    EXPECT_EQ(string.m_str, held);
    EXPECT_EQ(moved.m_str, nullptr); // NOLINT(bugprone-use-after-move)
    static_assert(std::is_nothrow_move_constructible_v<CComBSTR> && std::is_nothrow_move_assignable_v<CComBSTR>);
    static_assert(sizeof(CComBSTR) == sizeof(BSTR));
}

TEST(ComStringTest, TextsAreAssignedItsOwnToo)
{
    CComBSTR string;
    string = L"wide";
    EXPECT_EQ(TextOf(string), L"wide");
    string = "narrow";
    EXPECT_EQ(TextOf(string), L"narrow");
    string = string.m_str + 3;
    EXPECT_EQ(TextOf(string), L"row");
    CComBSTR& same = string;
    string = same;
    EXPECT_EQ(TextOf(string), L"row");
    string = std::move(same);
    EXPECT_EQ(TextOf(string), L"row");
    string = static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(string.m_str, nullptr);
}

TEST(ComStringTest, AStringIsTakenGivenUpAndFreed)
{
    CComBSTR string = L"old";
    const BSTR taken = SysAllocString(L"new");
    string.Attach(taken);
    EXPECT_EQ(string.m_str, taken);
    string.Attach(taken); // its own stays
    EXPECT_EQ(TextOf(string), L"new");

    EXPECT_EQ(string.Detach(), taken);
    EXPECT_EQ(string.m_str, nullptr);
    SysFreeString(taken);

    string = L"text";
    string.Empty();
    EXPECT_EQ(string.m_str, nullptr);
    string.Empty();
}

TEST(ComStringTest, WithoutMemoryItThrowsAndKeepsWhatItHad)
{
    const CComBSTR source = L"source";
    CComBSTR target = L"old";
    const std::function<void()> actions[] = {
        [] { const CComBSTR string(L"x"); },
        [] { const CComBSTR string("x"); },
        [&] { const CComBSTR string(source); },
        [&] { target = source; },
        [&] { target = L"new"; },
        [&] { target = "new"; },
    };
    const ImportPatch text("oleaut32.dll", "SysAllocString", &HaveNoMemory);
    const ImportPatch length("oleaut32.dll", "SysAllocStringLen", &HaveNoMemoryFor);
    for (const auto& action : actions)
    {
        try
        {
            action();
            ADD_FAILURE() << "nothing thrown";
        }
        catch (const _com_error& error)
        {
            EXPECT_EQ(error.Error(), E_OUTOFMEMORY);
        }
    }
    EXPECT_EQ(TextOf(target), L"old");
    EXPECT_EQ(source.Copy(), nullptr);
}

TEST(ComStringTest, EveryStringIsFreedOnce)
{
    static decltype(&SysAllocString) s_text;
    static decltype(&SysAllocStringLen) s_length;
    static decltype(&SysFreeString) s_free;
    struct Count
    {
        static BSTR WINAPI Text(const wchar_t* text)
        {
            g_live += text != nullptr ? 1 : 0;
            return s_text(text);
        }
        static BSTR WINAPI Length(const wchar_t* text, UINT length)
        {
            ++g_live;
            return s_length(text, length);
        }
        static void WINAPI Free(BSTR text)
        {
            g_live -= text != nullptr ? 1 : 0;
            s_free(text);
        }
    };
    const ImportPatch text("oleaut32.dll", "SysAllocString", &Count::Text);
    const ImportPatch length("oleaut32.dll", "SysAllocStringLen", &Count::Length);
    const ImportPatch free("oleaut32.dll", "SysFreeString", &Count::Free);
    s_text = text.Original<BSTR WINAPI(const wchar_t*)>();
    s_length = length.Original<BSTR WINAPI(const wchar_t*, UINT)>();
    s_free = free.Original<void WINAPI(BSTR)>();
    g_live = 0;
    {
        CComBSTR a = L"a";
        CComBSTR b = "b";
        const CComBSTR c = a;
        EXPECT_EQ(g_live, 3);
        b = c;
        a = "other";
        a = std::move(b);
        b.Attach(a.Copy());
        EXPECT_EQ(g_live, 3);
        b.Empty();
        EXPECT_EQ(g_live, 2);
        CComBSTR none;
        none = CComBSTR();
    }
    EXPECT_EQ(g_live, 0);
}
