# The package: what a host needs to compile against the library and to run with it.
include(CMakePackageConfigHelpers)

install(TARGETS UtilsLib EXPORT UtilsLibTargets RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
install(FILES "$<TARGET_FILE:SuiteDataServices>" "$<TARGET_FILE:SuiteGuidUtils>" ${UTILSLIB_RUNTIME_FILES}
        DESTINATION bin)
install(FILES "${CMAKE_SOURCE_DIR}/suite/STAND-INS.txt" DESTINATION bin)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/UtilsLib" DESTINATION include
        FILES_MATCHING PATTERN "*.h" PATTERN "platform" EXCLUDE)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/suite" DESTINATION include FILES_MATCHING PATTERN "*.h")
install(DIRECTORY "${UTILSLIB_JSONCPP_INCLUDE}/json" DESTINATION include FILES_MATCHING PATTERN "*.h")
install(FILES "${UTILSLIB_TINYXML2_INCLUDE}/tinyxml2.h" DESTINATION include)

# The debug information stands beside the DLL, in a file of its own: stack traces have names and lines where it is, and
# an installer that wants to be small leaves it out.
if(MSVC)
    install(FILES "$<TARGET_PDB_FILE:UtilsLib>" DESTINATION bin OPTIONAL)
else()
    install(CODE "set(objcopy \"${CMAKE_OBJCOPY}\")")
    install(SCRIPT "${CMAKE_CURRENT_LIST_DIR}/SplitDebugInformation.cmake")
endif()

# The licences of everything that is in the package.
install(FILES "${CMAKE_SOURCE_DIR}/LICENSE" DESTINATION licenses RENAME UtilsLib.txt)
if(NOT MSVC)
    install(FILES "${UTILSLIB_JSONCPP_DIR}/LICENSE" DESTINATION licenses RENAME jsoncpp.txt)
    install(FILES "${UTILSLIB_TINYXML2_DIR}/LICENSE.txt" DESTINATION licenses RENAME tinyxml2.txt)
    install(FILES /usr/share/doc/libz-mingw-w64-dev/copyright DESTINATION licenses RENAME zlib.txt)
    install(FILES /usr/share/doc/gcc-mingw-w64-base/copyright DESTINATION licenses RENAME libstdc++-and-libgcc.txt)
    install(FILES /usr/share/doc/mingw-w64-common/copyright DESTINATION licenses RENAME winpthreads.txt)
endif()

install(EXPORT UtilsLibTargets NAMESPACE UtilsLib:: DESTINATION lib/cmake/UtilsLib)
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/UtilsLibConfig.cmake.in"
    "${CMAKE_BINARY_DIR}/UtilsLibConfig.cmake" INSTALL_DESTINATION lib/cmake/UtilsLib)
# The interface passes standard library types: a package of another minor version does not do.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/UtilsLibConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/UtilsLibConfig.cmake" "${CMAKE_BINARY_DIR}/UtilsLibConfigVersion.cmake"
        DESTINATION lib/cmake/UtilsLib)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME UtilsLib)
set(CPACK_PACKAGE_FILE_NAME "UtilsLib-${PROJECT_VERSION}-win32")
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/package")
set(CPACK_RESOURCE_FILE_LICENSE "${CMAKE_SOURCE_DIR}/LICENSE")
set(CPACK_VERBATIM_VARIABLES ON)
# Dates of files are part of a ZIP; the same build must give the same bytes.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/FixDates.cmake")
include(CPack)
