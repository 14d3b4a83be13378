# The code in the documents, in blocks marked cpp or cmake, is that of programs which are built and run
# here, so that it cannot become wrong unnoticed.

set(guide_programs commands lock_errors report threads time_guard timer transaction_log)
foreach(name IN LISTS guide_programs)
    add_executable(guide_${name} "${PROJECT_SOURCE_DIR}/examples/guide/${name}.cpp")
    emsutil_configure_target(guide_${name})
    target_link_libraries(guide_${name} PRIVATE emsutil::emsutil)
endforeach()

# Each piece of code in a document, and the example of each header, is from one of these.
file(GLOB quoted CONFIGURE_DEPENDS
    "${PROJECT_SOURCE_DIR}/examples/*.cpp"
    "${PROJECT_SOURCE_DIR}/examples/guide/*.cpp"
    "${PROJECT_SOURCE_DIR}/util/*.cpp")
file(GLOB_RECURSE own_platform CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/own_platform/*")
set(headers ${public_headers})
list(REMOVE_ITEM headers emsutil/export.h)
list(TRANSFORM headers PREPEND include/)
foreach(document IN ITEMS README.md CONTRIBUTING.md docs/guide.md ${headers}
        platform/include/emsplatform/task_manager.h)
    add_test(NAME quotes.${document}
        COMMAND sh "${CMAKE_CURRENT_SOURCE_DIR}/quotes.sh" "${PROJECT_SOURCE_DIR}/${document}"
            ${quoted} ${own_platform})
endforeach()

function(emsutil_add_guide_test name example program)
    add_test(NAME guide.${name}
        COMMAND sh "${CMAKE_CURRENT_SOURCE_DIR}/guide_output.sh"
            "${PROJECT_SOURCE_DIR}/docs/guide.md" ${example} "${program}")
endfunction()

foreach(name IN LISTS guide_programs)
    emsutil_add_guide_test(${name} examples/guide/${name}.cpp "$<TARGET_FILE:guide_${name}>")
endforeach()
emsutil_add_guide_test(own_platform examples/own_platform
    "${CMAKE_CURRENT_BINARY_DIR}/own_platform/own_platform")
set_tests_properties(example.own_platform PROPERTIES FIXTURES_SETUP own_platform)
set_tests_properties(guide.own_platform PROPERTIES FIXTURES_REQUIRED own_platform)

add_executable(ten_lines "${PROJECT_SOURCE_DIR}/examples/ten_lines.cpp")
emsutil_configure_target(ten_lines)
target_link_libraries(ten_lines PRIVATE emsutil::emsutil)
add_test(NAME readme.ten_lines COMMAND ten_lines)
set_tests_properties(readme.ten_lines PROPERTIES
    PASS_REGULAR_EXPRESSION "^:SetLevel={objs={},nvtps={}};\n$")
