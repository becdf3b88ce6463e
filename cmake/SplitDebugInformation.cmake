# Run at installation: moves the debug information of the installed DLL to UtilsLib.dll.debug beside it. That of the
# stand-ins is of no use to anybody.
set(folder "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/bin")
set(dll "${folder}/UtilsLib.dll")
set(commands
    "--only-keep-debug|${dll}|${dll}.debug"
    "--strip-debug|${dll}"
    "--add-gnu-debuglink=${dll}.debug|${dll}")
file(GLOB stand_ins "${folder}/Corvane.*.dll")
foreach(stand_in IN LISTS stand_ins)
    list(APPEND commands "--strip-debug|${stand_in}")
endforeach()
foreach(command IN LISTS commands)
    string(REPLACE "|" ";" arguments "${command}")
    execute_process(COMMAND "${objcopy}" ${arguments} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
