// The const overloads of the C++ standard, which Visual C++ has and mingw-w64 leaves out.
#pragma clang system_header
#include_next <string.h>
#if defined(__cplusplus) && !defined(MSVC_CHECK_STRING_H)
#define MSVC_CHECK_STRING_H
extern "C++"
{
inline void* memchr(void* s, int c, size_t n) { return const_cast<void*>(memchr(static_cast<const void*>(s), c, n)); }
inline char* strchr(char* s, int c) { return const_cast<char*>(strchr(static_cast<const char*>(s), c)); }
inline char* strrchr(char* s, int c) { return const_cast<char*>(strrchr(static_cast<const char*>(s), c)); }
inline char* strpbrk(char* s, const char* t) { return const_cast<char*>(strpbrk(static_cast<const char*>(s), t)); }
inline char* strstr(char* s, const char* t) { return const_cast<char*>(strstr(static_cast<const char*>(s), t)); }
}
#include <wchar.h>
#endif
