#!/usr/bin/env python3
"""Makes Markdown tables of what bench/run has measured, and a picture.

report.py RESULTS                         prints the tables
report.py RESULTS HEADLINE PAGE PICTURE   replaces them in the page, and draws the picture
"""

import collections
import json
import pathlib
import subprocess
import sys

# What a user would ask about first.
IN_PICTURE = (
    "string_format, 40 characters",
    "add and drain, one thread, 4 pairs",
    "add and drain, 4 producers",
    "run a command at once, 100 handlers",
    "enter and leave, 4 values, 1 thread",
    "write a report entry",
    "look up one of 10 buffers",
    "schedule and fire a timer, of 1,000",
    "lateness of a timer, median",
    "insert and erase a lock error text",
)

# The time per object must not grow with the number of objects by more than the goal.
GROWTH = (
    ("statistics, per record of 10", "statistics, per record of 1,000", 2),
    ("copies of the records, per record of 10", "copies of the records, per record of 1,000", 2),
    ("schedule and fire a timer, of 1,000", "schedule and fire a timer, of 100,000", 5),
)

BEGIN = "<!-- bench/run begins -->\n"
END = "<!-- bench/run ends -->\n"

# The data: place from the bottom, name, time.
GNUPLOT = """
set terminal svg noenhanced size 900,640 font "sans-serif,13" background "#ffffff"
set encoding utf8
set title "How long operations of emsutil take, and the best alternative to each" textcolor "#24292f"
set xlabel "time relative to the bare primitives"
set xrange [0:*]
set offsets 0, 0.9, 0.6, 0.6
set border 1 linecolor "#57606a"
set xtics nomirror
set grid xtics linecolor "#d0d7de" linetype 1
set ytics nomirror scale 0
set style fill solid noborder
set key bottom right samplen 2
set arrow from 1, graph 0 to 1, graph 1 nohead linewidth 1.6 linecolor "#24292f"
$ours << EOD
{ours}
EOD
$peers << EOD
{peers}
EOD
plot $ours using (0):1:(0):3:($1):($1 + 0.36):ytic(2) with boxxyerror \\
        linecolor "#0969da" title "emsutil", \\
     $peers using (0):1:(0):3:($1 - 0.36):($1) with boxxyerror \\
        linecolor "#afb8c1" title "alternative", \\
     $peers using 3:($1 - 0.19):2 with labels left offset 0.5, 0 font "sans-serif,10" notitle
"""


def read(directory):
    """Operation -> kind ("ours", "floor", "peer") -> list of (label, nanoseconds, goal)."""
    operations = collections.defaultdict(lambda: collections.defaultdict(list))
    for path in sorted(pathlib.Path(directory).glob("*.json")):
        for run in json.loads(path.read_text())["benchmarks"]:
            operation, kind, *options = run["run_name"].split("/")
            if run.get("aggregate_name") == "median":
                # Where threads meet it is the time on the wall, otherwise that of the processor.
                time = "real_time" if {"real_time", "manual_time"} & set(options) else "cpu_time"
                operations[operation][kind].append((run["label"], run[time], run["goal"]))
    return operations


def unit(nanoseconds):
    for factor, name in ((1e6, "ms"), (1e3, "µs")):
        if nanoseconds >= factor:
            return f"{nanoseconds / factor:.3g} {name}"
    return f"{nanoseconds:.3g} ns"


def judge(ratio, goal):
    return f"**{ratio:.2f}**" if 0 < goal < ratio else f"{ratio:.2f}"


def tables(operations):
    yield "| operation | ours | floor | ours / floor | goal | ours / peer (goal) |"
    yield "|---|--:|--:|--:|--:|---|"
    for operation, rows in operations.items():
        ours = rows["ours"][0][1]
        floor = "| | |"
        for _, time, goal in rows["floor"]:
            floor = f"{unit(time)} | {judge(ours / time, goal)} | {goal:g} |"
        peers = ", ".join(
            f"{judge(ours / time, goal)} of {who}" + (f" ({goal:g})" if goal else "")
            for who, time, goal in rows["peer"]
        )
        yield f"| {operation} | {unit(ours)} | {floor} {peers} |"
    growth = [row for row in GROWTH if row[0] in operations and row[1] in operations]
    if growth:
        yield ""
        yield "| where there are many | time per object, compared | goal |"
        yield "|---|--:|--:|"
    for few, many, goal in growth:
        ratio = operations[many]["ours"][0][1] / operations[few]["ours"][0][1]
        yield f"| {many}, compared with {few} | {judge(ratio, goal)} | {goal} |"


def draw(operations):
    ours, peers = [], []
    for place, operation in enumerate(reversed(IN_PICTURE)):
        rows = operations[operation]
        floor = rows["floor"][0][1]
        ours.append(f'{place} "{operation}" {rows["ours"][0][1] / floor}')
        if rows["peer"]:
            who, time, _ = min(rows["peer"], key=lambda row: row[1])
            peers.append(f'{place} "{who}" {time / floor}')
    script = GNUPLOT.format(ours="\n".join(ours), peers="\n".join(peers))
    return subprocess.run(
        ["gnuplot"], input=script, stdout=subprocess.PIPE, text=True, check=True
    ).stdout


def main():
    operations = read(sys.argv[1])
    text = "\n".join(tables(operations)) + "\n"
    if len(sys.argv) == 2:
        print(text, end="")
        return
    headline, page, picture = sys.argv[2], pathlib.Path(sys.argv[3]), pathlib.Path(sys.argv[4])
    before, rest = page.read_text().split(BEGIN)
    page.write_text(f"{before}{BEGIN}\n{headline}\n\n{text}\n{END}{rest.split(END)[1]}")
    picture.write_text(draw(operations))


main()
