# No installed file names the folder or the person that built it: the installed tree can be moved, and another person's build
# of the same commit gives the same bytes.

file(RELATIVE_PATH vel_libraries_from_programs ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH $ORIGIN/${vel_libraries_from_programs}) # the libraries have one of their own: $ORIGIN
# The build's own search paths are relative too: the length of an absolute one would stay in the files and their build ids.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# RUNPATH, which comes after LD_LIBRARY_PATH: so a platform can put its own library in the place of a stand-in.
add_link_options(-Wl,--enable-new-dtags)

# The same permissions with every umask.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Debug builds keep the true paths in their debug information, for debuggers, but not in the texts of assertions, which are in
# the programs themselves. The build folder comes last, because the last map that fits is used and it is mostly inside the
# source folder.
set(vel_mapped $<IF:$<CONFIG:Debug>,macro,file>)
add_compile_options(
    -f${vel_mapped}-prefix-map=${PROJECT_SOURCE_DIR}=.
    -f${vel_mapped}-prefix-map=${PROJECT_BINARY_DIR}=build)
