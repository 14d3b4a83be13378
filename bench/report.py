#!/usr/bin/env python3
"""Prints the table of what bench/run has measured; with a HEADLINE puts it into docs/, and a picture.

report.py RESULTS [HEADLINE]
"""

import json
import pathlib
import subprocess
import sys

# What a user would ask about first.
IN_PICTURE = (
    "string_format, 40 characters",
    "write a report entry",
    "add and drain, one thread, 4 pairs",
    "add and drain, 4 producers",
    "run a command at once, 100 handlers",
    "enter and leave, 4 values, 1 thread",
    "schedule and fire a timer, of 1,000",
    "insert and erase a lock error text",
)

# The time per object must not grow with the number of objects by more than the goal.
GROWTH = (
    ("statistics, per record of 10", "statistics, per record of 1,000", 2),
    ("copies of the records, per record of 10", "copies of the records, per record of 1,000", 2),
    ("schedule and fire a timer, of 1,000", "schedule and fire a timer, of 100,000", 5),
)

PAGE = pathlib.Path("docs/performance.md")
BEGIN, END = "<!-- bench/run begins -->\n", "<!-- bench/run ends -->\n"

# The data: operation, ours, peer, its time; from the bottom.
GNUPLOT = """
set terminal svg noenhanced size 900,600 font "sans-serif,13" background "#ffffff"
set title "How long operations of emsutil take, and the best alternative to each"
set xlabel "time relative to the bare primitives"
set xrange [0:*]
set offsets 0, 0.9, 0.6, 0.6
set tics nomirror
set grid xtics
set style fill solid noborder
set key bottom right
set arrow from 1, graph 0 to 1, graph 1 nohead
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
    for few, many, goal in GROWTH:
        if few in operations and many in operations:
            operations[many]["few"] = (few, operations[few]["ours"][1], goal)
    return operations


def unit(nanoseconds):
    for factor, name in ((1e6, "ms"), (1e3, "µs")):
        if nanoseconds >= factor:
            return f"{nanoseconds / factor:.3g} {name}"
    return f"{nanoseconds:.3g} ns"


def compare(ours, other, goal):
    ratio = f"**{ours / other:.2f}**" if 0 < goal < ours / other else f"{ours / other:.2f}"
    return f"{ratio} ({goal:g})" if goal else ratio


def table(operations):
    yield "| operation | ours | floor | ours / floor (goal) | ours / another (goal) |"
    yield "|---|--:|--:|--:|---|"
    for operation, rows in operations.items():
        ours, floor, others = rows["ours"][1], " |", []
        for kind, (who, time, goal) in sorted(rows.items()):
            if kind == "floor":
                floor = f"{unit(time)} | {compare(ours, time, goal)}"
            elif kind != "ours":
                others.append(f"{compare(ours, time, goal)} of {who}")
        yield f"| {operation} | {unit(ours)} | {floor} | {', '.join(others)} |"


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
    text = "\n".join(table(operations))
    if len(sys.argv) == 2:
        print(text)
        return
    before, rest = PAGE.read_text().split(BEGIN)
    PAGE.write_text(f"{before}{BEGIN}\n{sys.argv[2]}\n\n{text}\n\n{END}{rest.split(END)[1]}")
    PAGE.with_suffix(".svg").write_text(draw(operations))


main()
