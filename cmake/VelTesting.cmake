# Tests of modules for CTest.

set(VEL_TEST_SLOWNESS 1 CACHE STRING
    "How many times slower than on a developer's machine the tests' programs run: for all time limits")

# A test that takes longer counts as hung.
function(vel_limit_test name seconds)
    math(EXPR seconds "${seconds} * ${VEL_TEST_SLOWNESS}")
    set_tests_properties(${name} PROPERTIES TIMEOUT ${seconds})
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT VEL_TEST_SLOWNESS=${VEL_TEST_SLOWNESS})
endfunction()

# Makes a test program and a test of that name.
#
#     vel_add_module_test(NAME
#         SOURCES FILE...        the program, which has a main()
#         [MODULE TARGET]        the module under test: its program is VEL_MODULE_PROGRAM in the sources, a text
#         [LINK LIBRARY...]      a framework and what else it needs: Qt::Test, GTest::gtest
#         [TIMEOUT SECONDS])     300 unless said, times VEL_TEST_SLOWNESS: above the waits for what never comes, which
#                                tell more
#
# The test meets no session bus but the one that it makes.
function(vel_add_module_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "MODULE;TIMEOUT" "SOURCES;LINK")
    if(NOT arg_SOURCES OR arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "vel_add_module_test(${name}): SOURCES is missing, or '${arg_UNPARSED_ARGUMENTS}' is unknown")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    add_executable(${name} ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_link_libraries(${name} PRIVATE ${arg_LINK} Vel::Testing Vel::Vel)
    if(arg_MODULE)
        add_dependencies(${name} ${arg_MODULE})
        target_compile_definitions(${name} PRIVATE VEL_MODULE_PROGRAM="$<TARGET_FILE:${arg_MODULE}>")
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/this-test-made-no-bus)
    vel_limit_test(${name} ${arg_TIMEOUT})
endfunction()
