# Exactly the limit with a CR LF, one byte more, 10 MB, and 10 MB at the end without a line end.
long() { printf 'trace x%s=' "$1" && head -c "$2" /dev/zero | tr '\0' x; }
{
    long 1 65527 && printf '\r\n' && long 2 65528 && printf '\r\n'
    long 3 10485760 && printf '\nshow n=4\n' && long 5 10485760
} >long
"$emshost" long
{ long 1 200000 && printf '\0\nshow n=2\n'; } >binary
"$emshost" binary
