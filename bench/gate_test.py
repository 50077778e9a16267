#!/usr/bin/env python3
"""The comparison of gate.py, and its reading of callgrind's output."""

import json
import pathlib
import unittest

import gate


def figures(count, module=10.0):
    return {"all": count, "module": module}


def verdicts(stored, counted, **options):
    return {(row.name, row.kind): row.verdict for row in gate.compare(stored, counted, **options)}


class Comparison(unittest.TestCase):
    def test_five_percent_more_passes_and_anything_above_fails(self):
        for count, verdict in ((100.0, "ok"), (105.0, "ok"), (105.1, "WORSE"), (96.0, "ok"), (95.0, "better")):
            rows = gate.compare({"a": figures(100.0)}, {"a": figures(count)})
            self.assertEqual(verdict, rows[0].verdict, count)
            self.assertEqual(verdict == "WORSE", bool(gate.failures(rows)), count)

    def test_instructions_in_the_module_are_compared_separately(self):
        found = verdicts({"a": figures(1000.0, 10.0)}, {"a": figures(1001.0, 11.0)})
        self.assertEqual({("a", "all"): "ok", ("a", "module"): "WORSE"}, found)

    def test_more_in_the_module_passes_where_the_whole_is_less(self):
        rows = gate.compare({"a": figures(1000.0, 10.0)}, {"a": figures(990.0, 15.0)})
        self.assertEqual(["ok", "moved"], [row.verdict for row in rows])
        self.assertEqual([], gate.failures(rows))

    def test_a_figure_that_is_not_stored_fails(self):
        rows = gate.compare({}, {"a": figures(1.0)})
        self.assertEqual({"NEW"}, {row.verdict for row in rows})
        self.assertEqual(rows, gate.failures(rows))

    def test_a_stored_figure_that_was_not_counted_fails(self):
        rows = gate.compare({"a": figures(1.0), "b": figures(1.0)}, {"a": figures(1.0)})
        self.assertEqual(["b", "b"], [row.name for row in gate.failures(rows)])
        self.assertEqual({"GONE"}, {row.verdict for row in gate.failures(rows)})

    def test_a_partial_run_compares_only_its_part(self):
        rows = gate.compare({"a": figures(1.0), "b": figures(1.0)}, {"a": figures(1.0)}, is_partial=True)
        self.assertEqual(["a", "a"], [row.name for row in rows])

    def test_zero_against_a_stored_zero_passes(self):
        self.assertEqual([], gate.failures(gate.compare({"a": figures(0.0, 0.0)}, {"a": figures(0.0, 0.0)})))


class Counting(unittest.TestCase):
    OUTPUT = """\
# callgrind format
events: Ir
summary: 160

ob=/usr/lib/libc.so.6
fl=malloc.c
fn=malloc
0 30
cob=/usr/lib/libc.so.6
cfn=brk
calls=2 0
0 1000
7 20
ob=/build/lib/libmduckdb_casts.so
fn=Read(int)
12 60

ob=/build/lib/libmshared.so.0
fn=Make()
3 40
ob=/build/bin/mduckdb-bench
fn=main
1 10
""".splitlines()

    def test_costs_belong_to_the_file_that_caused_them(self):
        self.assertEqual({"libc.so.6": 50, "libmduckdb_casts.so": 60, "libmshared.so.0": 40, "mduckdb-bench": 10},
                         gate.instructions_by_object(self.OUTPUT))

    def test_figures_are_for_one_unit(self):
        self.assertEqual({"all": 80.0, "module": 50.0}, gate.figures(self.OUTPUT, 2))


class Stored(unittest.TestCase):
    def test_each_case_is_stored_with_both_figures(self):
        stored = json.loads(pathlib.Path(gate.__file__).with_name("gate.json").read_text())
        self.assertEqual({f"{group}: {case}" for group, case in gate.CASES}, set(stored["instructions"]))
        for counted in stored["instructions"].values():
            self.assertGreater(counted["all"], counted["module"])
            self.assertGreater(counted["module"], 0)


if __name__ == "__main__":
    unittest.main()
