# Run by cpack before it packs: every file and folder gets the date of the sources' last change, or the one that the
# environment gives.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(date "@$ENV{SOURCE_DATE_EPOCH}")
else()
    execute_process(COMMAND git -C "${CMAKE_CURRENT_LIST_DIR}" log -1 --format=@%ct
                    OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT date MATCHES "^@[0-9]+$")
    set(date "@946684800")
endif()
execute_process(COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -exec touch -h -d "${date}" {} +
                COMMAND_ERROR_IS_FATAL ANY)
