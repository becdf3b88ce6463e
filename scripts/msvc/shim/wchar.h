// The const overloads of the C++ standard.
#pragma clang system_header
#include_next <wchar.h>
#if defined(__cplusplus) && !defined(MSVC_CHECK_WCHAR_H)
#define MSVC_CHECK_WCHAR_H
extern "C++"
{
inline wchar_t* wcschr(wchar_t* s, wchar_t c) { return const_cast<wchar_t*>(wcschr(static_cast<const wchar_t*>(s), c)); }
inline wchar_t* wcsrchr(wchar_t* s, wchar_t c) { return const_cast<wchar_t*>(wcsrchr(static_cast<const wchar_t*>(s), c)); }
inline wchar_t* wcspbrk(wchar_t* s, const wchar_t* t) { return const_cast<wchar_t*>(wcspbrk(static_cast<const wchar_t*>(s), t)); }
inline wchar_t* wcsstr(wchar_t* s, const wchar_t* t) { return const_cast<wchar_t*>(wcsstr(static_cast<const wchar_t*>(s), t)); }
}
#endif
