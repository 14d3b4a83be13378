# Little of what the system has: a message, and no abort.
run() {
    (
        exec >out 2>&1 </dev/null 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-
        ulimit "$1" "$2"
        shift 2
        exec "$emshost" "$@"
    )
    echo "exit status $?"
    sed '/^read/,$d' out
}
echo 'show n=1' >good
echo 'run file=good' >nested
run -n 4 good
run -n 4 nested
run -v 300000 nested
run -s 1000000000000 good # no room for a thread
run -s 1000000000000 --soak 4
