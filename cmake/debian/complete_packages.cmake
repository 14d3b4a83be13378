# cpack runs this when the files of all packages are in place.

# Debian wants these documents in each package; a plain cmake --install does not install them.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} COMPONENT)
    file(COPY "${CPACK_PROJECT_DIR}/cmake/debian/copyright" "${CPACK_BUILD_DIR}/changelog.gz"
        DESTINATION "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/doc/${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME}")
endforeach()

# Names are added in minor versions only (docs/abi.md), so a program that was linked with this library
# needs this minor version or a later one.
file(GLOB_RECURSE libraries "${CPACK_TEMPORARY_DIRECTORY}/Runtime/*.so.${CPACK_PACKAGE_VERSION}")
list(TRANSFORM libraries PREPEND "-e")
execute_process(COMMAND dpkg-gensymbols -q ${libraries} "-p${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}"
        "-v${CPACK_PACKAGE_VERSION_MAJOR}.${CPACK_PACKAGE_VERSION_MINOR}" "-O${CPACK_BUILD_DIR}/symbols"
    OUTPUT_QUIET
    COMMAND_ERROR_IS_FATAL ANY)
