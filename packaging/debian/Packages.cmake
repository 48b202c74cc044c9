# The Debian packages that cpack makes of the install components. Finish.cmake does what cpack cannot do.

set(vel_debian ${CMAKE_CURRENT_LIST_DIR})

# Version and maintainer of the packages stand in the changelog only.
function(vel_changelog_field variable field)
    execute_process(COMMAND dpkg-parsechangelog --file ${vel_debian}/changelog --show-field ${field}
        OUTPUT_VARIABLE value OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(${variable} ${value} PARENT_SCOPE)
endfunction()
vel_changelog_field(CPACK_DEBIAN_PACKAGE_VERSION Version)
vel_changelog_field(CPACK_DEBIAN_PACKAGE_MAINTAINER Maintainer)
if(NOT CPACK_DEBIAN_PACKAGE_VERSION MATCHES "^${PROJECT_VERSION}-[0-9]")
    message(FATAL_ERROR "cannot make packages of version ${PROJECT_VERSION}: "
        "the newest entry in packaging/debian/changelog is for ${CPACK_DEBIAN_PACKAGE_VERSION}")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${vel_debian}/Finish.cmake)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # it would stand before each package's own
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE vel)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# For Finish.cmake.
set(CPACK_VEL_DEBIAN ${vel_debian})
set(CPACK_VEL_SHLIBS ${PROJECT_BINARY_DIR}/shlibs)
set(CPACK_VEL_LIBRARIES ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# DEPENDS: dependencies other than libraries, whose packages are found and added. SHLIBS: the shlibs(5) line of the package's
# own library.
function(vel_package name)
    cmake_parse_arguments(arg "" "SECTION;SHLIBS;DEPENDS;RECOMMENDS;SYNOPSIS;DESCRIPTION" "COMPONENTS" ${ARGN})
    string(TOUPPER ${name} NAME)
    foreach(component IN LISTS arg_COMPONENTS)
        string(TOUPPER ${component} COMPONENT)
        set(CPACK_COMPONENT_${COMPONENT}_GROUP ${name} PARENT_SCOPE)
    endforeach()
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${arg_COMPONENTS} PARENT_SCOPE)

    set(CPACK_DEBIAN_${NAME}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${NAME}_PACKAGE_SECTION ${arg_SECTION} PARENT_SCOPE)
    set(CPACK_DEBIAN_${NAME}_PACKAGE_DEPENDS "${arg_DEPENDS}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${NAME}_PACKAGE_RECOMMENDS "${arg_RECOMMENDS}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${NAME}_DESCRIPTION "${arg_SYNOPSIS}\n${arg_DESCRIPTION}" PARENT_SCOPE)
    if(arg_SHLIBS)
        set(CPACK_DEBIAN_${NAME}_PACKAGE_CONTROL_EXTRA
            ${vel_debian}/triggers ${CPACK_VEL_SHLIBS}/${name}/shlibs PARENT_SCOPE)
        file(WRITE ${CPACK_VEL_SHLIBS}/${name}/shlibs "${arg_SHLIBS}\n")
        file(APPEND ${CPACK_VEL_SHLIBS}/debian/shlibs.local "${arg_SHLIBS}\n")
    endif()
endfunction()

# dpkg-shlibdeps runs in the folder of a source package, and needs these two files of it.
file(WRITE ${CPACK_VEL_SHLIBS}/debian/control "")
file(WRITE ${CPACK_VEL_SHLIBS}/debian/shlibs.local "")

