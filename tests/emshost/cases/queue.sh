# Takes the queue past its limit, and ends the process from inside it.
numbers() { sed -n 's/.*name=n,value=\([^,]*\),.*/\1/p' out; }
count=20000
seq $count >expected
sed 's/.*/show n:long=&/' expected >many
"$emshost" <many >out 2>err
numbers | cmp - expected
echo "repeat times:long=$count command=show" >repeat
for mode in '' --direct; do
    "$emshost" $mode repeat >out 2>err
    numbers | cmp - expected
done

# What is queued behind quit is skipped, however much is still to come.
{ cat many && echo 'quit status:long=3' && cat many many many; } | "$emshost" >out 2>err
echo "exit status $?"
numbers | cmp - expected

# What is done is seen while the process waits for more; then quit ends it, though input stays open.
mkfifo input answers
echo 'run file=input' >runs
for arguments in '' --direct runs; do
    # shellcheck disable=SC2086 # words
    "$emshost" $arguments <input >answers 2>err &
    exec 3<>input 4<answers # for both ways, so that no opening waits
    echo 'show n=1' >&3
    read -r answer <&4
    echo "$answer"
    echo 'quit status:long=4' >&3
    wait $!
    echo "exit status $?"
    exec 3>&- 4<&-
done
