#!/bin/sh
# tour_text.sh EMSHOST ROOT
#
# Each indented line of the tour is one of the scripts, or one that emshost writes, except for times,
# thread ids, temporary directories and "...".

root=$2
directory=$(mktemp -d) || exit 1
trap 'rm -rf "$directory"' EXIT

masked() {
    sed -E 's,/[^ ]*/emshost-[A-Za-z0-9]{6},TMP,; s,/[^ ]*/ems.cfg,CFG,; s/[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9:]+ [0-9]{4}/#/
        s/^[0-9a-f]{8,} +(report|worker) /# \1 /; s/[0-9]+\.[0-9]+/#/g; s/^(used time\(ms\): )[0-9]+/\1#/
        s/^( thread (id|start) +)[0-9a-f]+/\1#/; s/^(commands per second) +[0-9]+/\1 #/; s/  +/ /g'
}

{ (cd "$root" && "$1" examples/tour.ems) 2>&1 && cat "$root"/examples/*.ems; } | masked >"$directory/is"
sed -n 's/^    //p' "$root/docs/tour.md" | grep -v '^ *\.\.\.$' | masked >"$directory/shown"
[ "$(wc -l <"$directory/shown")" -gt 50 ] || exit 1
if grep -vxF -f "$directory/is" "$directory/shown"; then
    echo "The tour has the lines above, which emshost no longer writes."
    exit 1
fi
