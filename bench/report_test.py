#!/usr/bin/env python3
"""Ratios, targets and tables of report.py."""

import unittest

import findings
import report


def line(group, case, seconds, units=100, **more):
    return {"group": group, "case": case, "unit": "cell", "units": units, "seconds": seconds, "start_kib": 0,
            "peak_kib": 0, **more}


def delivery(group, **cases):
    """Figures of one group in nanoseconds per cell, the same in both rounds."""
    return [line(group, case.replace("_", " "), [cost * 100e-9] * 2) for case, cost in cases.items()]


def sizes(cost, fixed=0.001, drain=10e-9):
    """Lines of the group `sizes` for a server cursor that costs `cost(rows)` per cell and `fixed` seconds per query, and
    for vectors that cost half."""
    lines = []
    for rows, repeats in ((1, 2000), (10_000, 200), (1_000_000, 2)):
        cells = 5 * rows * repeats
        lines.append(line("sizes", f"drain {rows}", [repeats * 5e-4 + cells * drain], cells))
        for case, share in (("server cursor", 1), ("vectors", 0.5)):
            lines.append(line("sizes", f"{case} {rows}",
                              [repeats * (5e-4 + share * fixed) + cells * (drain + share * cost(rows))], cells))
    return report.Figures(lines)


def peers(**costs):
    """A round with the drain at 10 ns per cell and the clients at these."""
    cells = {("drain", "W1"): [10.0]}
    cells.update({(client.replace("_", " "), "W1"): [cost] for client, cost in costs.items()})
    return report.Peers(cells)


class Ratios(unittest.TestCase):
    def test_minima_are_compared_less_the_drain(self):
        figures = report.Figures([line("W1", "drain", [10e-9, 30e-9], 1), line("W1", "server cursor", [40e-9, 30e-9], 1),
                                  line("W1", "value loop", [110e-9, 130e-9], 1)])
        self.assertAlmostEqual(0.2, figures.ratio("W1", "server cursor", "value loop", True))
        self.assertAlmostEqual(30 / 110, figures.ratio("W1", "server cursor", "value loop", False))

    def test_a_baseline_within_the_noise_reaches_no_target(self):
        figures = report.Figures(delivery("W1", drain=30, server_cursor=40, value_loop=29))
        target = report.ratio_targets(figures)[0]
        self.assertEqual(("inf", False), (target.measured, target.reached))

    def test_a_case_within_the_noise_reaches_no_target(self):
        figures = report.Figures(delivery("W1", drain=30, server_cursor=29, value_loop=40))
        self.assertEqual([False], [target.reached for target in report.ratio_targets(figures)])

    def test_target_is_reached_up_to_its_limit(self):
        for ours, reached in ((25, True), (26, False), (1, True)):
            figures = report.Figures(delivery("W1", drain=0, server_cursor=ours, value_loop=100))
            self.assertEqual([reached], [t.reached for t in report.ratio_targets(figures)], ours)

    def test_medians_are_shown(self):
        figures = report.Figures([line("backup", "bare", [1, 2, 9], 1), line("backup", "module", [1, 3, 9], 1)])
        ratio, = report.ratios(figures)
        self.assertEqual((1, 1.5), (ratio.best, ratio.middle))

    def test_missing_measurements_are_left_out(self):
        figures = report.Figures(delivery("W1", server_cursor=25))
        self.assertEqual([], report.ratios(figures))
        self.assertEqual([], report.ratio_targets(figures))

    def test_each_ratio_is_listed_once(self):
        names = [entry[:3] for entry in report.RATIOS]
        self.assertEqual(len(set(names)), len(names))


class Appender(unittest.TestCase):
    def test_rows_must_be_thirty_times_faster_than_as_parameters(self):
        def targets(seconds):
            return report.append_targets(report.Figures([line("append-W1", "module", [1.0]),
                                                         line("append-W1", "parameters", [seconds])]))
        self.assertEqual([("append-W1: rows of host values / rows of parameters", "30 times faster", "30 times", True)],
                         targets(30.0))
        self.assertFalse(targets(29.0)[0].reached)
        self.assertEqual([], report.append_targets(report.Figures([])))


