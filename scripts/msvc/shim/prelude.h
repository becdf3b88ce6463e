// Comes before everything: makes mingw-w64's headers acceptable in the dialect, and hides which compiler this is.
#pragma once
#pragma clang system_header
#include <_mingw.h>
#undef __attribute__
#undef __MINGW_ATTRIB_DEPRECATED
#define __MINGW_ATTRIB_DEPRECATED
#undef __MINGW_ATTRIB_DEPRECATED_SEC_WARN
#define __MINGW_ATTRIB_DEPRECATED_SEC_WARN
#undef __MINGW_ATTRIB_NORETURN
#define __MINGW_ATTRIB_NORETURN __attribute__((__noreturn__))
#undef __MINGW_NOTHROW
#define __MINGW_NOTHROW
#define DECLSPEC_UUID(x) __declspec(uuid(x))
#undef __MINGW32__
#undef __MINGW64__
#ifdef __cplusplus
#include <__config>
#endif
#undef __clang__            /* as with cl: code that asks for clang is not taken */
