#!/bin/sh
# case.sh EMSHOST CASE EXPECTED [renew]
#
# Runs a case, a script of commands (NAME.ems) or of the shell (NAME.sh), and compares what it writes,
# and its exit status, with EXPECTED; or writes that file. A script of commands may have options in
# its first line, "# options: ...". Times, thread ids and temporary directories are masked.

case=$(readlink -f "$2") expected=$(readlink -m "$3") renew=$4
emshost=$1
export emshost
directory=$(mktemp -d) || exit 1
trap 'rm -rf "$directory"' EXIT

masked() {
    sed -E "s,$directory,DIR,g; s,/[^ ]*/emshost-[A-Za-z0-9]{6},TMP,g; s, in /.*/ems\.cfg, in CFG,"'
        s/^[0-9a-f]{8,} +(report|worker) /#  \1 /; s/ +[0-9]+\.[0-9]\>/  #/g
        s/^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9:]+ [0-9]{4}/#/; s/^(used time\(ms\):) [0-9]+/\1 #/
        s/^( thread (id|start)) +[0-9a-f]+/\1  #/
        s/^(seconds|commands per second) +[0-9.]+/\1  #/; s/"thread":"[0-9a-f]+"/"thread":"#"/
        s/("(seconds|since|longest|commands_per_second)":)[0-9.e-]+/\1#/g'
}

# compare COMMAND...
compare() {
    "$@" >"$directory.written" 2>&1
    echo "exit status $?" >>"$directory.written"
    masked <"$directory.written" >"$directory.is"
    rm "$directory.written"
    [ -z "$renew" ] || cp "$directory.is" "$expected"
    diff -u "$expected" "$directory.is"
    status=$?
    rm "$directory.is"
}

case $case in
    *.sh)
        cd "$directory" && compare sh "$case"
        ;;
    *.ems)
        cd "${case%/*}" || exit 1
        # shellcheck disable=SC2046 # words
        compare "$emshost" $(sed -n '1s/^# options: //p' "$case") "${case##*/}" </dev/null
        ;;
esac
exit $status
