# Finds ACE, which has no CMake package of its own, and defines the target ACE::ACE.
# pkg-config knows its directories; without pkg-config the usual directories are searched.

find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
    pkg_check_modules(PC_ACE QUIET ACE)
endif()

find_path(ACE_INCLUDE_DIR ace/ACE.h HINTS ${PC_ACE_INCLUDE_DIRS})
find_library(ACE_LIBRARY ACE HINTS ${PC_ACE_LIBRARY_DIRS})

if(ACE_INCLUDE_DIR AND EXISTS "${ACE_INCLUDE_DIR}/ace/Version.h")
    file(STRINGS "${ACE_INCLUDE_DIR}/ace/Version.h" ACE_VERSION_LINE
        REGEX "#define ACE_VERSION \"[0-9.]+\"")
    string(REGEX MATCH "[0-9.]+" ACE_VERSION "${ACE_VERSION_LINE}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ACE
    REQUIRED_VARS ACE_LIBRARY ACE_INCLUDE_DIR
    VERSION_VAR ACE_VERSION
    REASON_FAILURE_MESSAGE
"On Debian, install libace-dev. For an ACE elsewhere, set ACE_INCLUDE_DIR to the directory of ace/ACE.h and ACE_LIBRARY to the library's file, or add the directory of ACE.pc to the environment variable PKG_CONFIG_PATH.")
mark_as_advanced(ACE_INCLUDE_DIR ACE_LIBRARY)

if(ACE_FOUND AND NOT TARGET ACE::ACE)
    add_library(ACE::ACE UNKNOWN IMPORTED)
    set_target_properties(ACE::ACE PROPERTIES
        IMPORTED_LOCATION "${ACE_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${ACE_INCLUDE_DIR}")
endif()
