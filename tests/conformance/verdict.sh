#!/bin/sh
# verdict.sh PROGRAM [RULE...]
#
# Runs the conformance kit on a platform. It reports that these rules, in this order, do not hold, and
# no other rule; its exit status is 1 when there are any.

program=$1
shift
printed=$("$program" 2>&1)
status=$?
echo "$printed"
failed=$(echo "$printed" | sed -n 's/^FAILS  \([^ ]*\): .*/\1/p' | tr '\n' ' ')
if [ "$failed" != "${*}${*:+ }" ]; then
    echo "expected to fail: $*"
    exit 1
fi
[ $status -eq $(($# > 0)) ]
