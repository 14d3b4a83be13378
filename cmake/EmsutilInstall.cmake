# The installed files, in two components. Runtime has the shared libraries. Development has the files that
# a host is built with, and emshost, because a package of shared libraries must not have programs. If the
# install directories are relative, the installed tree can be moved. They may also be absolute.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(TARGETS emsutil emsutil_platform EXPORT emsutil
    LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development
    ARCHIVE COMPONENT Development
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY include/emsutil platform/include/emsplatform platform/include/emsstandin
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    COMPONENT Development
    FILES_MATCHING PATTERN "*.h")
if(EMSUTIL_BUILD_HOST)
    install(TARGETS emshost RUNTIME COMPONENT Development)
    install(DIRECTORY examples/ DESTINATION "${CMAKE_INSTALL_DATADIR}/emsutil/examples"
        COMPONENT Development
        FILES_MATCHING PATTERN "*.ems"
        PATTERN consumer EXCLUDE PATTERN guide EXCLUDE PATTERN own_platform EXCLUDE)
    execute_process(COMMAND gzip -9nc "${CMAKE_CURRENT_SOURCE_DIR}/docs/emshost.1"
        OUTPUT_FILE "${CMAKE_CURRENT_BINARY_DIR}/emshost.1.gz"
        COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/emshost.1.gz"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
        COMPONENT Development)
endif()

# Installed files find the libraries beside them, also outside the dynamic linker's own directories.
if(NOT DEFINED CMAKE_INSTALL_RPATH)
    file(RELATIVE_PATH bin_to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set_property(TARGET emsutil PROPERTY INSTALL_RPATH "\$ORIGIN")
    if(EMSUTIL_BUILD_HOST)
        set_property(TARGET emshost PROPERTY INSTALL_RPATH "\$ORIGIN/${bin_to_lib}")
    endif()
endif()

# The conformance kit, and the page that its messages refer to.
set(kit_directory "${CMAKE_INSTALL_DATADIR}/emsutil")
install(DIRECTORY conformance DESTINATION "${kit_directory}" COMPONENT Development)
install(FILES cmake/EmsutilConformance.cmake DESTINATION "${kit_directory}/cmake" COMPONENT Development)
install(FILES docs/platform.md DESTINATION "${kit_directory}/docs" COMPONENT Development)

# find_package(emsutil)
set(package_directory "${CMAKE_INSTALL_LIBDIR}/cmake/emsutil")
configure_package_config_file(cmake/emsutil-config.cmake.in emsutil-config.cmake
    INSTALL_DESTINATION "${package_directory}"
    PATH_VARS kit_directory
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(emsutil-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
        "${CMAKE_CURRENT_BINARY_DIR}/emsutil-config.cmake"
        "${CMAKE_CURRENT_BINARY_DIR}/emsutil-config-version.cmake"
        cmake/FindACE.cmake
    DESTINATION "${package_directory}"
    COMPONENT Development)
install(EXPORT emsutil
    NAMESPACE emsutil::
    FILE emsutil-targets.cmake
    DESTINATION "${package_directory}"
    COMPONENT Development)

# pkg-config. A relative directory is written relative to the file itself, except in the system's
# directories, which pkg-config omits if it knows them by their names. Blanks and special characters are
# escaped.
function(emsutil_escape variable path)
    string(REGEX REPLACE "([^-A-Za-z0-9_+=:,./~@%])" "\\\\\\1" escaped "${path}")
    set(${variable} "${escaped}" PARENT_SCOPE)
endfunction()

set(pc_directory "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    emsutil_escape(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH pc_to_prefix "/${pc_directory}" /)
    string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_to_prefix}")
endif()
foreach(directory IN ITEMS LIBDIR INCLUDEDIR)
    emsutil_escape(pc_${directory} "${CMAKE_INSTALL_${directory}}")
    if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_${directory}}")
        string(PREPEND pc_${directory} "\${prefix}/")
    endif()
endforeach()
foreach(package IN ITEMS emsutil emsplatform)
    configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${package}.pc"
        DESTINATION "${pc_directory}"
        COMPONENT Development)
endforeach()
