// setjmp is a macro of the compiler here, a function there.
#pragma clang system_header
#include_next <setjmp.h>
#undef _setjmp
#undef setjmp
#define setjmp _setjmp
