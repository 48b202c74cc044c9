# The options of a build: the bus-name prefix, the version stamp, warnings, sanitizers. docs/configuration.md explains them.

set(VEL_BUS_PREFIX "org.vel.module" CACHE STRING
    "Bus-name prefix of three elements, the same in every module of a system")

# The date honours SOURCE_DATE_EPOCH, so that two builds of one commit are the same bytes.
string(TIMESTAMP vel_now "%Y-%m-%d %H:%M:%S" UTC)
set(VEL_VERSION_RELEASE "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}" CACHE STRING "Version stamp: release identifier")
set(VEL_VERSION_SOFT "${PROJECT_VERSION}" CACHE STRING "Version stamp: software version, dotted numbers")
set(VEL_VERSION_BUILD "0" CACHE STRING "Version stamp: build number")
set(VEL_VERSION_DATE "${vel_now}" CACHE STRING "Version stamp: build date and time")
set(VEL_VERSION_RANGE "generic" CACHE STRING "Version stamp: product range")
set(VEL_VERSION_APPMODE "release" CACHE STRING "Version stamp: application mode")

set(VEL_QT 5 CACHE STRING "Qt's major version: 5 (5.15) or 6 (from 6.4 on)")
set_property(CACHE VEL_QT PROPERTY STRINGS 5 6)
set(vel_least_of_qt5 5.15)
set(vel_least_of_qt6 6.4)
if(NOT vel_least_of_qt${VEL_QT})
    message(FATAL_ERROR "cannot build with Qt '${VEL_QT}': VEL_QT is 5 or 6")
endif()
set(VEL_QT_LEAST ${vel_least_of_qt${VEL_QT}})
# What is built with Qt 6 has names of its own, so that a machine can hold both.
set(VEL_PACKAGE Vel)
set(VEL_SUFFIX "")
if(VEL_QT EQUAL 6)
    set(VEL_PACKAGE VelQt6)
    set(VEL_SUFFIX -qt6)
endif()

option(VEL_MODULE_INFO "Let each module tell about itself on the bus, at /vel/info" ON)

option(VEL_DEBIAN_PACKAGES "Let cpack make Debian packages; the preset packages sets all that belongs to it" OFF)

option(VEL_BENCHMARKS "Build the programs that scripts/bench measures, and the tests that count instructions" OFF)

option(VEL_WARNINGS_AS_ERRORS "Treat every compiler warning as an error" OFF)
set(VEL_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them (address,undefined or thread)")
option(VEL_FUZZ "Build the fuzz targets for libFuzzer instead of as tests; the preset fuzz sets all that belongs to it" OFF)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual)
if(VEL_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()
if(VEL_SANITIZE)
    add_compile_options(-fsanitize=${VEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${VEL_SANITIZE})
endif()

if(VEL_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# The environment of every test that starts a sanitized program. Qt is not built with ThreadSanitizer, so its own memory
# accesses are not checked; VisibleMutex.cpp tells the sanitizer the order that Qt's mutexes make. There are no suppressions.
# Beware of QThread::create(): Qt calls its function from unchecked code, so the function is not checked either. A class with
# a run() of its own is checked, and so is std::thread.
# At its end a program with threads waits for late races, by default for a second. In tests that start hundreds of programs
# that would be most of the time.
set(VEL_SANITIZER_ENVIRONMENT)
if(VEL_SANITIZE MATCHES thread)
    set(VEL_SANITIZER_ENVIRONMENT
        "TSAN_OPTIONS=ignore_noninstrumented_modules=1:halt_on_error=1:exitcode=66:second_deadlock_stack=1:atexit_sleep_ms=100")
endif()

add_compile_definitions(QT_NO_CAST_TO_ASCII QT_DEPRECATED_WARNINGS)
