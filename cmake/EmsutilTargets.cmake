# What every target of ours is compiled with. Nothing of it reaches a user of the library.

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

# What a library of ours has besides, when it is a shared one. `exports` is a linker version script.
function(emsutil_configure_library target exports)
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${EMSUTIL_SOVERSION}
        LINK_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${exports}")
    # It keeps what belongs to the process, and threads and exit handlers may still run its code, so
    # a plugin that brought it in must not take it away when it is closed.
    target_link_options(${target} PRIVATE "LINKER:-z,nodelete"
        "LINKER:--version-script=${CMAKE_CURRENT_SOURCE_DIR}/${exports}")
endfunction()
