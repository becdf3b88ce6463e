// Functions of the run-time library that mingw-w64 does not declare in this dialect.
#pragma clang system_header
#include_next <stdlib.h>
#if defined(__cplusplus) && !defined(MSVC_CHECK_STDLIB_H)
#define MSVC_CHECK_STDLIB_H
extern "C" float __cdecl _strtof_l(const char*, char**, _locale_t);
extern "C" long double __cdecl _strtold_l(const char*, char**, _locale_t);
#endif
