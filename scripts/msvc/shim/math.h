// Classification as functions: mingw-w64 has macros, which libc++ cannot pass by.
#pragma clang system_header
#include_next <math.h>
#undef isfinite
#undef isinf
#undef isnan
#undef isnormal
#undef isgreater
#undef isgreaterequal
#undef isless
#undef islessequal
#undef islessgreater
#undef isunordered
#if defined(__cplusplus) && !defined(MSVC_CHECK_MATH_H)
#define MSVC_CHECK_MATH_H
extern "C++"
{
template <class T> inline bool isfinite(T x) noexcept { return __builtin_isfinite((double)x); }
template <class T> inline bool isinf(T x) noexcept { return __builtin_isinf((double)x); }
template <class T> inline bool isnan(T x) noexcept { return __builtin_isnan((double)x); }
template <class T> inline bool isnormal(T x) noexcept { return __builtin_isnormal((double)x); }
template <class T, class U> inline bool isgreater(T x, U y) noexcept { return __builtin_isgreater((double)x, (double)y); }
template <class T, class U> inline bool isgreaterequal(T x, U y) noexcept { return __builtin_isgreaterequal((double)x, (double)y); }
template <class T, class U> inline bool isless(T x, U y) noexcept { return __builtin_isless((double)x, (double)y); }
template <class T, class U> inline bool islessequal(T x, U y) noexcept { return __builtin_islessequal((double)x, (double)y); }
template <class T, class U> inline bool islessgreater(T x, U y) noexcept { return __builtin_islessgreater((double)x, (double)y); }
template <class T, class U> inline bool isunordered(T x, U y) noexcept { return __builtin_isunordered((double)x, (double)y); }
}
#endif
