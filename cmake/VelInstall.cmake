# Installs what the developer of a module needs: headers, the CMake package, the pkg-config file, the documents. The
# libraries and programs are installed by the folders that build them.
#
# Components: runtime (libvel), logging and statemachine (the stand-ins), development, testing, tools, doc.

set(vel_headers_dir ${CMAKE_INSTALL_INCLUDEDIR}/vel${VEL_SUFFIX})
install(FILES ${VEL_FORWARDING_HEADERS} DESTINATION ${vel_headers_dir} COMPONENT development)
# With their folders, because the headers include each other by them.
foreach(header IN LISTS VEL_PUBLIC_HEADERS VEL_SUPPORTING_HEADERS)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES src/${header} DESTINATION ${vel_headers_dir}/${folder} COMPONENT development)
endforeach()

include(CMakePackageConfigHelpers)
set(vel_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${VEL_PACKAGE})
configure_package_config_file(cmake/VelConfig.cmake.in ${PROJECT_BINARY_DIR}/installed/${VEL_PACKAGE}Config.cmake
    INSTALL_DESTINATION ${vel_package_dir}
    PATH_VARS CMAKE_INSTALL_LIBDIR
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/installed/${VEL_PACKAGE}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/installed/${VEL_PACKAGE}Config.cmake
    ${PROJECT_BINARY_DIR}/installed/${VEL_PACKAGE}ConfigVersion.cmake
    cmake/VelAddModule.cmake
    DESTINATION ${vel_package_dir} COMPONENT development)
install(EXPORT VelTargets NAMESPACE Vel:: DESTINATION ${vel_package_dir} COMPONENT development)
install(FILES cmake/VelTesting.cmake DESTINATION ${vel_package_dir} COMPONENT testing)
install(EXPORT VelTestingTargets NAMESPACE Vel:: DESTINATION ${vel_package_dir} COMPONENT testing)

set(vel_pkgconfig_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH vel_prefix_from_pc ${vel_pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" vel_prefix_from_pc ${vel_prefix_from_pc})
file(RELATIVE_PATH vel_libdir_from_prefix ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH vel_includedir_from_prefix ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/vel.pc.in ${PROJECT_BINARY_DIR}/installed/vel${VEL_SUFFIX}.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/installed/vel${VEL_SUFFIX}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# In the folders of the source tree, so that the pages' links to each other work.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
install(FILES examples/Tuner.cpp DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT doc)
install(DIRECTORY examples/module-template examples/bus-policy
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT doc USE_SOURCE_PERMISSIONS)
