# A relative path is looked up beside the script that asks; no script runs itself, by whichever way;
# 17 different ones are too many.
mkdir inner
echo 'run file=inner/second' >first
printf 'show n=2\nrun file=third\nrun file=missing\n' >inner/second
printf 'show n=3\nrun file=second\nrun file=../first\nrun file=../inner/third\nbad"\n' >inner/third
"$emshost" first
echo "exit status $?"
echo 'run file=inner/third' | "$emshost" - inner/../first 2>&1 >/dev/null | sed '/^read/,$d'
for number in $(seq 18); do
    echo "run file=deep$((number + 1))" >deep"$number"
done
"$emshost" --strict deep1
