#pragma once

// Windows promises a new thread and a callback a stack aligned to 4 bytes; gcc's code, such as a host's functions below
// ours, counts on 16. For functions that Windows calls.
#if defined(__GNUC__)
#define UTILSLIB_ALIGNS_STACK __attribute__((force_align_arg_pointer))
#else
#define UTILSLIB_ALIGNS_STACK
#endif
