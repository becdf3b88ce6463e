# Settings of our own code. Third-party sources get the code generation options only.

# Wine's stack walker reads DWARF up to version 4; later versions give frames without names.
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-g> $<$<COMPILE_LANGUAGE:CXX>:-gdwarf-4>)
# Every host processor of the last fifteen years has it, and 32-bit floating point without it is slow and inexact.
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-msse2> $<$<COMPILE_LANGUAGE:CXX>:-mfpmath=sse>)
# Windows callers promise a stack aligned to 4 bytes only; vector spills in callbacks would fault.
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-mstackrealign>)

set(CMAKE_CXX_FLAGS_DEBUG "-Og -D_GLIBCXX_ASSERTIONS")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

if(UTILSLIB_TRAP_UNDEFINED)
    # The sanitizer's run-time library does not exist for this target; trapping needs none.
    add_compile_options(-fsanitize=undefined -fsanitize-undefined-trap-on-error)
endif()

add_library(UtilsLibWarnings INTERFACE)
target_compile_options(UtilsLibWarnings INTERFACE -Wall -Wextra -Wpedantic -Werror)
target_compile_definitions(UtilsLibWarnings INTERFACE _WIN32_WINNT=0x0601)
