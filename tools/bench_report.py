#!/usr/bin/env python3
"""Prints the table of a benchmark run as Markdown and plots its growth curves with gnuplot.

    tools/bench_report.py RESULTS.json FOLDER

Leaves table.md and one SVG image for each curve in FOLDER. RESULTS.json is what Google Benchmark
writes. A row is measured on up to three sides: ours ("send/clientcomm"), what the operating system
itself charges ("send/floor"), and what would be used instead ("send/alternative"). A growth curve has
the size in its names too ("dispatch/100/floor").
"""

import json
import os
import statistics
import subprocess
import sys
from collections import namedtuple

MICROSECOND = 1e3
MILLISECOND = 1e6

# What a row must reach: at most so many times the floor, at least so many times faster than the
# alternative, less than so many nanoseconds. None where nothing is demanded.
Row = namedtuple("Row", "name title times_floor times_faster nanoseconds", defaults=(None,) * 3)
ROWS = [
    Row("send", "no-reply send, 2 arguments, helper asleep", 1.5, 5),
    Row("send-alone", "the same, helper held still: the sender's own work", 1.5),
    Row("send-to-nobody", "no-reply send, helper not running", 2, 1),
    Row("query", "query with a reply, two processors", 1.25, 1),
    Row("query-one-processor", "query with a reply, one processor", 1.25, 1),
    Row("dispatch/0", "decode to reply, no argument", None, 5, MICROSECOND / 2),
    Row("dispatch/2", "decode to reply, 2 arguments", None, 5, MICROSECOND / 2),
    Row("dispatch/6", "decode to reply, 6 arguments", None, 1),
    Row("dispatch/100", "decode to reply, 100 arguments", 2.5, 3),
    Row("dispatch/1000", "decode to reply, 1,000 arguments", 2.5, 3),
    Row("watch", "decode to reply, unwatched; floor: without the watch", 1.01),
    Row("watched", "query with a reply, watched; floor: unwatched"),
    Row("large-argument/131072", "argument of 128 KiB, there and back", 2, 1),
    Row("large-argument/16777216", "argument of 16 MiB, there and back", 3, 1),
    Row("many-senders/8", "10,000 events from each of 8 senders, per event", 1.5, 1),
    Row("process-list/100", "is it running, 100 other processes", 1.3, 1),
    Row("process-list/1000", "is it running, 1,000 other processes", 1.3, 1),
    Row("process-list/5000", "is it running, 5,000 other processes", 1.3, 1),
    Row("version", "comparison of two versions", None, 1, 150),
    Row("install", "installing 64 MiB in 2,000 files", 1.1),
    Row("tick", "one idle tick", 2),
    Row("share", "`share()`, helper installed and running", None, None, 0.4 * MILLISECOND),
    Row("first-start", "first start: install, launch, started", 1.2),
]

# What a host pays that is no time; `limit` is the least that is too much.
Cost = namedtuple("Cost", "counter title digits unit limit demand")
COSTS = [
    Cost("stripped_kib", "size of the library, stripped", 0, " KiB", 400, "< 400 KiB"),
    Cost("pss_kib", "memory added (PSS)", 0, " KiB", 1024, "< 1 MiB"),
    Cost("private_kib", "of it private", 0, " KiB", 200, "< 200 KiB"),
    Cost("start_ms", "start-up time added", 2, " ms", 5, "< 5 ms"),
    Cost("relocations", "relocations", 0, "", 300, "< 300"),
    Cost("threads_added", "threads added", 0, "", 0.5, "0"),
    Cost("descriptors_added", "descriptors added", 0, "", 1.5, "1"),
]

Chart = namedtuple("Chart", "row title x_label floor alternative is_logarithmic")
CHARTS = [
    Chart("dispatch", "From the bytes of a call to the bytes of its reply", "arguments",
          "direct call with its strings", "sd-bus", False),
    Chart("large-argument", "One argument there and back", "bytes of the argument",
          "the bytes over a socket pair", "sd-bus", True),
    Chart("many-senders", "Events of several senders at once, time for each event", "senders",
          "raw sockets", "sd-bus", False),
    Chart("process-list", "Whether an application is running", "other processes",
          "one link read for each process", "libproc2", False),
]

NO_COUNTERS = {
    "family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads",
    "iterations", "real_time", "cpu_time",
}


