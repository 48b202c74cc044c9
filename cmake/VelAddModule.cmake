# vel_add_module(NAME SOURCE...): a module that can be executed, and that vel-launcher can load into a forked process.
#
# Makes two targets of the same compiled sources:
#   NAME            the program, as add_executable() makes it: include folders, definitions, options and libraries are its
#   NAME_object     the shared object NAME.so, beside the program; it is linked with the program's libraries
#
# The sources have VEL_MODULE_MAIN() of <VelModuleMain> in the place of main(). Install both into one folder:
#   install(TARGETS NAME NAME_object RUNTIME DESTINATION FOLDER LIBRARY DESTINATION FOLDER)
function(vel_add_module name)
    add_executable(${name} ${ARGN})
    target_compile_options(${name} PRIVATE -fPIC) # what is compiled for a program alone cannot be loaded
    target_link_libraries(${name} PRIVATE Vel::Vel)

    add_library(${name}_object MODULE $<TARGET_OBJECTS:${name}>)
    set_target_properties(${name}_object PROPERTIES
        PREFIX "" OUTPUT_NAME ${name} SUFFIX .so
        LIBRARY_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:${name}>
        LINKER_LANGUAGE CXX
        AUTOMOC OFF)
    target_link_libraries(${name}_object PRIVATE $<GENEX_EVAL:$<TARGET_PROPERTY:${name},LINK_LIBRARIES>>)
endfunction()
