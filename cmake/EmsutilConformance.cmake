# emsutil_add_conformance_test(PLATFORM SOURCE...)
#
# Adds the program PLATFORM_conformance, with "_" for each "::" in PLATFORM. It checks the platform of the
# target PLATFORM by the rules of docs/platform.md. Also adds a test that runs it. One of the sources defines
# ConformanceSetup(), as emsutil_conformance.h says.

set(EMSUTIL_CONFORMANCE_DIR "${CMAKE_CURRENT_LIST_DIR}/../conformance" CACHE INTERNAL
    "The sources of the conformance kit")

function(emsutil_add_conformance_test platform)
    if(NOT TARGET "${platform}")
        message(FATAL_ERROR "emsutil_add_conformance_test: ${platform} is not a target")
    endif()
    find_package(Threads REQUIRED)
    string(REPLACE "::" "_" program "${platform}_conformance") # no target may have "::" in its name
    add_executable(${program} ${ARGN}
        "${EMSUTIL_CONFORMANCE_DIR}/formatter_rules.cpp"
        "${EMSUTIL_CONFORMANCE_DIR}/main.cpp"
        "${EMSUTIL_CONFORMANCE_DIR}/platform_rules.cpp"
        "${EMSUTIL_CONFORMANCE_DIR}/task_rules.cpp")
    target_compile_features(${program} PRIVATE cxx_std_20)
    target_include_directories(${program} PRIVATE "${EMSUTIL_CONFORMANCE_DIR}")
    target_link_libraries(${program} PRIVATE ${platform} Threads::Threads)
    add_test(NAME conformance.${platform} COMMAND ${program})
endfunction()