class Sizes(unittest.TestCase):
    def test_cost_of_a_cell_is_free_of_the_query_and_of_the_drain(self):
        for case, expected in (("server cursor", 40), ("vectors", 20)):
            points = report.size_points(sizes(lambda rows: 40e-9), case)
            self.assertEqual([10_000, 1_000_000], [rows for rows, _ in points])
            for _, cost in points:
                self.assertAlmostEqual(expected, cost, places=6)

    def test_the_table_shows_the_cursor_and_the_vectors(self):
        self.assertIn("| 10,000 | 40.0 | 40.0 | 20.0 | 20.0 |", report.size_table(sizes(lambda rows: 40e-9)))

    def test_flat_within_a_tenth(self):
        for factor, reached in ((1.0, True), (1.09, True), (1.11, False), (0.9, False)):
            figures = sizes(lambda rows: 40e-9 * (factor if rows > 10_000 else 1))
            target = report.all_targets(figures)[-1]
            self.assertIn("10,000 to 1,000,000 rows", target.what)
            self.assertEqual(reached, target.reached, factor)

    def test_a_cost_within_the_noise_is_not_flat(self):
        self.assertEqual(float("inf"), report.flatness([(10, -1.0), (20, 1.0)]))


class Memory(unittest.TestCase):
    def targets(self, server, client):
        memory = report.Memory({"units": 5_000, "peak_kib": server}, {"units": 5_000, "peak_kib": 1024},
                               {"units": 1024, "start_kib": 100, "peak_kib": 100 + client})
        return [t.reached for t in report.all_targets(report.Figures([]), memory) if "memory" in t.what]

    def test_limits(self):
        self.assertEqual([True, True], self.targets(11 * 1024, 56))
        self.assertEqual([False, False], self.targets(11 * 1024 + 1, 57))

    def test_units(self):
        memory = report.Memory({"units": 5_000, "peak_kib": 3072}, {"units": 5_000, "peak_kib": 1024},
                               {"units": 2048, "start_kib": 0, "peak_kib": 100})
        self.assertEqual((1000, 2.0, 50.0), (memory.rows, memory.server_mib, memory.bytes_a_cell))


    def test_the_stream_is_compared_with_an_idle_engine(self):
        for peak, reached in ((51, True), (52, False)):
            memory = report.Memory(*[{"units": 5, "start_kib": 0, "peak_kib": 0}] * 3, {"units": 1, "peak_kib": 1024},
                                   {"units": 100, "peak_kib": peak * 1024})
            self.assertEqual(reached, report.memory_targets(memory)[-1].reached)


class Sides(unittest.TestCase):
    def reached(self, *lines):
        return [target.reached for target in report.side_targets(report.Figures(lines))]

    def test_two_threads_must_read_nearly_twice_the_rows(self):
        for seconds, reached in ((1.1, True), (1.12, False)):
            self.assertEqual([reached], self.reached(line("stream-threads", "one thread", [1.0], 100),
                                                     line("stream-threads", "two threads", [seconds], 200)))

    def test_point_queries_beside_a_long_one(self):
        for beside, reached in ((2.0, True), (2.1, False)):
            self.assertEqual([reached], self.reached({"group": "point-beside", "case": "p99", "alone_ms": 1.0,
                                                      "beside_ms": beside}))

    def test_what_threads_leave_mapped(self):
        for left, reached in ((32.0, True), (32.1, False)):
            self.assertEqual([reached], self.reached({"group": "value-threads", "case": "mapped", "full_mib": 200.0,
                                                      "left_mib": left}))

    def test_what_was_not_measured_is_left_out(self):
        self.assertEqual([], self.reached())


