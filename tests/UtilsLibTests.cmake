# utilslib_add_test(NAME SOURCE... [OWN_PREFIX] [LABELS label...] [ENVIRONMENT NAME=value] [LIMIT seconds]
#                   [NEEDS target...])
#
# A GoogleTest program; every test of it is a CTest entry of its own, so that process-wide state (the logger, the live
# settings) starts fresh in each and tests can run in any order and side by side.
# OWN_PREFIX: the tests write machine-wide state (the real registry, services, named objects that others use). They get
# a Wine prefix of their own and run one at a time.
# LIMIT: how long one test may take, without it 60 s. For the few that wait for something slow.
# NEEDS: programs and DLLs that the tests start or load.
function(utilslib_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "OWN_PREFIX" "ENVIRONMENT;LIMIT" "LABELS;NEEDS")
    add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE UtilsLibTestSupport UtilsLib UtilsLibWarnings)
    if(arg_NEEDS)
        add_dependencies(${name} ${arg_NEEDS})
    endif()
    utilslib_discover(${name})
endfunction()

# Registers the tests of a program; may be called again with another PREFIX_NAME for a further environment.
macro(utilslib_discover name)
    set(properties TIMEOUT 120)
    if(arg_LIMIT)
        math(EXPR timeout "2 * ${arg_LIMIT}")
        set(properties TIMEOUT ${timeout})
        set(arg_ENVIRONMENT "UTILSLIB_TEST_LIMIT=${arg_LIMIT}")
    endif()
    if(arg_OWN_PREFIX)
        # A property of its own: the discovery would take a list of two variables apart.
        list(APPEND properties RESOURCE_LOCK ${name} ENVIRONMENT_MODIFICATION "UTILSLIB_WINE_PREFIX=set:${name}")
    endif()
    if(arg_LABELS)
        list(APPEND properties LABELS "${arg_LABELS}")
    endif()
    if(arg_ENVIRONMENT)
        list(APPEND properties ENVIRONMENT "${arg_ENVIRONMENT}")
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES ${properties})
endmacro()

# Gives a program or DLL a version resource: "major,minor,build,revision".
function(utilslib_add_version_resource target FILE_VERSION)
    set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
    configure_file("${CMAKE_SOURCE_DIR}/tests/support/version.rc.in" "${resource}" @ONLY)
    target_sources(${target} PRIVATE "${resource}")
endfunction()
