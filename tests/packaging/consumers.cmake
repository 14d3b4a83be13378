# Outside projects on what is installed. There is a tree of each linkage: that of this build, installed
# into relative directories, and the other one, built anew and installed into absolute directories.

set(consumer "${PROJECT_SOURCE_DIR}/examples/consumer")
set(trees "${CMAKE_CURRENT_BINARY_DIR}/trees (x86) & co") # a path that users have, too
if(BUILD_SHARED_LIBS)
    set(own shared)
    set(other static)
else()
    set(own static)
    set(other shared)
endif()
string(COMPARE EQUAL ${other} shared other_is_shared)

# Configures and builds a project in a directory of the test's name; more options may name what is run
# then.
function(emsutil_add_build_test name source)
    add_test(NAME ${name}
        COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test "${source}" "${CMAKE_CURRENT_BINARY_DIR}/${name}"
            --build-noclean --build-generator ${CMAKE_GENERATOR} ${ARGN})
    set_tests_properties(${name} PROPERTIES LABELS install)
endfunction()

# A file that is no longer installed must not be left from an earlier run.
add_test(NAME install.clean COMMAND "${CMAKE_COMMAND}" -E rm -rf "${trees}")
set_tests_properties(install.clean PROPERTIES LABELS install FIXTURES_SETUP clean)

set(compiler "-DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}")
add_test(NAME install.${own}
    COMMAND "${CMAKE_COMMAND}" --install "${PROJECT_BINARY_DIR}" --prefix "${trees}/${own}")
emsutil_add_build_test(install.${other} "${PROJECT_SOURCE_DIR}"
    --build-target install
    --build-options ${compiler} -DCMAKE_BUILD_TYPE=Debug -DBUILD_SHARED_LIBS=${other_is_shared}
        -DEMSUTIL_BUILD_HOST=OFF -DEMSUTIL_BUILD_TESTS=OFF
        "-DCMAKE_INSTALL_PREFIX=${trees}/${other}"
        "-DCMAKE_INSTALL_LIBDIR=${trees}/${other}/lib"
        "-DCMAKE_INSTALL_INCLUDEDIR=${trees}/${other}/headers")

foreach(linkage IN ITEMS shared static)
    set_tests_properties(install.${linkage} PROPERTIES
        LABELS install
        FIXTURES_REQUIRED clean
        FIXTURES_SETUP ${linkage})

    emsutil_add_build_test(consumer.find_package.${linkage} "${consumer}"
        --build-options ${compiler} "-DCMAKE_PREFIX_PATH=${trees}/${linkage}"
        --test-command consumer)

    # With the oldest standard that a host may have. xargs reads the escapes that pkg-config writes.
    add_test(NAME consumer.pkg-config.${linkage}
        COMMAND sh -ec "pkg-config --cflags --libs emsutil >flags.${linkage}
            xargs \"$1\" -std=c++11 -o consumer.${linkage} \"$2\" <flags.${linkage}
            ./consumer.${linkage}" sh "${CMAKE_CXX_COMPILER}" "${consumer}/main.cpp")
    set_tests_properties(consumer.pkg-config.${linkage} PROPERTIES
        LABELS install
        ENVIRONMENT "PKG_CONFIG_PATH=${trees}/${linkage}/lib/pkgconfig;LD_LIBRARY_PATH=${trees}/${linkage}/lib")

    set_tests_properties(consumer.find_package.${linkage} consumer.pkg-config.${linkage} PROPERTIES
        FIXTURES_REQUIRED ${linkage})
endforeach()

# A provider's author needs no more than the development files.
emsutil_add_build_test(conformance.installed "${PROJECT_SOURCE_DIR}/tests/conformance/provider"
    --build-options ${compiler} "-DCMAKE_PREFIX_PATH=${trees}/${own}"
        "-DEXAMPLE=${PROJECT_SOURCE_DIR}/examples/own_platform"
    --test-command my_platform_conformance)
set_tests_properties(conformance.installed PROPERTIES FIXTURES_REQUIRED ${own})

# The other linkage is that of example.own_platform.
emsutil_add_build_test(consumer.add_subdirectory "${consumer}"
    --build-options ${compiler} "-DEMSUTIL_SOURCE=${PROJECT_SOURCE_DIR}" -DBUILD_SHARED_LIBS=ON
    --test-command consumer)

find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
mark_as_advanced(DPKG_SHLIBDEPS)
if(DPKG_SHLIBDEPS AND CPACK_DEB_COMPONENT_INSTALL)
    add_test(NAME install.debian
        COMMAND sh "${CMAKE_CURRENT_SOURCE_DIR}/debian_packages.sh" "${CMAKE_CPACK_COMMAND}"
            "${PROJECT_BINARY_DIR}" "${trees}/debian")
    emsutil_add_build_test(consumer.debian "${consumer}"
        --build-options ${compiler} "-DCMAKE_PREFIX_PATH=${trees}/debian/root/usr" -DCMAKE_CXX_STANDARD=11
        --test-command consumer)
    set_tests_properties(install.debian PROPERTIES
        LABELS install
        FIXTURES_REQUIRED clean
        FIXTURES_SETUP debian)
    set_tests_properties(consumer.debian PROPERTIES FIXTURES_REQUIRED debian)
endif()