class Findings(unittest.TestCase):
    def test_what_was_not_measured_is_said(self):
        lines = findings.sentences(report.Figures([]), None, None).splitlines()
        self.assertEqual(5, len(lines))
        self.assertIn("none was measured", lines[1])
        self.assertIn(findings.NOT_MEASURED, lines[0])
        self.assertIn("0 of 0 were reached.", lines[4])

    def test_the_fastest_client_is_compared_on_each_workload(self):
        self.assertIn("on 1 of 1 workloads (W1).", findings.other_clients(peers(server_cursor=30, client_cursor=50, Go=40)))
        others = report.Peers({}, {("module", "append-W1"): [100], ("Rust", "append-W1"): [250], ("Go", "append-W1"): [300],
                                   ("module", "append-W2"): [100], ("Rust", "append-W2"): [200]})
        self.assertEqual("; the fastest other appender takes 2.00 to 2.50 times as long as ours",
                         findings.beside(others, "append", "appender"))
        self.assertEqual("", findings.beside(others, "arrow", "Arrow reader"))
        self.assertIn("on 0 of 1 workloads.", findings.other_clients(peers(server_cursor=50, client_cursor=50, Go=40)))

    def test_a_span_is_one_number_where_both_ends_are_equal(self):
        self.assertEqual("1.10", findings.span([1.101, 1.099]))
        self.assertEqual("0.90 to 1.10", findings.span([1.1, 0.9, 1.0]))


class Interrupt(unittest.TestCase):
    def test_limit(self):
        for delay, reached in ((50, True), (50.1, False)):
            figures = report.Figures([{"group": "interrupt", "case": "delay", "p99_ms": delay}])
            self.assertEqual(reached, report.all_targets(figures)[-1].reached)


