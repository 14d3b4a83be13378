#!/bin/sh
# Compares what a shared library ($1) exports with the list ($2) of what it is to export. A third
# argument, --renew, writes the list instead; docs/abi.md says what must change with it.

# Without addresses and kinds, and each constructor once, whichever compiler it was.
symbols() { nm -D --defined-only -C "$1" | cut -d' ' -f3- | LC_ALL=C sort -u; }

if [ "${3-}" = --renew ]; then
    symbols "$1" >"$2"
    exit
fi
symbols "$1" | diff -u --label "$2" --label "$1" "$2" -
