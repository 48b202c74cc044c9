# The supervisor, as people run it: its program, with modules of the tests' own.
add_executable(supervised-peer SupervisedPeer.cpp)
set_target_properties(supervised-peer PROPERTIES AUTOMOC ON)
target_link_libraries(supervised-peer PRIVATE Vel::Vel)

add_library(supervisorrun STATIC SupervisorRun.cpp)
set_target_properties(supervisorrun PROPERTIES AUTOMOC ON)
target_link_libraries(supervisorrun PUBLIC velharness Qt5::DBus Qt5::Test)

foreach(test IN ITEMS
    SupervisorTestConfiguration
    SupervisorTestEnd
    SupervisorTestKills
    SupervisorTestModules
    SupervisorTestSave
)
    vel_test(${test} LABEL tools LINK supervisorrun)
    add_dependencies(${test} vel-supervisor supervised-peer)
endforeach()
set_tests_properties(SupervisorTestKills PROPERTIES TIMEOUT 900) # 150 systems of four processes each
