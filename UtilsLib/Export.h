#pragma once

/// Marks what the DLL exports. A program that uses the library defines nothing.
#if defined(UTILSLIB_EXPORTS)
#define UTILSLIB_API __declspec(dllexport)
#else
#define UTILSLIB_API __declspec(dllimport)
#endif
