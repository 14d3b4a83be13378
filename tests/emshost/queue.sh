#!/bin/sh
# Takes the queue of emshost ($1) past its limit, and ends the process from inside it.

emshost=$1
folder=$(mktemp -d) || exit 1
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
failures=0
fail() {
    echo "$*" && cat err
    failures=$((failures + 1))
}
numbers() { sed -n 's/.*name=n,value=\([^,]*\),.*/\1/p' out; }

count=20000
seq "$count" >expected
sed 's/.*/show n:long=&/' expected >many

"$emshost" <many >out 2>err && numbers | cmp -s - expected || fail "lost or out of order"
for mode in '' --direct; do
    echo "repeat times:long=$count command=show" >repeat
    "$emshost" $mode repeat >out 2>err && numbers | cmp -s - expected || fail "repeat $mode"
done

# What is queued behind quit is skipped, however much is still to come.
{ cat many && echo 'quit status:long=3' && cat many many many; } >quits
"$emshost" <quits >out 2>err
[ $? = 3 ] && numbers | cmp -s - expected || fail "quit in the middle"

# What is done is seen while the process waits for more.
mkfifo input answers
echo 'run file=input' >runs
for arguments in '' --direct runs; do
    [ "$arguments" = runs ] && from=/dev/null || from=input
    "$emshost" $arguments <"$from" >answers 2>err &
    exec 3<>input 4<answers # for both ways, so that no opening waits
    echo 'show n=1' >&3
    read -r answer <&4 || fail "no answer from emshost $arguments"
    exec 3>&- 4<&-
    wait $!
done

# Standard input stays open: nothing but quit can end the process.
"$emshost" <input >out 2>err &
exec 3>input
echo 'quit status:long=4' >&3
wait $!
[ $? = 4 ] || fail "quit with standard input open"

exit $((failures > 0))
