#!/usr/bin/env python3
"""Makes Markdown tables of what bench/run has measured, and a picture.

report.py RESULTS            prints the tables
report.py RESULTS HEADLINE   puts them under the headline into docs/, and the picture
"""

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

PAGE = pathlib.Path("docs/performance.md")
PICTURE = PAGE.with_suffix(".svg")
BEGIN = "<!-- bench/run begins -->\n"
END = "<!-- bench/run ends -->\n"

# The data: operation, ours, peer, its time; from the bottom.
GNUPLOT = """
set terminal svg noenhanced size 900,640 font "sans-serif,13" background "#ffffff"
set title "How long operations of emsutil take, and the best alternative to each"
set xlabel "time relative to the bare primitives"
set xrange [0:*]
set offsets 0, 0.9, 0.6, 0.6
set border 1
set xtics nomirror
set ytics nomirror scale 0
set grid xtics linetype 1 linecolor "#d0d7de"
set style fill solid noborder
set key bottom right
set arrow from 1, graph 0 to 1, graph 1 nohead linewidth 1.6
$rows << EOD
{rows}
EOD
plot $rows using (0):0:(0):2:($0):($0 + 0.36):ytic(1) with boxxyerror \\
        linecolor "#0969da" title "emsutil", \\
     $rows using (0):0:(0):4:($0 - 0.36):($0) with boxxyerror \\
        linecolor "#afb8c1" title "alternative", \\
     $rows using 4:($0 - 0.19):3 with labels left offset 0.5, 0 font "sans-serif,10" notitle
"""


def read(directory):
    """Operation -> kind ("ours", "floor", "peer", ...) -> (label, nanoseconds, goal)."""
    operations = {}
    for path in sorted(pathlib.Path(directory).glob("*.json")):
        for run in json.loads(path.read_text())["benchmarks"]:
            operation, kind, *options = run["run_name"].split("/")
            if run.get("aggregate_name") == "median":
                # Where threads meet it is the time on the wall, otherwise that of the processor.
                time = "real_time" if {"real_time", "manual_time"} & set(options) else "cpu_time"
                rows = operations.setdefault(operation, {})
                rows[kind] = (run["label"], run[time], run["goal"])
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
        ours = rows["ours"][1]
        floor, peers = "| |", []
        if "floor" in rows:
            _, time, goal = rows["floor"]
            floor = f"{unit(time)} | {judge(ours / time, goal)} | {goal:g}"
        for kind in rows.keys() - {"ours", "floor"}:
            who, time, goal = rows[kind]
            peers.append(f"{judge(ours / time, goal)} of {who}" + (f" ({goal:g})" if goal else ""))
        yield f"| {operation} | {unit(ours)} | {floor} | {', '.join(sorted(peers))} |"
    growth = [row for row in GROWTH if row[0] in operations and row[1] in operations]
    if growth:
        yield "\n| where there are many | time per object, compared | goal |"
        yield "|---|--:|--:|"
    for few, many, goal in growth:
        ratio = operations[many]["ours"][1] / operations[few]["ours"][1]
        yield f"| {many}, compared with {few} | {judge(ratio, goal)} | {goal} |"


def draw(operations):
    lines = []
    for operation in reversed(IN_PICTURE):
        rows = operations[operation]
        floor = rows["floor"][1]
        who, peer, _ = rows.get("peer", ("", float("nan"), 0))
        lines.append(f'"{operation}" {rows["ours"][1] / floor} "{who}" {peer / floor}')
    script = GNUPLOT.format(rows="\n".join(lines))
    return subprocess.check_output(["gnuplot"], input=script, text=True)


def main():
    operations = read(sys.argv[1])
    text = "\n".join(tables(operations)) + "\n"
    if len(sys.argv) == 2:
        print(text, end="")
        return
    before, rest = PAGE.read_text().split(BEGIN)
    PAGE.write_text(f"{before}{BEGIN}\n{sys.argv[2]}\n\n{text}\n{END}{rest.split(END)[1]}")
    PICTURE.write_text(draw(operations))


main()
