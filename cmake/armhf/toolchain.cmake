# Builds for 32-bit ARM Linux with hardware floating point, with Debian's cross-compiler, against a sysroot.
#
# For another board, copy it and change the triplet, the sysroot and the emulator; docs/porting.md tells what the sysroot
# must hold.

get_filename_component(made ${CMAKE_CURRENT_LIST_DIR}/../../build ABSOLUTE) # CMake compares folders by their names

set(triplet arm-linux-gnueabihf)
set(VEL_SYSROOT ${made}/armhf-sysroot
    CACHE PATH "Root folder of the target's libraries and headers, as cmake/armhf/make-sysroot makes it")
set(VEL_EMULATOR ${made}/armhf-run
    CACHE FILEPATH "Runs a program of the target on this machine; empty when there is none")

if(NOT IS_DIRECTORY ${VEL_SYSROOT})
    message(FATAL_ERROR "cannot build for another machine: there is no sysroot '${VEL_SYSROOT}'; "
        "scripts/test-armhf makes one, and so does cmake/armhf/make-sysroot")
endif()

# When CMake tries the compiler, it reads this file again, but not the cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VEL_SYSROOT VEL_EMULATOR)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # warns of calls between code of GCC 6 and of later ones; here is only one
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_SYSROOT ${VEL_SYSROOT})
set(CMAKE_CROSSCOMPILING_EMULATOR ${VEL_EMULATOR})

# Programs such as moc come from this machine, libraries and headers from the sysroot.
set(CMAKE_FIND_ROOT_PATH ${VEL_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR} ${VEL_SYSROOT}/usr/lib/${triplet}/pkgconfig:${VEL_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${VEL_SYSROOT})
