#!/bin/sh
# rows.sh PAGE LIBRARY PLATFORM RULES...
#
# The table of the page has a row for each function and object of the shared library PLATFORM that the
# shared library LIBRARY uses, and for each rule of the sources RULES.

page=$1 library=$2 platform=$3
shift 3
used=$(mktemp) && defined=$(mktemp) || exit 1
trap 'rm -f "$used" "$defined"' EXIT

# Names without versions, parameters, scopes, and what the compiler adds for a class.
names() { nm -D "$@" | sed 's/@.*//' | c++filt | sed -E '/^(vtable|typeinfo|typeinfo name) for /d
    s/\[abi:cxx11\]//; s/\(.*//; s/.*:://' | LC_ALL=C sort -u; }
names --undefined-only -j "$library" >"$used"
names --defined-only -j "$platform" >"$defined"

# The first cells of the table.
rows=$(sed -n 's/^| \(`[^|]*\)|.*/\1/p' "$page")

status=0
for name in $(LC_ALL=C comm -12 "$used" "$defined") $(sed -n 's/^    {"\([^".]*\)\..*/\1/p' "$@"); do
    if ! echo "$rows" | grep -qwF "$name"; then
        echo "$page: no row for $name"
        status=1
    fi
done
exit $status
