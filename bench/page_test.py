#!/usr/bin/env python3
"""docs/figures.md and its plots, generated from invented figures."""

import importlib.machinery
import importlib.util
import pathlib
import tempfile
import unittest
import xml.etree.ElementTree

import charts
import report
from report_test import line, peers, sizes

SCRIPT = pathlib.Path(__file__).resolve().parents[1] / "scripts" / "bench"


def load_script():
    loader = importlib.machinery.SourceFileLoader("bench_script", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


def invented_figures():
    """Every ratio at 3, beyond each target."""
    lines = []
    for group, case, baseline, *_ in report.RATIOS:
        lines += [line(group, case, [3.0, 4.5]), line(group, baseline, [1.0, 1.5])]
    figures = report.Figures(lines)
    figures.cases.update(sizes(lambda rows: 40e-9).cases)
    figures.delays = {"median_ms": 1.0, "p99_ms": 60.0, "max_ms": 70.0}
    figures.notes = {("point-beside", "p99"): {"alone_ms": 0.2, "beside_ms": 0.5},
                     ("value-threads", "mapped"): {"full_mib": 230.0, "left_mib": 33.0}}
    return figures


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        script = load_script()
        with tempfile.TemporaryDirectory() as folder:
            script.DOCS = pathlib.Path(folder)
            memory = report.Memory({"units": 5_000, "peak_kib": 3072}, {"units": 5_000, "peak_kib": 1024},
                                   {"units": 2048, "start_kib": 0, "peak_kib": 100},
                                   {"units": 1, "peak_kib": 1024}, {"units": 3_000, "peak_kib": 60 * 1024})
            others = peers(server_cursor=30, client_cursor=50, Go=40)
            others.others = {("module", "append-W1"): [100.0], ("Rust append_rows", "append-W1"): [150.0],
                             ("module", "arrow-W1"): [5.0], ("streaming cursor", "arrow-W1"): [20.0],
                             ("pyarrow", "arrow-W1"): [10.0]}
            others.left_out = ["rust: no such program"]
            script.write_figures(invented_figures(), memory, others, 5)
            cls.files = {path.name: path.read_text() for path in pathlib.Path(folder).iterdir()}

    def test_the_page_shows_every_target_and_ratio(self):
        page = self.files["figures.md"]
        self.assertIn("| W1: server cursor / value loop | 3.00 | 0.25 | **no** |", page)
        self.assertIn("| interrupt to exception, 99th percentile of 200 | 60.0 ms | 50 ms | **no** |", page)
        self.assertIn("Left out: rust: no such program.", page)
        for group, case, baseline, *_ in report.RATIOS:
            self.assertIn(f"| {group} | {case} | {baseline} | 3.00 | 3.00 |", page)

    def test_the_page_compares_other_clients(self):
        page = self.files["figures.md"]
        self.assertIn("| append-W1: rows of host values / Rust append_rows | 100.0 ns / 150.0 ns | not more | yes |", page)
        self.assertIn("| arrow-W1: Arrow stream of a streaming cursor / pyarrow | 20.0 ns / 10.0 ns | not more | **no** |", page)
        self.assertIn("| arrow-W1 | Arrow stream of a server cursor | cell | 5.0 / 5.0 | 0.25 / 0.25 |", page)
        self.assertIn("| append-W1 | Rust append_rows | row | 150.0 / 150.0 | 1.50 / 1.50 |", page)

    def test_the_page_begins_with_five_sentences_of_findings(self):
        lines = self.files["figures.md"].splitlines()
        self.assertEqual(["# Figures", ""], lines[:2])
        self.assertEqual(["1. **Cells**", "2. **Other clients**", "3. **Rows in**", "4. **Vectors and streams out**",
                          "5. **Targets**"], [line.split(":")[0] for line in lines[2:7]])
        self.assertEqual("", lines[7])
        self.assertIn("3.00 times DuckDB's own chunk append", lines[4])
        self.assertIn("not reached: W1: server cursor / value loop (3.00, limit 0.25)", lines[6])

    def test_the_page_shows_what_is_no_ratio(self):
        page = self.files["figures.md"]
        self.assertIn("streaming cursor over 3,000 rows: memory above an idle engine | 59.0 MiB | 50 MiB | **no** |", page)
        self.assertIn("alone | 2.50 | 2.00 | **no** |", page)
        self.assertIn("still mapped | 33.0 MiB | 32 MiB | **no** |", page)
        self.assertIn("of two threads / of one | 0.33 | 1.80 or more | **no** |", page)

    def test_the_bars_are_in_groups_with_a_line_at_one(self):
        plot = self.files["ratios.svg"]
        for title, _ in charts.SECTIONS:
            self.assertEqual(1, plot.count(f">{title}<"), title)
        self.assertEqual([], [r for r in report.RATIOS if charts.section_of(r[0]) == "Others"])
        self.assertEqual(1, plot.count(">1.0<"))
        self.assertEqual(len(report.RATIOS), plot.count(">3.00<"))
        self.assertIn("Less is better", plot)

    def test_the_plots_are_there_and_are_xml(self):
        for name in ("ratios.svg", "sizes.svg"):
            self.assertIn(f"]({name})", self.files["figures.md"])
            root = xml.etree.ElementTree.fromstring(self.files[name])
            self.assertTrue(root.tag.endswith("svg"))

    def test_a_ratio_without_a_number_has_no_bar(self):
        ratios = [report.Ratio("a", "b", "c", best, best, 1.0) for best in (float("inf"), -0.5, 0.5)]
        chart = charts.ratio_chart(ratios)
        self.assertNotIn("inf", chart)
        self.assertEqual(2, chart.count("a: b / c"))
        self.assertNotIn('width="-', chart)

    def test_a_bar_beyond_its_target_is_red(self):
        self.assertEqual(len([r for r in report.RATIOS if r[4]]), self.files["ratios.svg"].count("#c0504d"))


if __name__ == "__main__":
    unittest.main()
