# vela_test(NAME [TIMEOUT <seconds>] [ARGS <arg>...] SOURCES <file>... [LIBS <lib>...])
#
# One GoogleTest program, registered with ctest under its name. It gets a runtime folder of its own, so
# that tests neither see each other's services nor those of a host that happens to be running.
function(vela_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "ARGS;SOURCES;LIBS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE vela_warnings GTest::gmock GTest::gtest_main ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name} ${ARG_ARGS})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
