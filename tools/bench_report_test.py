#!/usr/bin/env python3
"""What bench_report.py makes of a small run."""

import json
import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import bench_report


def repetitions(name, *times, **counters):
    return [
        {"name": f"{name}/iterations:9", "run_type": "iteration", "real_time": time, "cpu_time": 1,
         "iterations": 9, **counters}
        for time in times
    ]


class BenchReportTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def results(self, *benchmarks):
        path = os.path.join(self.folder, "results.json")
        context = {"date": "now", "num_cpus": 2, "mhz_per_cpu": 2000, "load_avg": [0.5]}
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"context": context, "benchmarks": sum(benchmarks, [])}, file)
        return bench_report.Results(path)

    def test_a_duration_has_three_digits_and_the_fitting_unit(self):
        self.assertEqual([bench_report.duration(value) for value in (0.5, 12.34, 1500, 2.5e6, 7e10)],
                         ["0.50 ns", "12.3 ns", "1.50 µs", "2.50 ms", "70.0 s"])

    def test_a_row_compares_the_medians_with_the_demands(self):
        text = bench_report.table(self.results(
            repetitions("send/clientcomm", 10, 30, 20), repetitions("send/floor", 16),
            repetitions("send/alternative", 200)))
        self.assertIn("| 20.0 ns (10.0 ns – 30.0 ns) | 16.0 ns (16.0 ns – 16.0 ns) | 1.25 | "
                      "200 ns (200 ns – 200 ns) | 10.0 | ", text)
        self.assertTrue(text.splitlines()[-1].endswith("| yes |"), text)

    def test_a_demand_that_is_missed_shows(self):
        text = bench_report.table(self.results(
            repetitions("tick/clientcomm", 30), repetitions("tick/floor", 10)))
        self.assertTrue(text.splitlines()[-1].endswith("| ≤ 2.00 × floor | **no** |"), text)

    def test_a_demand_that_cannot_be_checked_against_an_alternative_is_missed(self):
        text = bench_report.table(self.results(repetitions("version/clientcomm", 100)))
        self.assertTrue(text.splitlines()[-1].endswith("| **no** |"), text)

    def test_a_day_of_idling_is_compared_with_the_calls_of_a_day(self):
        def process(name, seconds, wake_ups):
            return {"process": name, "cpu_seconds_per_day": seconds, "wake_ups_per_day": wake_ups}
        floors = [process("floor of the host", 0.5, 17280), process("floor of the helper", 1, 17281)]
        text = bench_report.rest({"seconds": 60, "processes": [
            process("host", 2.5, 17568), process("helper", 1, 17280), *floors]})
        self.assertIn("| host: processor time | 2.50 s | 0.50 s | ≤ 2 s | **no** |", text)
        self.assertIn("| host: wake-ups | 17,568 | 17,280 | - | - |", text)
        self.assertIn("| helper: wake-ups | 17,280 | 17,281 | one for each call | yes |", text)
        text = bench_report.rest({"seconds": 60, "processes": [
            process("host", 2, 0), process("helper", 1, 34560), *floors]})
        self.assertIn("| host: processor time | 2.00 s | 0.50 s | ≤ 2 s | yes |", text)
        self.assertIn("| helper: wake-ups | 34,560 | 17,281 | one for each call | **no** |", text)

    def test_only_one_number_of_hosts_has_a_demand(self):
        def count(hosts, percent):
            return {"hosts": hosts, "helper_cpu_percent": percent, "calls_per_second": hosts / 5,
                    "helper_wake_ups_per_second": 1.5, "floor_cpu_percent": 0.0005}
        text = bench_report.hosts({"seconds": 20, "counts": [count(1, 0.001), count(100, 0.2)]})
        self.assertIn("| 1 | 0.001 % | 0.001 % | 50.0 µs | 0.2 | 1.5 | - | - |", text)
        self.assertIn("| 100 | 0.200 % | 0.001 % | 100 µs | 20.0 | 1.5 | < 0.1 % | **no** |", text)
        text = bench_report.hosts({"seconds": 20, "counts": [count(100, 0.05)]})
        self.assertIn("| < 0.1 % | yes |", text)

    def test_aggregates_and_values_that_are_no_number_are_left_out(self):
        aggregate = {"name": "tick/clientcomm_cv", "run_type": "aggregate", "real_time": float("nan")}
        results = self.results(repetitions("tick/clientcomm", 10), [aggregate])
        self.assertEqual(results.times, {"tick/clientcomm": [10]})

    def test_a_curve_is_plotted_for_the_sizes_that_were_measured(self):
        results = self.results(
            repetitions("dispatch/0/clientcomm", 10), repetitions("dispatch/100/clientcomm", 20),
            repetitions("dispatch/100/floor", 5))
        self.assertEqual(results.sizes("dispatch"), [0, 100])
        bench_report.plot(bench_report.CHARTS[0], results, self.folder)
        with open(os.path.join(self.folder, "dispatch.svg"), encoding="utf-8") as file:
            image = file.read()
        self.assertIn("ClientComm", image)
        self.assertIn("direct call with its strings", image)
        self.assertNotIn("sd-bus", image)

    def test_the_helper_beside_hosts_is_plotted(self):
        bench_report.plot_hosts({"counts": [
            {"hosts": 1, "helper_cpu_percent": 0.01, "floor_cpu_percent": 0.01},
            {"hosts": 500, "helper_cpu_percent": 2, "floor_cpu_percent": 1}]}, self.folder)
        with open(os.path.join(self.folder, "hosts.svg"), encoding="utf-8") as file:
            image = file.read()
        self.assertIn("raw sockets", image)
        self.assertIn("500", image)

    def test_a_logarithmic_curve_leaves_out_the_size_0(self):
        results = self.results(repetitions("large-argument/0/clientcomm", 10),
                               repetitions("large-argument/1024/clientcomm", 20))
        _, _, points = next(bench_report.curves(bench_report.CHARTS[1], results))
        self.assertEqual(points.split(" ")[0], "1024")


if __name__ == "__main__":
    unittest.main()
