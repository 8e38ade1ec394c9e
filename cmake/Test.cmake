# What every test runs under: leaks and races are failures but for the deliberate ones, each named.
set(VELA_TEST_ENVIRONMENT
    "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0"
    "TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1:atexit_sleep_ms=0"
    "UBSAN_OPTIONS=print_stacktrace=1")

# vela_test(NAME [TIMEOUT <seconds>] [ARGS <arg>...] SOURCES <file>... [LIBS <lib>...])
#
# One GoogleTest program, registered with ctest under its name.
function(vela_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "ARGS;SOURCES;LIBS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE vela_warnings GTest::gmock GTest::gtest_main ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name} ${ARG_ARGS})
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "${VELA_TEST_ENVIRONMENT}")
endfunction()
