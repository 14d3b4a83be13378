# A relative path is looked up beside the script that asks; no script runs itself, by whichever way;
# 17 different ones are too many. A failure begins with the place of the command that asks.
mkdir inner
echo 'run file=inner/second' >first
printf 'show n=2\nrun file=third\nrun file=missing\nrun file=.\nrun file=binary\n' >inner/second
printf 'show n=3\nrun file=second\nrun file=../first\nrun file=../inner/third\nbad"\n' >inner/third
printf 'show n=4\nshow n=\001\n' >inner/binary
"$emshost" first
echo "exit status $?"
echo 'run file=inner/third' | "$emshost" - inner/../first 2>&1 >/dev/null | sed '/^read/,$d'
for number in $(seq 18); do
    printf 'show n=%s\nrun file=deep%s\n' "$number" $((number + 1)) >deep"$number"
done
"$emshost" --strict deep1
echo 'run file=-' >inner/asking
printf 'show n=5\nrun file=-\n' | "$emshost" inner/asking 2>&1 | sed '/^read/,$d'
printf 'run file=-\nshow n=7\n' | "$emshost" /dev/stdin 2>&1 | sed '/^read/,$d'
echo 'show n=6' | "$emshost" inner/asking - 2>&1 | sed '/^read/,$d'
