#!/bin/sh
# failures.sh INSPECT PROGRAM
#
# Whatever emsutil-inspect cannot read, it says so in a message, and by its exit status.

inspect=$1 program=$2
. "$(dirname "$0")/process.sh"
failed=0

# expect STATUS TEXT ARGUMENT...: the exit status, and a text in what is printed.
expect() {
    status=$1 text=$2
    shift 2
    timeout 60 "$inspect" "$@" >"$directory/out" 2>&1
    is=$?
    if [ "$is" -ne "$status" ] || ! grep -qF -- "$text" "$directory/out"; then
        echo "emsutil-inspect $*: exit status $is, and this, but not \"$text\" with $status:"
        cat "$directory/out"
        failed=1
    fi
}

start "$program" hanging
take_core
core=$directory/core

expect 2 'usage:'
expect 2 '--fast: there is no such option' "$pid" --fast
expect 2 'nothing: there is no such section' "$pid" nothing
expect 2 'a: whole seconds are expected' "$pid" --overdue a
expect 3 'process 99999999: there is no such process' 99999999
expect 3 'it is not a core file' "$program"
expect 3 "$directory/none: " "$directory/none"
expect 3 '/bin/sh: it is not the program of' "$core" --program /bin/sh

# A core that is cut off: the kernel writes what tells of the threads first, gdb last.
gdb -nx -q -batch -ex "python core, other = '$core', '$directory/kernel'" \
    -x "$(dirname "$0")/notes_first.py"
size=$(wc -c <"$directory/kernel")
for part in 95 50 5; do
    head -c "$((size * part / 100))" "$directory/kernel" >"$directory/cut"
    expect 1 'it is truncated' "$directory/cut"
    grep -q "^  $pid " "$directory/out" || failed=1 # the threads are shown
done
expect 0 'Commands: 205' "$directory/kernel"
head -c "$((size / 2))" "$core" >"$directory/cut"
expect 3 'all of the threads is cut off' "$directory/cut"
head -c 100 "$core" >"$directory/cut"
expect 3 'its beginning is torn' "$directory/cut"

# A thread's id will do for its process.
expect 0 "Process $pid" "$(ls "/proc/$pid/task" | tail -n 1)" threads

# The form for programs.
"$inspect" "$pid" --json >"$directory/json" &&
    gdb -nx -q -batch -ex "python
import json
data = json.load(open('$directory/json'))
assert data['commands']['full'] and len(data['commands']['adding']) == 2, data
assert data['problems'] == [], data" || failed=1

# A signal, at any moment, leaves the process neither stopped nor traced.
for delay in 0.05 0.1 0.2 0.3 0.5 0.8; do
    "$inspect" "$pid" >/dev/null 2>&1 &
    sleep "$delay"
    kill -TERM $! 2>/dev/null
    wait $! # gdb has finished then
    state=$(sed -n 's/^State:[[:space:]]*\(.\).*/\1/p; s/^TracerPid:[[:space:]]*//p' "/proc/$pid/status" | tr '\n' ' ')
    [ "$state" = 'S 0 ' ] || { echo "SIGTERM after $delay s: state and tracer are $state" && failed=1; }
done

# A process that somebody else traces, and one that has ended.
gdb -nx -q -batch -iex 'set auto-load no' -ex "attach $pid" -ex "shell '$inspect' $pid" >"$directory/traced" 2>&1
grep -q "process $pid: process [0-9]* traces it already" "$directory/traced" || failed=1
gdb -nx -q -batch -iex 'set auto-load no' -ex "attach $pid" -ex "shell kill -KILL $pid" \
    -x "$(dirname "$inspect")"/libemsutil.so.*-gdb.py -ex 'emsutil all' >"$directory/killed" 2>&1
grep -q "^emsutil: process $pid: it has ended" "$directory/killed" || failed=1
pid=''

# A library without debug information, then another file in its place.
libraries=$directory/libraries
mkdir "$libraries"
soname=$(ldd "$program" | sed -n 's/.*\(libemsutil.so[^ ]*\) => .*/\1/p')
strip -g -o "$libraries/$soname" "$(ldd "$program" | sed -n "s/.*$soname => \(.*\) (0x.*/\1/p")"
LD_LIBRARY_PATH=$libraries start "$program" still
expect 3 "$soname: it has no debug information: install the package libemsutil1-dbgsym" "$pid"
rm "$libraries/$soname"
expect 3 "$soname: it is no longer there" "$pid"
cp "$(ldd "$program" | sed -n 's/.*libemsplatform[^ ]* => \(.*\) (0x.*/\1/p')" "$libraries/$soname"
expect 3 "$soname: it is not the one that the process has loaded" "$pid"

exit $failed
