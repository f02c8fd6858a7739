#!/usr/bin/env python3
"""Prints the table of a benchmark run as Markdown and plots its growth curves with gnuplot.

    tools/bench_report.py RESULTS.json FOLDER

Leaves table.md and one SVG image for each curve in FOLDER. RESULTS.json is what Google Benchmark
writes; idle.json and hosts.json beside it, where they are, are what the benchmarks print with --idle
and --hosts. A row is measured on up to three sides: ours ("send/clientcomm"), what the operating system
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
    Row("large-argument/16777216", "argument of 16 MiB, there and back; floor: reused buffers", 3, 1),
    Row("large-argument-fresh/16777216", "the same; floor: fresh memory for each reading", 3),
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
Cost = namedtuple("Cost", "counter title digits unit limit demand", defaults=(None, "-"))
COSTS = [
    Cost("stripped_kib", "size of the library, stripped", 0, " KiB", 450, "< 450 KiB"),
    Cost("pss_kib", "memory added (PSS)", 0, " KiB", 1024, "< 1 MiB"),
    Cost("private_kib", "of it private", 0, " KiB", 200, "< 200 KiB"),
    Cost("written_kib", "of that, written to or without a file", 0, " KiB"),
    Cost("start_ms", "start-up time added", 2, " ms", 5, "< 5 ms"),
    Cost("relocations", "relocations", 0, "", 300, "< 300"),
    Cost("threads_added", "threads added", 0, "", 0.5, "0"),
    Cost("descriptors_added", "descriptors added", 0, "", 1.5, "1"),
]

# What an application at rest takes in a day; `limit` is the most that is allowed. A host calls its
# helper every 5 s, and each of these calls wakes both.
CALLS_IN_A_DAY = 86400 / 5
Rest = namedtuple("Rest", "process figure title digits unit limit demand", defaults=(None, None))
RESTS = [
    Rest("host", "cpu_seconds_per_day", "host: processor time", 2, " s", 2, "≤ 2 s"),
    Rest("host", "wake_ups_per_day", "host: wake-ups", 0, ""),
    Rest("helper", "cpu_seconds_per_day", "helper: processor time", 2, " s"),
    Rest("helper", "wake_ups_per_day", "helper: wake-ups", 0, "", 1.02 * CALLS_IN_A_DAY,
         "one for each call"),
]

# The number of hosts for which there is a demand, and the share of a processor that is too much.
DEMANDED_HOSTS = 100
MOST_PERCENT = 0.1

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
        reached = "-" if cost.limit is None else "yes" if value < cost.limit else "**no**"
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


def read_json(path):
    """What is at `path`; nothing when it is missing."""
    if not os.path.exists(path):
        return None
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def rest(idling):
    """The lines of a day of idling."""
    if idling is None:
        return ""
    processes = {process["process"]: process for process in idling["processes"]}
    text = (f"\n| a day of idling, by {idling['seconds']} s of it | measured | floor | must reach | "
            "reached |\n|---|---|---|---|---|\n")
    for row in RESTS:
        value = processes[row.process][row.figure]
        floor = processes["floor of the " + row.process][row.figure]
        reached = "-" if row.limit is None else "yes" if value <= row.limit else "**no**"
        text += (f"| {row.title} | {value:,.{row.digits}f}{row.unit} | {floor:,.{row.digits}f}{row.unit} | "
                 f"{row.demand or '-'} | "
                 f"{reached} |\n")
    return text


def hosts(measured):
    """The lines of a helper beside many hosts."""
    if measured is None:
        return ""
    text = (f"\n| hosts on one helper, {measured['seconds']} s each | helper, of a processor | floor | "
            "helper, for each call | calls a second | wake-ups of the helper a second | must reach | "
            "reached |\n|---|---|---|---|---|---|---|---|\n")
    for count in measured["counts"]:
        percent = count["helper_cpu_percent"]
        calls = count["calls_per_second"]
        each = duration(percent / 100 / calls * 1e9) if calls else "-"
        demand = "- | -"
        if count["hosts"] == DEMANDED_HOSTS:
            demand = f"< {MOST_PERCENT} % | " + ("yes" if percent < MOST_PERCENT else "**no**")
        text += (f"| {count['hosts']} | {percent:.3f} % | {count['floor_cpu_percent']:.3f} % | {each} | {calls:.1f} | "
                 f"{count['helper_wake_ups_per_second']:.1f} | {demand} |\n")
    return text


def table(results, idling=None, measured_hosts=None):
    head = ("| what | ClientComm | floor | × floor | alternative | × faster | must reach | reached |\n"
            "|---|---|---|---|---|---|---|---|\n")
    rows = "".join(row_line(row, results) for row in ROWS)
    return (f"{results.context}\n\n{head}{rows}{costs(results)}{steps(results)}"
            f"{rest(idling)}{hosts(measured_hosts)}")


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
    draw(chart, list(curves(chart, results)), folder, "%.1s %cs")


def plot_hosts(measured, folder):
    chart = Chart("hosts", "A helper's share of a processor beside idle hosts", "hosts", "", "", False)
    sides = []
    for figure, label, color in (("helper_cpu_percent", "helper", "#1f6fb4"),
                                 ("floor_cpu_percent", "raw sockets", "#6b6b6b")):
        points = (" ".join([str(count["hosts"]), *[str(count[figure])] * 3])
                  for count in measured["counts"])
        sides.append((label, color, "\n".join(points)))
    draw(chart, sides, folder, "%g %%")


def draw(chart, sides, folder, format_y):
    """Plots `sides`, of each the label, the colour and the lines "size median least most"."""
    if not sides:
        return
    path = os.path.join(folder, chart.row + ".svg")
    script = [
        'set terminal svg size 720,420 font "sans-serif,12" background "#ffffff"',
        f'set output "{path}"',
        "set encoding utf8",
        f'set title "{chart.title}"',
        f'set xlabel "{chart.x_label}"',
        f"set format y '{format_y}'",
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
    beside = os.path.dirname(sys.argv[1])
    measured_hosts = read_json(os.path.join(beside, "hosts.json"))
    text = table(results, read_json(os.path.join(beside, "idle.json")), measured_hosts)
    print(text, end="")
    with open(os.path.join(folder, "table.md"), "w", encoding="utf-8") as file:
        file.write(text)
    for chart in CHARTS:
        plot(chart, results, folder)
    if measured_hosts is not None:
        plot_hosts(measured_hosts, folder)
    return 0


if __name__ == "__main__":
    sys.exit(main())