# Packages of a build with Qt 6 have names of their own; programs and documents are those of the build with Qt 5.
set(version ${CPACK_DEBIAN_PACKAGE_VERSION})
set(qt "Qt ${VEL_QT}")
vel_package(libvel1${VEL_SUFFIX}
    COMPONENTS runtime
    SECTION libs
    SHLIBS "libvel${VEL_SUFFIX} 1 libvel1${VEL_SUFFIX} (>= ${PROJECT_VERSION})"
    DEPENDS "procps" # the program kill: a module freezes itself with it
    SYNOPSIS "library for systems of cooperating processes on D-Bus"
    DESCRIPTION "Vel gives each process of a system a name on the D-Bus session bus, one
lifecycle, named events, calls to other processes, and a part in saves and
resets.
.
This package contains the library that such processes run with, for ${qt}.")

# Unversioned, so that a platform's own package can provide it.
vel_package(libvellogging1${VEL_SUFFIX}
    COMPONENTS logging
    SECTION libs
    SHLIBS "libvellogging${VEL_SUFFIX} 1 libvellogging1${VEL_SUFFIX}"
    SYNOPSIS "logging library for Vel modules"
    DESCRIPTION "Vel leaves logging to the platform. This library has the interface that Vel
expects of it, and writes the lines with Qt's own message logging.
.
A platform that has such a library installs its own package instead, which
provides libvellogging1${VEL_SUFFIX}.")

vel_package(libautomatonzeta1${VEL_SUFFIX}
    COMPONENTS statemachine
    SECTION libs
    SHLIBS "libautomatonzeta${VEL_SUFFIX} 1 libautomatonzeta1${VEL_SUFFIX}"
    SYNOPSIS "state-machine library for Vel modules"
    DESCRIPTION "Vel leaves state machines to the platform. This library has the interface
that Vel expects of it, on top of Qt's own state machine.
.
A platform that has such a library installs its own package instead, which
provides libautomatonzeta1${VEL_SUFFIX}.")

if(VEL_QT EQUAL 6)
    set(qt_development "qt6-base-dev (>= ${VEL_QT_LEAST})")
    set(documents "")
    set(contents "headers, packages for CMake and pkg-config. Documents are in libvel-dev.")
else()
    set(qt_development "qtbase5-dev (>= ${VEL_QT_LEAST})")
    set(documents doc)
    set(contents "headers, packages for CMake and pkg-config, and documents.")
endif()
vel_package(libvel${VEL_SUFFIX}-dev
    COMPONENTS development ${documents}
    SECTION libdevel
    DEPENDS "libvel1${VEL_SUFFIX} (= ${version}), libvellogging1${VEL_SUFFIX}, libautomatonzeta1${VEL_SUFFIX}, ${qt_development}"
    SYNOPSIS "library for systems of cooperating processes on D-Bus (development)"
    DESCRIPTION "Vel gives each process of a system a name on the D-Bus session bus, one
lifecycle, named events, calls to other processes, and a part in saves and
resets.
.
This package contains what is needed to write such processes with ${qt}:
${contents}")

vel_package(libvel${VEL_SUFFIX}-testing-dev
    COMPONENTS testing
    SECTION libdevel
    DEPENDS "libvel${VEL_SUFFIX}-dev (= ${version}), libdbus-1-dev, dbus-daemon"
    SYNOPSIS "library for tests of Vel modules"
    DESCRIPTION "Vel gives each process of a system a name on the D-Bus session bus, one
lifecycle, named events, calls to other processes, and a part in saves and
resets.
.
This package contains what a test of such a process stands on: a bus of its
own, fake modules, and a record of what passes on the bus.")

if(VEL_QT EQUAL 6)
    add_custom_target(packaged DEPENDS vel veltesting)
    include(CPack)
    return()
endif()

vel_package(vel-tools
    COMPONENTS tools
    SECTION utils
    RECOMMENDS "dbus-daemon"
    SYNOPSIS "tools for systems of Vel modules"
    DESCRIPTION "velctl lists the modules of a running system, shows and publishes their
events, calls their methods and stops them; it records what passes on the bus,
and replays it. vel-supervisor starts the modules
that a configuration names, watches them, and saves and restores their data.")

if(TARGET vel-bridge)
    vel_package(vel-bridge
        COMPONENTS bridge
        SECTION utils
        RECOMMENDS "dbus-daemon"
        SYNOPSIS "joins the message buses of machines by an MQTT broker"
        DESCRIPTION "vel-bridge puts modules of other machines on this machine's message bus as
if they ran here, and carries events between them. What was accepted is kept
until each machine that takes it has it.")
endif()

# What the packages are made of.
set(vel_packaged vel velctl vel-supervisor vel-launcher veltesting)
if(TARGET vel-bridge)
    list(APPEND vel_packaged vel-bridge)
endif()
add_custom_target(packaged DEPENDS ${vel_packaged})

include(CPack)
