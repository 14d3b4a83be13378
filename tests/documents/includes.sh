#!/bin/sh
# includes.sh SOURCE: no directory includes a header of a directory that it must not depend on; the
# table in docs/design.md, "The tree", says the same in words.

cd "$1" || exit 1
status=0

# directory PATH PATTERN: of our headers and ACE's, the sources in PATH include only those that the
# extended regular expression matches. Other headers are those of the system.
directory() {
    wrong=$(find "$1" -name '*.h' -o -name '*.cpp' | xargs grep -nE '^#include ["<][a-z]+/' |
        grep -E '["<](ace|agent|base|bench|conformance|emsplatform|emsstandin|emsutil|host|platform|soak|tests|util)/' |
        grep -vE "[\"<]($2)")
    if [ -n "$wrong" ]; then
        echo "$1 must not include:"
        echo "$wrong"
        status=1
    fi
}

directory include/emsutil 'emsutil/|ace/(Thread_Mutex|Time_Value)\.h'
directory base 'base/|emsutil/|emsplatform/|ace/'
directory agent 'agent/|base/|emsutil/|emsplatform/|ace/'
directory util 'util/|base/|emsutil/|emsplatform/|ace/'
directory platform/include/emsplatform 'emsplatform/'
directory platform 'platform/|emsplatform/|emsstandin/'
directory host 'host/|soak/|emsutil/|emsplatform/|emsstandin/'
directory soak 'soak/|emsutil/|emsplatform/|emsstandin/'
directory conformance 'conformance/|emsutil/|emsplatform/'
exit $status
