# The C++ run-time library is shared: exceptions, strings and callables cross the DLL's border, so the library and
# its hosts must use one copy. These files stand beside every program and go into the package.

set(UTILSLIB_RUNTIME_DLLS)
foreach(name libstdc++-6.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
                    OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${path}" OR NOT EXISTS "${path}")
        message(FATAL_ERROR "The compiler's run-time library ${name} was not found")
    endif()
    list(APPEND UTILSLIB_RUNTIME_DLLS "${path}")
endforeach()

# Stripped: their symbols are of no use to a host and slow every stack trace down. With the dates kept, as the tool
# would write the time of day into the file.
set(UTILSLIB_RUNTIME_DIR "${CMAKE_BINARY_DIR}/bin")
file(MAKE_DIRECTORY "${UTILSLIB_RUNTIME_DIR}")
foreach(path IN LISTS UTILSLIB_RUNTIME_DLLS)
    get_filename_component(name "${path}" NAME)
    if("${path}" IS_NEWER_THAN "${UTILSLIB_RUNTIME_DIR}/${name}")
        execute_process(COMMAND ${CMAKE_STRIP} --preserve-dates -o "${UTILSLIB_RUNTIME_DIR}/${name}" "${path}"
                        COMMAND_ERROR_IS_FATAL ANY)
    endif()
    list(APPEND UTILSLIB_RUNTIME_FILES "${UTILSLIB_RUNTIME_DIR}/${name}")
endforeach()
