#!/bin/sh
# swept.sh EXPORTED OPERATIONS
#
# Each exported operation has a row in the fault sweep. A row has the name without namespaces and template
# arguments, such as "AddEmsThreadInfo(map&, char const*, int)". The row of a record, OnRecord("NAME", ...),
# is for all operations of the record.

exported=$1 operations=$2
names=$(sed -E '/\(/!d; s/@.*//; :a; s/<[^<>]*>//; ta
    s/ ([&*])/\1/g; s/NSQN_EMSUTIL_AGENT::|NSQN_util::|std::|__cxx11::|basic_|\[abi:cxx11\]//g' "$exported")
records=$(grep -o 'OnRecord("[A-Za-z]*"' "$operations" | cut -d'"' -f2 | paste -sd'|')
echo "$names" | grep -vE "^($records)::" | {
    failed=0
    while read -r name; do
        grep -qF -- "$name" "$operations" || { echo "$name has no row" && failed=1; }
    done
    exit $failed
}
