# Settings of our own code. Third-party sources get the code generation options only.

add_library(UtilsLibWarnings INTERFACE)
target_compile_definitions(UtilsLibWarnings INTERFACE _WIN32_WINNT=0x0601)

if(MSVC)
    # The interface passes standard types and derives from classes that are exported in part, on purpose: C4251, C4275.
    target_compile_options(UtilsLibWarnings INTERFACE /W4 /permissive- /utf-8 /Zc:__cplusplus /wd4251 /wd4275)
    target_compile_definitions(UtilsLibWarnings INTERFACE NOMINMAX WIN32_LEAN_AND_MEAN _CRT_SECURE_NO_WARNINGS)
    return()
endif()
target_compile_options(UtilsLibWarnings INTERFACE -Wall -Wextra -Wpedantic -Werror)

# Wine's stack walker reads DWARF up to version 4; later versions give frames without names.
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-g> $<$<COMPILE_LANGUAGE:CXX>:-gdwarf-4>)
# Every host processor of the last fifteen years has it, and 32-bit floating point without it is slow and inexact.
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-msse2> $<$<COMPILE_LANGUAGE:CXX>:-mfpmath=sse>)
# Windows callers promise a stack aligned to 4 bytes only; vector spills in callbacks would fault.
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-mstackrealign>)

# The same sources and tools give the same bytes, wherever the sources lie: no build folder in debug information or
# messages, no time of day in the binaries.
add_compile_options("$<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CONFIG:Release>>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>")
add_link_options(-Wl,--no-insert-timestamp)

set(CMAKE_CXX_FLAGS_DEBUG "-Og -D_GLIBCXX_ASSERTIONS")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

if(UTILSLIB_TRAP_UNDEFINED)
    # The sanitizer's run-time library does not exist for this target; trapping needs none.
    add_compile_options(-fsanitize=undefined -fsanitize-undefined-trap-on-error)
endif()
