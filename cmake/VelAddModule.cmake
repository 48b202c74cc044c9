# vel_add_module(NAME SOURCE...): a module that can be executed, and that vel-launcher can load into a forked process.
#
# Makes three targets:
#   NAME            the sources, compiled once: here belong include folders, definitions, options and libraries
#   NAME_program    the program NAME
#   NAME_object     the shared object NAME.so, beside the program
#
# The sources define VEL_MODULE_MAIN() of <VelModuleMain> instead of main(). Install with
#   install(TARGETS NAME_program NAME_object RUNTIME DESTINATION FOLDER LIBRARY DESTINATION FOLDER)
function(vel_add_module name)
    add_library(${name} OBJECT ${ARGN})
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${name} PUBLIC Vel::Vel)

    set(main ${CMAKE_CURRENT_BINARY_DIR}/${name}_main.cpp)
    file(CONFIGURE OUTPUT ${main} CONTENT
        "#include <VelModuleMain>\n\nint main(int argc, char** argv) {\n    return velModuleMain(argc, argv);\n}\n")
    add_executable(${name}_program ${main})
    set_target_properties(${name}_program PROPERTIES OUTPUT_NAME ${name})
    target_link_libraries(${name}_program PRIVATE ${name})

    add_library(${name}_object MODULE)
    set_target_properties(${name}_object PROPERTIES PREFIX "" OUTPUT_NAME ${name} SUFFIX .so)
    set(beside $<TARGET_FILE_DIR:${name}_program>)
    set_target_properties(${name}_object PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${beside})
    target_link_libraries(${name}_object PRIVATE ${name})
endfunction()
