#!/bin/sh
# host_manual.sh EMSHOST MANUAL: the manual has every option of --help, and every command of help with
# its arguments, and no others.

emshost=$1 manual=$2
folder=$(mktemp -d) || exit 1
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1

"$emshost" --help | grep -oE '^  (-h,)?--[a-z-]+' | sed 's/.*--//' | sort >options
sed -nE 's/^\.It .*Fl (h , )?-([a-z-]+).*/\2/p' "$manual" | sort >options.manual

echo help | "$emshost" 2>summary |
    sed -E 's/^([a-z-]+) +(.*): .*/\1 \2/; t; s/ .*//' | sort >commands
sed -n 's/^\.It Ic //p' "$manual" | sort >commands.manual

[ -s options ] && [ -s commands ] && diff -u options options.manual && diff -u commands commands.manual
