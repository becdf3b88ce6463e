# The document libraries are linked into UtilsLib.dll and exported by it: static libraries, each built with its own
# export switch. The C++ run-time library stays a DLL, as the library and its hosts share one copy.
set(VCPKG_TARGET_ARCHITECTURE x86)
set(VCPKG_CRT_LINKAGE dynamic)
set(VCPKG_LIBRARY_LINKAGE static)
# Both kinds of flags must be set when one is.
if(PORT STREQUAL "jsoncpp")
    set(VCPKG_C_FLAGS "")
    set(VCPKG_CXX_FLAGS "/DJSON_DLL_BUILD")
elseif(PORT STREQUAL "tinyxml2")
    set(VCPKG_C_FLAGS "")
    set(VCPKG_CXX_FLAGS "/DTINYXML2_EXPORT")
endif()
