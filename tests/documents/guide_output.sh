#!/bin/sh
# guide_output.sh GUIDE EXAMPLE PROGRAM [LINES]
#
# Runs the program in an empty directory. It prints what the guide shows in the first block marked text
# after its link to the example, except times and thread ids. With LINES it gets SIGTERM once it has
# printed that many.

guide=$1 example=$2 program=$3 lines=$4
directory=$(mktemp -d) || exit 1
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit 1

masked() {
    sed -E 's/[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4}/#/
        s/^( thread (id|start|duration|max duration) +)[0-9a-f]+$/\1#/
        s/^(used time\(ms\): )[0-9]+$/\1#/'
}

mkfifo output
"$program" >output 2>&1 &
count=0
while IFS= read -r line; do
    echo "$line"
    count=$((count + 1))
    [ "$count" != "$lines" ] || kill -TERM $!
done <output >printed
wait $! || echo "exit status $?" >>printed
masked <printed >is
awk -v link="](../$example)" '
    index($0, link) { linked = 1 }
    shown && /^```$/ { exit }
    shown
    linked && /^```text$/ { shown = 1 }
' "$guide" | masked >expected
if [ ! -s expected ]; then
    echo "the guide does not show what $example prints"
    exit 1
fi
diff -u expected is
