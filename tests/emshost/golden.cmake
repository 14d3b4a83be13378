# Runs emshost on a script and compares what it writes with what it wrote when that was right:
#
#     cmake -DEMSHOST=PROGRAM -DSCRIPT=FILE -DGOLDEN=STEM [-DOPTIONS=...] -P host_golden.cmake
#
# STEM.out is its standard output, STEM.err its standard error, both with times, thread ids and
# the temporary folder masked, and with them the gaps whose width depends on them.

execute_process(COMMAND "${EMSHOST}" ${OPTIONS} "${SCRIPT}"
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(REGEX REPLACE "\n[0-9a-f]+ +(report|worker) " "\n#  \\1 " out "${out}")
string(REGEX REPLACE " +[0-9]+\\.[0-9]" "  #" out "${out}")
string(REGEX REPLACE "\ninstall path [^\n]+" "\ninstall path #" out "${out}")
string(REGEX REPLACE "[A-Z][a-z]+ [A-Z][a-z]+ +[0-9]+ [0-9:]+ [0-9][0-9][0-9][0-9]" "#" out "${out}")
string(REGEX REPLACE "used time\\(ms\\): [0-9]+" "used time(ms): #" err "${err}")
string(REGEX REPLACE "(seconds|commands a second) +[0-9.]+" "\\1  #" err "${err}")
string(REGEX REPLACE "( thread id) +[0-9a-f]+" "\\1  #" err "${err}")
string(REGEX REPLACE "( thread start) +[0-9]+" "\\1  #" err "${err}")
string(REGEX REPLACE "  +" "  " err "${err}")

if(NOT status EQUAL 0)
    message(SEND_ERROR "exit status ${status}")
endif()
foreach(stream IN ITEMS out err)
    file(READ "${GOLDEN}.${stream}" expected)
    if(NOT "${${stream}}" STREQUAL "${expected}")
        message(SEND_ERROR "not as in ${GOLDEN}.${stream}:\n${${stream}}")
    endif()
endforeach()
