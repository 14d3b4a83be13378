# The first entry says where it goes; the longest text is written in whole; the directory of install
# is removed, also when a signal or a closed pipe ends the process.
mkdir -p ems var/dump temporary
{ printf 'tail lines:long=1\ntrace text=' && head -c 510 /dev/zero | tr '\0' x && printf '\ntrace text=b\n'; } >entries
"$emshost" --install-path ems/bin entries
wc -c <var/dump/emshost.rpt
export TMPDIR=$PWD/temporary
printf 'install\ntrace text=a\ninstall\n' | "$emshost"
for signal in HUP TERM; do
    rm -f out # the earlier one has text before this one's host has started
    { echo install; yes 'pause ms:long=60000' | head -400; } | "$emshost" --install-path "$signal" >out 2>err &
    until [ -s out ]; do :; done
    kill -s $signal $!
    wait $!
    echo "exit status $?"
    grep -c install out
    ls temporary
done 2>/dev/null # a shell may say that a process was terminated
{ echo install; yes 'show n=1'; } | "$emshost" 2>&1 >/dev/full | head -n 1
ls temporary
# An entry that a limit on the size of files cuts is not written.
head -c 1001 /dev/zero >var/dump/emshost.rpt
echo 'trace text=123456789012345678901234567890' >entry
(ulimit -f 2 && exec "$emshost" --install-path ems/bin entry 2>&1) | sed '/^read/,$d'
