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
    return figures


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        script = load_script()
        with tempfile.TemporaryDirectory() as folder:
            script.DOCS = pathlib.Path(folder)
            memory = report.Memory({"units": 5_000, "peak_kib": 3072}, {"units": 5_000, "peak_kib": 1024},
                                   {"units": 2048, "start_kib": 0, "peak_kib": 100})
            others = peers(server_cursor=30, client_cursor=50, Go=40)
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
