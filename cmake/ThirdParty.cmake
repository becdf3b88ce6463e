# jsoncpp and tinyxml2 are compiled from the distribution's source packages with their own export switches: their
# types are part of the library's exported interface. zlib is linked statically, so that no other zlib1.dll on a
# customer's path can take its place.

if(MSVC)
    # By vcpkg, with the triplet in cmake/triplets: static libraries whose objects carry their export switches. Every
    # object is linked, or nothing of them would be exported.
    find_package(ZLIB REQUIRED)
    find_package(jsoncpp CONFIG REQUIRED)
    find_package(tinyxml2 CONFIG REQUIRED)
    add_library(UtilsLibZlib ALIAS ZLIB::ZLIB)
    foreach(library IN ITEMS Json Xml)
        add_library(UtilsLib${library} INTERFACE)
    endforeach()
    target_link_libraries(UtilsLibJson INTERFACE "$<LINK_LIBRARY:WHOLE_ARCHIVE,jsoncpp_static>")
    target_link_libraries(UtilsLibXml INTERFACE "$<LINK_LIBRARY:WHOLE_ARCHIVE,tinyxml2::tinyxml2>")
    get_target_property(UTILSLIB_JSONCPP_INCLUDE jsoncpp_static INTERFACE_INCLUDE_DIRECTORIES)
    get_target_property(UTILSLIB_TINYXML2_INCLUDE tinyxml2::tinyxml2 INTERFACE_INCLUDE_DIRECTORIES)
    return()
endif()

find_path(UTILSLIB_ZLIB_INCLUDE zlib.h REQUIRED)
find_library(UTILSLIB_ZLIB_LIBRARY NAMES libz.a REQUIRED)
add_library(UtilsLibZlib INTERFACE)
target_include_directories(UtilsLibZlib SYSTEM INTERFACE "${UTILSLIB_ZLIB_INCLUDE}")
target_link_libraries(UtilsLibZlib INTERFACE "${UTILSLIB_ZLIB_LIBRARY}")

set(UTILSLIB_JSONCPP_DIR "${UTILSLIB_SOURCES_DIR}/jsoncpp")
set(UTILSLIB_TINYXML2_DIR "${UTILSLIB_SOURCES_DIR}/tinyxml2")
set(UTILSLIB_JSONCPP_INCLUDE "${UTILSLIB_JSONCPP_DIR}/include")
set(UTILSLIB_TINYXML2_INCLUDE "${UTILSLIB_TINYXML2_DIR}")
foreach(required "${UTILSLIB_JSONCPP_DIR}/include/json/json.h" "${UTILSLIB_TINYXML2_DIR}/tinyxml2.h")
    if(NOT EXISTS "${required}")
        message(FATAL_ERROR "${required} is missing: run scripts/setup first")
    endif()
endforeach()

add_library(UtilsLibJson OBJECT
    "${UTILSLIB_JSONCPP_DIR}/src/lib_json/json_reader.cpp"
    "${UTILSLIB_JSONCPP_DIR}/src/lib_json/json_value.cpp"
    "${UTILSLIB_JSONCPP_DIR}/src/lib_json/json_writer.cpp")
target_include_directories(UtilsLibJson SYSTEM PUBLIC "${UTILSLIB_JSONCPP_INCLUDE}")
target_compile_definitions(UtilsLibJson PRIVATE JSON_DLL_BUILD)

add_library(UtilsLibXml OBJECT "${UTILSLIB_TINYXML2_DIR}/tinyxml2.cpp")
target_include_directories(UtilsLibXml SYSTEM PUBLIC "${UTILSLIB_TINYXML2_INCLUDE}")
target_compile_definitions(UtilsLibXml PRIVATE TINYXML2_EXPORT)
target_compile_options(UtilsLibJson PRIVATE -w)
target_compile_options(UtilsLibXml PRIVATE -w)
