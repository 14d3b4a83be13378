#!/bin/sh
# Gives emshost ($1) bad input: it must say what is wrong and where, go on with the rest, and end
# with the right exit status.

emshost=$1
folder=$(mktemp -d) || exit 1
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
failures=0

# expect STATUS OUTPUT MESSAGES [ARGUMENT ...]: OUTPUT is the values shown, MESSAGES is standard
# error before the summary. Standard input is the caller's.
expect() {
    status=$1 output=$2 messages=$3
    shift 3
    "$emshost" "$@" >out 2>err
    got=$?
    shown=$(sed -n 's/.*name=n,value=\([^,]*\),.*/\1/p' out | tr '\n' ' ')
    said=$(sed '/^read  */,$d' err)
    if [ "$got" != "$status" ] || [ "$shown" != "$output" ] || [ "$said" != "$messages" ]; then
        echo "emshost $*: exit status $got, shown: $shown, messages:"
        cat err
        failures=$((failures + 1))
    fi
}

printf 'show n=1\nshow n="2\nshow { n=3\r\n\r\nshow n=4\r\nshow n=5' >lines
errors='lines:2: unterminated quote at column 8
lines:3: object not closed with } at column 6'
expect 1 '1 4 5 ' "$errors" lines
expect 1 '1 4 5 ' "$errors" --direct lines
expect 1 '1 ' "${errors%%
*}" --strict lines
expect 1 '1 4 5 ' "$(echo "$errors" | sed 's/^lines/stdin/')" <lines

printf 'show n=1\n' >good
expect 1 '1 ' "missing: No such file or directory
$folder: Is a directory" missing "$folder" good
expect 1 '' 'missing: No such file or directory' --strict missing good

# Exactly the limit with a CR LF, one byte more, 1 MB, and 1 MB at the end without a line end.
long() { printf 'show n=%s text=' "$1" && head -c "$2" /dev/zero | tr '\0' x; }
{
    long 1 65522 && printf '\r\n' && long 2 65523 && printf '\r\n'
    long 3 1048576 && printf '\nshow n=4\n' && long 5 1048576
} >long
too='line longer than 65536 bytes'
expect 1 '1 4 ' "long:2: $too
long:3: $too
long:5: $too" long

printf 'show n=1\nshow n=\0\nshow n=3\n' >binary
expect 1 '1 1 ' 'binary:2: not a text file (byte 0x00)' binary good
{ long 1 200000 && printf '\0\nshow n=2\n'; } >binary
expect 1 '' "binary:1: $too
binary:1: not a text file (byte 0x00)" binary

# What the arguments of a command lack comes out when it runs; a nested script knows its line.
printf 'show n=1\nlevel value=1\nrun file=missing\nshow n=2\n' >arguments
needs='arguments:2: level: needs value:long=N'
for mode in '' --direct; do
    expect 1 '1 2 ' "$needs
arguments:3: run: missing: No such file or directory" $mode arguments
done
printf 'run file=arguments\n' >outer
expect 1 '1 ' "$needs" --strict outer
printf 'show n=1\nrepeat command=run times:long=1 file="nul\\x00"\n' >added
expect 1 '1 ' 'added:2: run: "nul\x00" cannot be a path' added

# A script that is being run is not run again, by whichever way; 17 different ones are too many.
printf 'show n=1\nrun file=second\nrun file=first\n' >first
printf 'show n=2\nrun file=first\n' >second
for mode in '' --direct; do
    expect 1 '1 2 ' 'second:2: run: first is being run already
first:3: run: first is being run already' $mode first
done
for number in $(seq 17); do
    printf 'show n=%d\nrun file=deep%d\n' "$number" $((number + 1)) >deep"$number"
done
expect 1 "$(seq -s ' ' 17) " 'deep17:2: run: nested more than 16 deep' deep1

# A byte-order mark belongs to no line, and shifts no column.
printf '\357\273\277show n=1\nshow n=2\n' >marked
expect 0 '1 2 ' '' marked
printf '\357\273\277show n=1"\n' >marked
expect 1 '' 'marked:1: quote inside a bare value at column 9' marked

# A second stuck worker of one; the process ends all the same, with its jobs.
cat >workers <<'END'
work job:long=1
work job=a times:long=-1
work job=a ms:long=60001
overdue
pause
stick
stick
work job=a ms:long=60000
await
show n=1
END
needs='work: needs job=NAME [times:long=N], at most 100000, [ms:long=N], at most 60000'
expect 1 '1 ' "workers:1: $needs
workers:2: $needs
workers:3: $needs
workers:4: overdue: needs seconds:long=N
workers:5: pause: needs ms:long=N, at most 60000
workers:7: stick: all workers are stuck already" --workers 1 workers

