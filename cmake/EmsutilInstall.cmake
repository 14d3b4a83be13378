# What is installed, in two components: Runtime has the shared libraries, Development all that a host
# is built with, and emshost, as a package of shared libraries has no programs. The install folders may
# be relative, and the tree can then be moved, or absolute.

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
    execute_process(COMMAND gzip -9nc "${CMAKE_CURRENT_SOURCE_DIR}/docs/emshost.1"
        OUTPUT_FILE "${CMAKE_CURRENT_BINARY_DIR}/emshost.1.gz"
        COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/emshost.1.gz"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
        COMPONENT Development)
endif()

# Outside the dynamic linker's own folders too, what is installed finds the libraries beside it.
if(NOT DEFINED CMAKE_INSTALL_RPATH)
    file(RELATIVE_PATH bin_to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set_property(TARGET emsutil PROPERTY INSTALL_RPATH "\$ORIGIN")
    if(EMSUTIL_BUILD_HOST)
        set_property(TARGET emshost PROPERTY INSTALL_RPATH "\$ORIGIN/${bin_to_lib}")
    endif()
endif()

# find_package(emsutil)
set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/emsutil")
configure_package_config_file(cmake/emsutil-config.cmake.in emsutil-config.cmake
    INSTALL_DESTINATION "${package_folder}"
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(emsutil-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
        "${CMAKE_CURRENT_BINARY_DIR}/emsutil-config.cmake"
        "${CMAKE_CURRENT_BINARY_DIR}/emsutil-config-version.cmake"
        cmake/FindACE.cmake
    DESTINATION "${package_folder}"
    COMPONENT Development)
install(EXPORT emsutil
    NAMESPACE emsutil::
    FILE emsutil-targets.cmake
    DESTINATION "${package_folder}"
    COMPONENT Development)

# pkg-config. A relative folder is told from where the file itself lies, but for the system's, which
# pkg-config leaves out when it knows them by their names.
set(pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH pc_to_prefix "/${pc_folder}" /)
    string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_to_prefix}")
endif()
foreach(folder IN ITEMS LIBDIR INCLUDEDIR)
    set(pc_${folder} "\${prefix}")
    cmake_path(APPEND pc_${folder} "${CMAKE_INSTALL_${folder}}")
endforeach()
foreach(package IN ITEMS emsutil emsplatform)
    configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${package}.pc"
        DESTINATION "${pc_folder}"
        COMPONENT Development)
endforeach()