class Results:
    """The repetitions of a run: nanoseconds and counters, by the name of the benchmark."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            run = json.load(file)
        context = run["context"]
        loads = ", ".join(str(load) for load in context["load_avg"])
        self.context = (f"{context['date']}, {context['num_cpus']} processors of "
                        f"{context['mhz_per_cpu']} MHz, load at the start {loads}")
        self.times = {}
        self.counters = {}
        for repetition in run["benchmarks"]:
            if repetition["run_type"] != "iteration":
                continue
            name = repetition["name"].split("/iterations:")[0]
            self.times.setdefault(name, []).append(repetition["real_time"])
            for key, value in repetition.items():
                if isinstance(value, (int, float)) and key not in NO_COUNTERS:
                    self.counters.setdefault(name, {}).setdefault(key, []).append(value)

    def median(self, name):
        return statistics.median_high(self.times[name]) if name in self.times else None

    def counter(self, name, counter):
        values = self.counters.get(name, {}).get(counter)
        return statistics.median_high(values) if values else None

    def sizes(self, row):
        """The sizes for which a growth curve has figures, ascending."""
        parts = (name.split("/") for name in self.times if name.startswith(row + "/"))
        return sorted({int(part[1]) for part in parts if len(part) == 3})


def duration(nanoseconds):
    unit = 0
    while abs(nanoseconds) >= 1000 and unit < 3:
        nanoseconds /= 1000
        unit += 1
    digits = 2 if nanoseconds < 10 else 1 if nanoseconds < 100 else 0
    return f"{nanoseconds:.{digits}f} {('ns', 'µs', 'ms', 's')[unit]}"


def spread(results, name):
    if name not in results.times:
        return "-"
    times = results.times[name]
    return f"{duration(results.median(name))} ({duration(min(times))} – {duration(max(times))})"


def row_line(row, results):
    ours = results.median(row.name + "/clientcomm")
    if ours is None:
        return ""
    floor = results.median(row.name + "/floor")
    alternative = results.median(row.name + "/alternative")
    times_floor = ours / floor if floor else 0
    times_faster = alternative / ours if alternative else 0
    demands = []
    if row.times_floor is not None:
        demands.append((f"≤ {row.times_floor:.2f} × floor", times_floor <= row.times_floor))
    if row.times_faster is not None:
        text = (f"≥ {row.times_faster} × faster than the alternative" if row.times_faster > 1
                else "faster than the alternative")
        demands.append((text, times_faster >= row.times_faster))
    if row.nanoseconds is not None:
        demands.append((f"< {duration(row.nanoseconds)}", ours < row.nanoseconds))
    cells = [
        row.title,
        spread(results, row.name + "/clientcomm"),
        spread(results, row.name + "/floor"),
        f"{times_floor:.2f}" if floor else "-",
        spread(results, row.name + "/alternative"),
        f"{times_faster:.1f}" if alternative else "-",
        ", ".join(text for text, _ in demands) or "-",
        "-" if not demands else "yes" if all(reached for _, reached in demands) else "**no**",
    ]
    return "| " + " | ".join(cells) + " |\n"


def costs(results):
    text = "\n| what a host pays | measured | must reach | reached |\n|---|---|---|---|\n"
    for cost in COSTS:
        value = results.counter("footprint", cost.counter)
        if value is None:
            return ""
        reached = "yes" if value < cost.limit else "**no**"
        text += f"| {cost.title} | {value:.{cost.digits}f}{cost.unit} | {cost.demand} | {reached} |\n"
    return text


def steps(results):
    names = sorted(results.counters.get("share-steps", {}))
    if not names:
        return ""
    text = "\n| step of `share()` | time |\n|---|---|\n"
    for name in names:
        text += f"| {name} | {duration(results.counter('share-steps', name) * MICROSECOND)} |\n"
    return text


def table(results):
    head = ("| what | ClientComm | floor | × floor | alternative | × faster | must reach | reached |\n"
            "|---|---|---|---|---|---|---|---|\n")
    rows = "".join(row_line(row, results) for row in ROWS)
    return f"{results.context}\n\n{head}{rows}{costs(results)}{steps(results)}"


def curves(chart, results):
    """For each side with figures: label, colour, and lines "size median least most" in seconds."""
    sides = [("clientcomm", "ClientComm", "#1f6fb4"), ("floor", chart.floor, "#6b6b6b"),
             ("alternative", chart.alternative, "#c4572d")]
    for side, label, color in sides:
        points = []
        for size in results.sizes(chart.row):
            name = f"{chart.row}/{size}/{side}"
            if name in results.times and (size > 0 or not chart.is_logarithmic):
                times = results.times[name]
                figures = (results.median(name), min(times), max(times))
                points.append(" ".join([str(size), *(f"{figure / 1e9:.12g}" for figure in figures)]))
        if points:
            yield label, color, "\n".join(points)


def plot(chart, results, folder):
    sides = list(curves(chart, results))
    if not sides:
        return
    path = os.path.join(folder, chart.row + ".svg")
    script = [
        'set terminal svg size 720,420 font "sans-serif,12" background "#ffffff"',
        f'set output "{path}"',
        "set encoding utf8",
        f'set title "{chart.title}"',
        f'set xlabel "{chart.x_label}"',
        "set format y '%.1s %cs'",
        "set grid ytics linecolor '#e2e2e2' linetype 1",
        "set border 3",
        "set tics nomirror out",
        "set key top left reverse Left",
    ]
    if chart.is_logarithmic:
        script += ["set logscale x 2", "set logscale y 10", "set format x '%.0b %BB'"]
    else:
        script.append("set yrange [0:*]")
    for number, (_, _, points) in enumerate(sides):
        script.append(f"$side{number} << END\n{points}\nEND")
    script.append("plot " + ", ".join(
        f'$side{number} using 1:2:3:4 with yerrorlines title "{label}" linecolor "{color}" '
        "linetype 1 pointtype 7 pointsize 0.4"
        for number, (label, color, _) in enumerate(sides)))
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True)


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    results = Results(sys.argv[1])
    folder = sys.argv[2]
    os.makedirs(folder, exist_ok=True)
    text = table(results)
    print(text, end="")
    with open(os.path.join(folder, "table.md"), "w", encoding="utf-8") as file:
        file.write(text)
    for chart in CHARTS:
        plot(chart, results, folder)
    return 0


if __name__ == "__main__":
    sys.exit(main())
