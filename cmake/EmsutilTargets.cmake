# The compile options of all our targets. A user of the library does not receive them.

add_library(emsutil_sanitizers INTERFACE)
if(EMSUTIL_SANITIZE)
    target_compile_options(emsutil_sanitizers INTERFACE
        -fsanitize=${EMSUTIL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(emsutil_sanitizers INTERFACE -fsanitize=${EMSUTIL_SANITIZE})
endif()

function(emsutil_configure_target target)
    target_compile_features(${target} PRIVATE cxx_std_20)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wcast-qual -Wnon-virtual-dtor
        -Woverloaded-virtual -Wundef
        $<$<BOOL:${EMSUTIL_WARNINGS_AS_ERRORS}>:-Werror>
        # A process that hangs or has died must be readable by gdb, however it was built.
        -g)
    target_link_libraries(${target} PRIVATE "$<BUILD_INTERFACE:emsutil_sanitizers>")
endfunction()

# The properties of our shared libraries. `exports` is a linker version script.
function(emsutil_configure_library target exports)
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${EMSUTIL_SOVERSION}
        LINK_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${exports}")
    # The library keeps objects of the process, and threads and exit handlers may still run its code.
    # Closing a plugin that has loaded it must therefore not unload it.
    target_link_options(${target} PRIVATE "LINKER:-z,nodelete"
        "LINKER:--version-script=${CMAKE_CURRENT_SOURCE_DIR}/${exports}")
endfunction()
