# Many commands are run in order, and quit ends the process, however much is still to come.
numbers() { sed -n 's/.*name=n,value=\([^,]*\),.*/\1/p' out; }
seq 20000 >expected
sed 's/.*/show n:long=&/' expected >many
"$emshost" <many >out 2>err
numbers | cmp - expected
{ cat many && echo 'quit status:long=3' && cat many many many; } | "$emshost" >out 2>err
echo "exit status $?"
numbers | cmp - expected

# What is done is seen while the process waits for more; then quit ends it, though input stays open.
mkfifo input answers
echo 'run file=input' >runs
for script in - runs; do
    "$emshost" $script <input >answers 2>err &
    exec 3<>input 4<answers # for both ways, so that no opening waits
    echo 'show n=1' >&3
    read -r answer <&4
    echo "$answer"
    echo 'quit status:long=4' >&3
    wait $!
    echo "exit status $?"
    exec 3>&- 4<&-
done

# A signal ends the process within a line, which is not run.
"$emshost" <input >answers 2>err &
exec 3<>input 4<answers
printf 'show n=1\nshow n=2' >&3
read -r answer <&4
kill -TERM $!
wait $!
echo "exit status $?"
cat <&4
sed '/^read/,$d' err
exec 3>&- 4<&-

# A repeat of a repeat of a script.
printf 'show n=1\nshow n=2\n' >two
echo 'repeat times:long=100 command=repeat times:long=100 command=run file=two' | "$emshost" >out 2>err
numbers | uniq -c | wc -l
numbers | sort | uniq -c
