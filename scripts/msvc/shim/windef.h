// The SDK defines min and max in C++ too, unless NOMINMAX is set.
#pragma clang system_header
#include_next <windef.h>
#ifndef NOMINMAX            /* the SDK defines them in C++ too */
#ifndef max
#define max(a,b) (((a) > (b)) ? (a) : (b))
#endif
#ifndef min
#define min(a,b) (((a) < (b)) ? (a) : (b))
#endif
#endif
