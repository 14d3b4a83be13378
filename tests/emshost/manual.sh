#!/bin/sh
# manual.sh EMSHOST SECTION MANUAL [renew]
#
# The manual has every option of --help and no other, and between its two marks what the program
# SECTION writes; or that is put there.

emshost=$1 section=$2 manual=$3
directory=$(mktemp -d) || exit 1
trap 'rm -rf "$directory"' EXIT

"$section" >"$directory/section" || exit 1
if [ "$4" = renew ]; then
    sed -i -e "/^\.\\\\\" Commands begin/r $directory/section" \
        -e '/^\.\\" Commands begin/,/^\.\\" Commands end/{/^\.\\" Commands/!d}' "$manual"
fi
sed -n '/^\.\\" Commands begin/,/^\.\\" Commands end/{/^\.\\" Commands/!p}' "$manual" |
    diff -u - "$directory/section" || exit 1

"$emshost" --help | grep -oE '^  (-h,)?--[a-z-]+' | sed 's/.*--//' | sort >"$directory/options"
sed -nE 's/^\.It .*Fl (h , )?-([a-z-]+).*/\2/p' "$manual" | sort | diff -u - "$directory/options"