expect 0 '' '' /dev/null
for option in --unknown --workers=0 --workers=65 --soak=3 '--soak=4 good'; do
    "$emshost" $option >out 2>err </dev/null
    got=$?
    [ $got = 2 ] || { echo "$option: exit status $got" && failures=$((failures + 1)); }
done

# Names and numbers of logs; what is held at the end is nobody's error.
cat >logs <<'END'
log-open name:long=1
log-open name=a
log-open name=a
log-attach name=b handle=1
log-attach name=a handle:long=1
log-attach name=b handle:long=18446744073709551616
log-attach name=b handle:long=-1
log-close
log-close log=b
log-file log=a name=x text=y
log-file log=a name=x number:long=1
log-read log=a number:long=1
log-ref log=a
log-work handle:long=1 name=x number:long=-1
log-clear
show n=1
END
expect 1 '1 ' "logs:1: log-open: needs name=NAME
logs:3: log-open: a handle has the name \"a\" already
logs:4: log-attach: needs handle:long=H
logs:5: log-attach: a handle has the name \"a\" already
logs:6: log-attach: needs handle:long=H
logs:7: log-attach: needs handle:long=H
logs:8: log-close: needs log=NAME
logs:9: log-close: no handle has the name \"b\"
logs:10: log-file: needs name=BUFFER number:long=N
logs:11: log-file: needs text=TEXT
logs:12: log-read: needs name=BUFFER number:long=N
logs:13: log-ref: needs count:long=N
logs:14: log-work: needs name=BUFFER number:long=N
logs:15: log-clear: handles are attached: 1" logs

# Task managers, the report file, lock errors.
cat >services <<'END'
manager id:long=256
manager id:long=1 unit:long=0
manager id:long=1
manager id:long=1
timer manager:long=-1 text=a
timer manager:long=1
timer manager:long=2 text=a
guard text=a
lock-errors state=yes
lock-insert thread:long=1
lock-erase thread=1
tail lines:long=0
tail lines:long=1
trace
trace text=a
install
show n=1
END
needs='manager: needs id:long=N from 0 to 255, [unit:long=MS] from 1 to 60000'
expect 1 '1 ' "services:1: $needs
services:2: $needs
services:4: manager: there is a task manager 1 already
services:5: timer: needs manager:long=N from 0 to 255 and text=TEXT
services:6: timer: needs manager:long=N from 0 to 255 and text=TEXT
Find TaskMgrID 2 failed
services:8: guard: needs text=TEXT and ms:long=N, at most 60000
services:9: lock-errors: needs state=on or state=off
services:10: lock-insert: needs thread:long=N and text=TEXT
services:11: lock-erase: needs thread:long=N
services:12: tail: needs lines:long=N from 1 to 1000
services:13: tail: there is no folder ems/../var/dump
services:14: trace: needs text=TEXT, at most 510 bytes
services:15: trace: nothing is written: there is no folder ems/../var/dump
services:16: install: the report file is ems/../var/dump/emshost.rpt already" \
    --install-path ems/bin services

# The longest text is written in whole, and a longer one refused; the folder of install goes.
mkdir -p ems var/dump temporary
{
    printf 'tail lines:long=1\ntrace text=' && head -c 510 /dev/zero | tr '\0' x
    printf '\ntrace text=' && head -c 511 /dev/zero | tr '\0' x
} >entries
expect 1 '' 'entries:1: tail: ems/../var/dump/emshost.rpt is not there, or cannot be read or written as a file
entries:3: trace: needs text=TEXT, at most 510 bytes' --install-path ems/bin entries
if [ "$(wc -c <var/dump/emshost.rpt)" != 511 ]; then
    echo 'the longest trace is not in the report file'
    failures=$((failures + 1))
fi
printf 'install\ntrace text=a\nshow n=1\n' >installs
export TMPDIR=temporary
expect 0 '1 ' '' installs
unset TMPDIR
rmdir temporary || failures=$((failures + 1))

# Who cannot write what it has to say says why, once, and stops.
unwritten() {
    got=$1 reason=$2
    shift 2
    if [ "$got" != 1 ] || [ "$(sed '/^read  */,$d' err)" != "emshost: standard output: $reason" ]; then
        echo "emshost $*: exit status $got, messages:" && cat err
        failures=$((failures + 1))
    fi
}
for mode in '' --direct; do
    yes 'show n=1' | timeout 20 "$emshost" $mode >/dev/full 2>err
    unwritten $? 'No space left on device' $mode
    "$emshost" $mode good >&- 2>err
    unwritten $? 'Bad file descriptor' $mode
done

exit $((failures > 0))
