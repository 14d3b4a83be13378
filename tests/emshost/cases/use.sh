# Wrong use.
for option in --unknown --workers=0 --workers=65 --soak=3 '--soak=4 good' '--config missing'; do
    # shellcheck disable=SC2086 # words
    "$emshost" $option </dev/null
    echo "exit status $?"
done
