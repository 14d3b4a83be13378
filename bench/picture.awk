# Turns what emsutil_bench prints into gnuplot's data, from the bottom up: place, operation, ratio of
# ours to the floor, goal; in a second block place and ratio of every other. The floor itself is the
# line at 1.

BEGIN { FS = "\t" }

$2 == "growth" { next }
$1 != operation { operation = $1; names[++count] = $1; goal[count] = $5 }
$2 == "ours" { ours[count] = $4; next }
$2 == "floor" { floor[count] = $4; next }
{ place[++others] = count; time[others] = $4 }

END {
    for (i = count; i >= 1; --i) {
        printf "%d \"%s\" %g %g\n", count - i, names[i], ours[i] / floor[i], goal[i]
    }
    print "\n"
    for (i = 1; i <= others; ++i) {
        printf "%d %g\n", count - place[i], time[i] / floor[place[i]]
    }
}