class Peers(unittest.TestCase):
    def reached(self, others):
        return {target.what: target.reached for target in report.peer_targets(others)}

    def test_server_cursor_must_be_below_the_fastest(self):
        others = peers(server_cursor=30, client_cursor=50, Go=40, Rust=35)
        self.assertTrue(self.reached(others)["W1: server cursor / Rust, the fastest of them"])
        others = peers(server_cursor=35, client_cursor=50, Go=40, Rust=35)
        self.assertFalse(self.reached(others)["W1: server cursor / Rust, the fastest of them"])

    def test_client_cursor_must_be_below_the_clients_that_keep_the_rows(self):
        reached = self.reached(peers(server_cursor=30, client_cursor=50, Python_fetchall=60, Node_getRows=45))
        self.assertTrue(reached["W1: client cursor / Python fetchall"])
        self.assertFalse(reached["W1: client cursor / Node getRows"])

    def test_a_client_that_is_missing_is_told(self):
        reached = self.reached(peers(server_cursor=30, client_cursor=50))
        self.assertEqual({None}, set(reached.values()))
        self.assertEqual(3, len(reached))

    def test_a_client_that_failed_on_a_workload_is_not_compared_there(self):
        others = peers(server_cursor=30, client_cursor=50, Go=40)
        others.cells.update({("drain", "W2"): [5], ("server cursor", "W2"): [20], ("client cursor", "W2"): [30]})
        reached = self.reached(others)
        self.assertTrue(reached["W1: server cursor / Go, the fastest of them"])
        self.assertIsNone(reached["W2: server cursor / every other client"])

    def test_rows_of_parameters_must_be_three_times_faster_than_executemany(self):
        for ours, reached in (([100, 90], True), ([101], False)):
            others = report.Peers({}, {("module", "multi-row-W1"): ours, ("Python executemany", "multi-row-W1"): [300, 310]})
            self.assertEqual([reached], [t.reached for t in report.peer_targets(others)], ours)

    def test_an_appender_must_not_be_behind_the_fastest_other(self):
        for ours, reached in (([100, 90], True), ([91], False)):
            others = report.Peers({}, {("module", "append-W1"): ours, ("Go", "append-W1"): [95, 95], ("Rust", "append-W1"): [99, 90]})
            self.assertEqual({"append-W1: rows of host values / Rust, the fastest of them": reached}, self.reached(others))

    def test_an_arrow_stream_must_not_be_behind_another_client(self):
        for ours, reached in ((10.0, True), (10.1, False)):
            others = report.Peers({}, {("streaming cursor", "arrow-W4"): [ours], ("pyarrow", "arrow-W4"): [10.0]})
            self.assertEqual({"arrow-W4: Arrow stream of a streaming cursor / pyarrow": reached}, self.reached(others))

    def test_a_group_that_only_we_have_is_not_compared(self):
        self.assertEqual({}, self.reached(report.Peers({}, {("module", "arrow-W4"): [1.0]})))

    def test_texts_must_be_below_rust_in_each_round(self):
        what = "W3: server cursor / Rust get::<Value>, in each round"
        for last, measured, reached in ((44, "34 ns / 35 ns in the worst", True), (47, "37 ns / 35 ns in the worst", False),
                                        (9, "-1 ns / 35 ns in the worst", False)):
            others = report.Peers({("drain", "W3"): [5, 10], ("server cursor", "W3"): [20, last],
                                   ("client cursor", "W3"): [20, 20], ("Rust get::<Value>", "W3"): [70, 45]})
            target = {t.what: t for t in report.peer_targets(others)}[what]
            self.assertEqual((measured, reached), (target.measured, target.reached))
        del others.cells["Rust get::<Value>", "W3"]
        self.assertIsNone(self.reached(others)[what])

    def test_the_table_of_other_ways_begins_with_ours(self):
        others = report.Peers({}, {("Go", "append-W1"): [300.0, 400.0], ("Rust", "append-W1"): [150.0, 150.0],
                                   ("module", "append-W1"): [100.0, 200.0]})
        self.assertEqual(["| append-W1 | rows of host values | row | 100.0 / 150.0 | 1.00 / 1.00 |",
                          "| append-W1 | Rust | row | 150.0 / 150.0 | 1.50 / 1.00 |",
                          "| append-W1 | Go | row | 300.0 / 350.0 | 3.00 / 2.33 |"],
                         report.other_way_table(others).splitlines()[2:])
        self.assertEqual(report.other_way_table(others), report.peer_tables(others))

    def test_delivery_is_less_the_drain_of_the_same_rounds(self):
        others = report.Peers({("drain", "W1"): [10, 20, 30], ("Go", "W1"): [50, 70, 60]})
        self.assertEqual(40, others.delivery("Go", "W1"))
        self.assertEqual(40, others.delivery("Go", "W1", pick=max))
        self.assertIn("| Go | 40 / 40 |", report.peer_table(others))

    def test_without_clients_they_are_told_not_measured(self):
        self.assertIn(("other clients", None), [(t.what, t.reached) for t in report.all_targets(report.Figures([]))])


class Tables(unittest.TestCase):
    def test_verdicts(self):
        targets = [report.Target("a", "1", "2", True), report.Target("b", "3", "2", False), report.Target("c", "", "2", None)]
        rows = report.target_table(targets).splitlines()
        self.assertEqual("|---|---:|---:|---|", rows[1])
        self.assertEqual(["| a | 1 | 2 | yes |", "| b | 3 | 2 | **no** |", "| c |  | 2 | not measured |"], rows[2:])

    def test_cases_have_their_delivery_where_there_is_a_drain(self):
        figures = report.Figures(delivery("W1", drain=10, vectors=30) + delivery("backup", bare=5))
        rows = report.case_table(figures).splitlines()[2:]
        self.assertEqual(["| W1 | drain | cell | 100 | 10.0 | 10.0 |  |", "| W1 | vectors | cell | 100 | 30.0 | 30.0 | 20.0 |",
                          "| backup | bare | cell | 100 | 5.0 | 5.0 |  |"], rows)


if __name__ == "__main__":
    unittest.main()
