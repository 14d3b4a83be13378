# At a terminal: hints, completion, history, a line that is too long, and Ctrl-D.
mkfifo keys
script -qefc '"$emshost"' screen <keys >log &
exec 3>keys
size=0
typed() { # TEXT WANTED: types the text, and waits until the screen shows what is wanted
    printf %b "$1" >&3
    until tail -c +$((size + 1)) screen 2>>log | grep -q "$2"; do :; done
    size=$(wc -c <screen)
}
typed '' 'emshost> '
typed 'show n=1\n' value=1
typed 'wrok job=a\n' 'did you mean work?'
typed 'summ\t\n' 'commands per second'
typed '\033[A\033[A\033[A\n' value=1
typed "show n=$(printf 'é%.0s' $(seq 3000))" 'longer than'
typed '\nshow n=é\n' value=é
printf '\004' >&3
wait $!
echo "exit status $?"
sed 's/\r//g; /^Script /d; /^emshost> /d' screen
