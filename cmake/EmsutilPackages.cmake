# Debian packages: cpack in a build directory creates one of each component. The preset `packages`
# configures that directory, with the flags that Debian's packages are compiled with.

set(runtime libemsutil${EMSUTIL_SOVERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "emsutil developers <emsutil@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The packaged files are stripped. Their debug information is put into packages NAME-dbgsym.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_COMPONENTS_ALL Runtime Development Tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where the libraries of emshost are while no package has them yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}" "${PROJECT_BINARY_DIR}/platform")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(description
"Services that the modules of a process share, from general commands to
transaction logs.\n\n")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers"
    "${PROJECT_BINARY_DIR}/symbols")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"${description}This package has the shared libraries: emsutil's, and the stand-in platform's.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libemsutil-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION}), libace-dev (>= 6.5)")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"${description}This package has the headers, the files for CMake and pkg-config, and emshost,
a host process that plays command scripts.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME emsutil-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "gdb (>= 12), ${runtime}-dbgsym (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"${description}This package has emsutil-inspect, which looks into a process that hangs, or
its core.")

execute_process(COMMAND gzip -9nc "${PROJECT_SOURCE_DIR}/cmake/debian/changelog"
    OUTPUT_FILE "${PROJECT_BINARY_DIR}/changelog.gz"
    COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/complete_packages.cmake")
set(CPACK_PROJECT_DIR "${PROJECT_SOURCE_DIR}")
set(CPACK_BUILD_DIR "${PROJECT_BINARY_DIR}")

include(CPack)
