#!/bin/sh
# inspect.sh INSPECT GOLDEN PROGRAM STATE [--renew]
#
# Brings the program into the state and compares what emsutil-inspect prints of the process and of its
# core with GOLDEN/STATE.txt; --renew writes that file. Ids and addresses are numbered in the order in
# which they appear, so that it still shows which is which.

inspect=$1 golden=$2/$4.txt program=$3 state=$4 renew=$5
. "$(dirname "$0")/process.sh"

masked() {
    ids=$(ls "/proc/$pid/task" | tr '\n' ' ')
    awk -v ids="$ids" '
        BEGIN {
            count = split(ids, id)
            for (i = 1; i <= count; ++i)
                thread[id[i]] = "T" i
        }
        /^  [0-9]+: :fill=/ { ++fills; next } # some 200 of them
        {
            line = ""
            while (match($0, /0x[0-9a-f]+|[0-9]+/)) {
                word = substr($0, RSTART, RLENGTH)
                if (word in thread)
                    word = thread[word]
                else if (word ~ /^0x/)
                    word = "A" (word in address ? address[word] : address[word] = ++addresses)
                line = line substr($0, 1, RSTART - 1) word
                $0 = substr($0, RSTART + RLENGTH)
            }
            print line $0
        }
        END { if (fills) print "commands named fill: " fills }' |
        sed -E "s,$directory/core,CORE,; s/, its core CORE//
            s/[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}/DATE/; s/[0-9]+\.[0-9]+ s/TIME/g
            s/:[0-9]+\)/:LINE)/g; s/ +/ /g; s/pthread_clockjoin_ex|pthread_join/JOIN/"
}

start "$program" "$state"
take_core
"$inspect" "$pid" --overdue 0 >"$directory/live" 2>&1 || echo "exit status $?" >>"$directory/live"
"$inspect" "$directory/core" --overdue 0 >"$directory/dead" 2>&1 || echo "exit status $?" >>"$directory/dead"
cat "$directory/printed" >>"$directory/live"
cat "$directory/printed" >>"$directory/dead"
masked <"$directory/live" >"$directory/live.masked"
masked <"$directory/dead" >"$directory/dead.masked"
if [ -n "$renew" ]; then
    cp "$directory/live.masked" "$golden"
fi
diff -u "$golden" "$directory/live.masked" && diff -u "$golden" "$directory/dead.masked" &&
    ! grep TracerPid "/proc/$pid/status" | grep -v '	0$' && grep 'State:	S' "/proc/$pid/status" >/dev/null
