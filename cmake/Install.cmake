# The package: what a host needs to compile against the library and to run with it.
include(CMakePackageConfigHelpers)

install(TARGETS UtilsLib EXPORT UtilsLibTargets RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
install(FILES "$<TARGET_FILE:SuiteDataServices>" "$<TARGET_FILE:SuiteGuidUtils>" ${UTILSLIB_RUNTIME_FILES}
        DESTINATION bin)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/UtilsLib" DESTINATION include
        FILES_MATCHING PATTERN "*.h" PATTERN "platform" EXCLUDE)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/suite" DESTINATION include FILES_MATCHING PATTERN "*.h")
install(DIRECTORY "${UTILSLIB_JSONCPP_DIR}/include/json" DESTINATION include FILES_MATCHING PATTERN "*.h")
install(FILES "${UTILSLIB_TINYXML2_DIR}/tinyxml2.h" DESTINATION include)

install(EXPORT UtilsLibTargets NAMESPACE UtilsLib:: DESTINATION lib/cmake/UtilsLib)
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/UtilsLibConfig.cmake.in"
    "${CMAKE_BINARY_DIR}/UtilsLibConfig.cmake" INSTALL_DESTINATION lib/cmake/UtilsLib)
# The interface passes standard library types: a package of another minor version does not do.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/UtilsLibConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/UtilsLibConfig.cmake" "${CMAKE_BINARY_DIR}/UtilsLibConfigVersion.cmake"
        DESTINATION lib/cmake/UtilsLib)
