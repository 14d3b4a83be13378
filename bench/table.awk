# Makes a Markdown table of what emsutil_bench prints: a line an operation, and a line a growth.

BEGIN {
    FS = "\t"
    print "| operation | ours | floor | ratio | goal | the others, in times of ours |"
    print "|---|--:|--:|--:|--:|---|"
}

function nanoseconds(time) {
    if (time >= 1e6) {
        return sprintf("%.3g ms", time / 1e6)
    }
    return time >= 1e3 ? sprintf("%.3g µs", time / 1e3) : sprintf("%.3g ns", time)
}

function times(ratio) {
    return sprintf(ratio < 100 ? "%.2g" : "%.0f", ratio)
}

function mark(text, met) {
    return met ? text : "**" text "**"
}

function finish() {
    if (operation != "") {
        ratio = ours / floor
        printf "| %s | %s | %s | %s | %s | %s |\n", operation, nanoseconds(ours), nanoseconds(floor),
            mark(sprintf("%.2f", ratio), ratio <= goal), goal, others(ours)
    }
    operation = ""
    peers = 0
}

# A rival that ours is not ahead of stands out.
function others(ours,    list, i) {
    for (i = 1; i <= peers; ++i) {
        list = list (i > 1 ? ", " : "") who[i] " " \
            mark(times(time[i] / ours), kind[i] == "peer" || time[i] > ours)
    }
    return list
}

$2 == "growth" {
    finish()
    growths[++growing] = sprintf("| %s, compared with %s | %s | %s |", $1, $3,
        mark(sprintf("%.2f", $4), $4 <= $5), $5)
    next
}

$1 != operation {
    finish()
    operation = $1
    goal = $5
}

$2 == "ours" { ours = $4; next }
$2 == "floor" { floor = $4; next }
{ kind[++peers] = $2; who[peers] = $3; time[peers] = $4 }

END {
    finish()
    if (growing > 0) {
        print ""
        print "| cost of one of | grows to | goal |"
        print "|---|--:|--:|"
        for (i = 1; i <= growing; ++i) {
            print growths[i]
        }
    }
}
