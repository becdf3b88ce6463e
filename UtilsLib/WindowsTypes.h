#pragma once

// The one <windows.h> of the public headers: lean, and without the macros that would change names of callers.
#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#if !defined(WIN32_LEAN_AND_MEAN)
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

// A program that included <windows.h> itself before may have these.
#undef min
#undef max
