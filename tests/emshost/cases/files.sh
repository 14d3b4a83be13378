# Files that cannot be read, one after the other, and with --strict; outputs that cannot be written.
echo 'show n=1' >good
"$emshost" missing . '' good
"$emshost" --strict missing good
"$emshost" --debug-file . good
printf 'debug text=a\nshow n=1\n' | "$emshost" --debug-file /dev/full
"$emshost" <&- 2>&1 | sed '/^read/,$d'
{ echo 'show n=1' && yes unknown | head -1000; } >unknown
"$emshost" unknown 2>&1 >/dev/full | sed '/^read/,$d'
"$emshost" good 2>&1 >&- | sed '/^read/,$d'
{ yes 'show n=1' | "$emshost" 2>err; echo "exit status $?" >status; } | head -1
cat status && sed '/^read/,$d' err
