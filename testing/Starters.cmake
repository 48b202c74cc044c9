# Makes what was built for another machine startable by its path on this one: a script for each program, of the program's
# name, in a folder of their own, that runs it in the emulator.
#
# Preferred to an entry in the kernel's table of binary formats, which is the whole machine's before Linux 6.7, and to
# commands with the emulator in front, since a configuration file, a shell's line or a completion has room for one path.

set(VEL_STARTERS_DIR ${PROJECT_BINARY_DIR}/starters CACHE INTERNAL "The folder of the scripts that start programs in the emulator")

# For every program of that folder and of those below it; to be called when they are all known.
function(vel_make_starters folder)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type STREQUAL EXECUTABLE)
            file(GENERATE OUTPUT ${VEL_STARTERS_DIR}/$<TARGET_FILE_NAME:${target}>
                CONTENT "#!/bin/sh\nexec '${emulator}' '$<TARGET_FILE:${target}>' \"$@\"\n"
                FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
        endif()
    endforeach()
    get_property(subfolders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    foreach(subfolder IN LISTS subfolders)
        vel_make_starters(${subfolder})
    endforeach()
endfunction()
