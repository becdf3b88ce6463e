# The build machine's gzip (and Python, where there is one) reads what the library compressed, and the other way round.

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${result}: ${ARGN}")
    endif()
endfunction()

function(convert how source destination)
    string(REPLACE "/" "\\" source "Z:${source}")
    string(REPLACE "/" "\\" destination "Z:${destination}")
    run("${WINE_RUN}" "${PROGRAM}" ${how} "${source}" "${destination}")
endfunction()

function(expect_same left right)
    run("${CMAKE_COMMAND}" -E compare_files "${left}" "${right}")
endfunction()

file(REMOVE_RECURSE "${FOLDER}")
file(MAKE_DIRECTORY "${FOLDER}")
file(WRITE "${FOLDER}/empty" "")
string(REPEAT "Ledger line 4711 of the northern depot\n" 20000 text)
file(WRITE "${FOLDER}/text" "${text}")
file(COPY_FILE "${PROGRAM}" "${FOLDER}/program")

foreach(name empty text program)
    set(original "${FOLDER}/${name}")
    convert(compress "${original}" "${original}.ours.gz")
    run("${GZIP}" -t "${original}.ours.gz")
    execute_process(COMMAND "${GZIP}" -dc "${original}.ours.gz" OUTPUT_FILE "${original}.by-gzip"
                    COMMAND_ERROR_IS_FATAL ANY)
    expect_same("${original}" "${original}.by-gzip")

    execute_process(COMMAND "${GZIP}" -9 -c "${original}" OUTPUT_FILE "${original}.gzip.gz"
                    COMMAND_ERROR_IS_FATAL ANY)
    convert(decompress "${original}.gzip.gz" "${original}.from-gzip")
    expect_same("${original}" "${original}.from-gzip")

    if(PYTHON)
        run("${PYTHON}" -c "import gzip, sys
assert gzip.open(sys.argv[1]).read() == open(sys.argv[2], 'rb').read()
gzip.open(sys.argv[3], 'wb').write(open(sys.argv[2], 'rb').read())"
            "${original}.ours.gz" "${original}" "${original}.python.gz")
        convert(decompress "${original}.python.gz" "${original}.from-python")
        expect_same("${original}" "${original}.from-python")
    endif()
endforeach()
