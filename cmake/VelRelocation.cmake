# Nothing that is installed says where or by whom it was built: the installed tree can be moved, and another person's build
# of the same commit gives the same bytes.

file(RELATIVE_PATH vel_libraries_from_programs ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH $ORIGIN/${vel_libraries_from_programs}) # the libraries have one of their own: $ORIGIN
# The build's own search paths too: the length of a build folder's name would stay in the files, and in their build ids.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# Search paths after LD_LIBRARY_PATH, never before it: that is how a platform's library is put in a stand-in's place.
add_link_options(-Wl,--enable-new-dtags)

# Whatever the umask.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Debug builds keep the true paths in their debug information, for debuggers, but not in the texts of assertions: those are
# in the programs themselves. The last map that fits is taken, and the build is mostly in the source.
set(vel_mapped $<IF:$<CONFIG:Debug>,macro,file>)
add_compile_options(
    -f${vel_mapped}-prefix-map=${PROJECT_SOURCE_DIR}=.
    -f${vel_mapped}-prefix-map=${PROJECT_BINARY_DIR}=build)
