#pragma once

#if defined(LIBRARY_ENDS)
#define LIBRARY_ENDS_API __declspec(dllexport)
#else
#define LIBRARY_ENDS_API __declspec(dllimport)
#endif

/// Writes an empty file.
LIBRARY_ENDS_API void WriteMark(const char* folder, const char* name);
/// When this DLL is unloaded or the process ends in order, it writes the mark "library".
LIBRARY_ENDS_API void MarkLibraryEnd(const char* folder);
