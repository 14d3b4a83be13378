# What inspect.sh and failures.sh share: a process in a state, and its core.

directory=$(mktemp -d) || exit 1
pid=''
trap 'kill_process; rm -rf "$directory"' EXIT

kill_process() {
    [ -z "$pid" ] || kill -KILL "$pid"
    pid=''
}

# start PROGRAM STATE: sets pid, once the process is in the state.
start() {
    mkfifo "$directory/fifo"
    "$1" "$2" >"$directory/fifo" &
    pid=$!
    while read -r line && [ "$line" != ready ]; do
        echo "$line"
    done <"$directory/fifo" >"$directory/printed"
    rm "$directory/fifo"
}

# Writes the core of the process, or skips the test where gdb cannot do that.
take_core() {
    if ! command -v gdb >/dev/null; then
        echo "skipped: gdb is not installed"
        exit 77
    fi
    gdb -nx -q -batch -iex 'set auto-load no' -ex "attach $pid" \
        -ex "generate-core-file $directory/core" >"$directory/gdb.log" 2>&1
    if grep -q 'ptrace: Operation not permitted' "$directory/gdb.log"; then
        echo "skipped: gdb may not attach to a process here"
        exit 77
    fi
}
