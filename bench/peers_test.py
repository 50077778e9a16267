#!/usr/bin/env python3
"""What the other clients are held to: DuckDB's version, the rows; how they are run."""

import re
import sys
import unittest
import unittest.mock

import peers


def echo(*words):
    """The command of a client that prints these."""
    return [sys.executable, "-c", f"print({' '.join(words)!r})"]


def shipped_version():
    """Of DuckDB, as the Go and Rust packages have it within theirs: 10506 for 1.5.6. In a build on another DuckDB these clients
    are left out."""
    pin = (peers.HERE.parents[1] / "scripts/duckdb-1.5.pin").read_text()
    major, minor, patch = re.search(r"^DUCKDB_VERSION=(.*)$", pin, re.MULTILINE).group(1).split(".")
    return f"{major}{int(minor):02}{int(patch):02}"


class Versions(unittest.TestCase):
    def test_go_names_the_shipped_duckdb(self):
        manifest = (peers.HERE / "go" / "go.mod").read_text()
        self.assertEqual([shipped_version()], re.findall(r"duckdb-go/v2 v2\.(\d+)\.\d+", manifest))

    def test_rust_names_the_shipped_duckdb(self):
        manifest = (peers.HERE / "rust" / "Cargo.toml").read_text()
        self.assertEqual([shipped_version()], re.findall(r'duckdb = "=1\.(\d+)\.\d+"', manifest))

    def test_node_has_the_pinned_duckdb(self):
        for origin, library in (("npm", peers.VERSION + "-r.9"), ("wheel", "")):
            with unittest.mock.patch.dict(peers.PIN, DUCKDB_LIBRARY_FROM=origin, DUCKDB_LIBRARY_VERSION=library):
                if origin == "npm":
                    self.assertEqual(f"@duckdb/node-api@{peers.VERSION}-r.9", peers.node_package())
                else:
                    self.assertRaises(OSError, peers.node_package)

    def test_pyarrow_is_that_of_the_tests(self):
        self.assertRegex(peers.arrow_package(), r"^pyarrow==\d+\.\d+\.\d+$")

    def test_a_client_prints_version_units_and_seconds(self):
        self.assertEqual(("1.2.3", 40, 0.25), peers.run_client(echo("v1.2.3", "40", "0.25"), ""))
        self.assertEqual(0.25e9 / 40, peers.nanoseconds_of(echo("v" + peers.VERSION, "40", "0.25"), "", 40))

    def test_a_client_with_another_duckdb_has_no_figure(self):
        self.assertRaisesRegex(ValueError, "DuckDB 0.1.2", peers.nanoseconds_of, echo("v0.1.2", "40", "0.25"), "")

    def test_a_client_that_stores_fewer_or_other_rows_has_no_figure(self):
        for stored in ("39", "0"):
            client = echo("v" + peers.VERSION, stored, "0.25")
            self.assertRaisesRegex(ValueError, f"{stored} units instead of 40", peers.nanoseconds_of, client, "", 40)


class Plans(unittest.TestCase):
    def plans(self, *names):
        """Each command gives its arguments back."""
        programs = {kind: {f"{kind} client": lambda *arguments: list(arguments)} for kind in peers.KINDS}
        plans = peers.make_plans(programs, lambda workload: (workload + ".duckdb", "SELECT 1"), print, 5, names, 0.5)
        return {key: (plan.args, most) for key, (plan, most) in plans.items()}

    def test_each_group_has_our_cases_and_the_clients_of_its_kind(self):
        self.assertEqual({("drain", "W1"), ("server cursor", "W1"), ("client cursor", "W1"), ("cells client", "W1"),
                          ("module", "arrow-W4"), ("streaming cursor", "arrow-W4"), ("arrow client", "arrow-W4")}, set(self.plans("W1", "arrow-W4", "sizes")))

    def test_a_client_gets_database_query_and_rows(self):
        plans = self.plans("arrow-W2", "multi-row-W1", "append-W2")
        self.assertEqual(((["W2.duckdb"], "SELECT 1"), 5), plans["arrow client", "arrow-W2"])
        self.assertEqual(((["W1.duckdb", 50_000], "SELECT 1", 50_000), 2), plans["parameters client", "multi-row-W1"])
        words, text, rows = plans["append client", "append-W2"][0]
        self.assertEqual(([], 307_200, 3), (words, rows, text.count("\n")))
        self.assertIn("ATTACH 'W2.duckdb'", text.splitlines()[0])

    def test_our_process_runs_as_often_as_the_clients_do(self):
        plans = self.plans("W1", "multi-row-W1", "append-W1", "arrow-W1")
        self.assertEqual({"W1": 1, "multi-row-W1": 1, "append-W1": 2, "arrow-W1": 6},
                         {group: args[2] for (case, group), (args, _) in plans.items() if case in ("module", "drain")})

    def test_a_kind_without_clients_is_not_run(self):
        programs = {kind: {} for kind in peers.KINDS}
        self.assertEqual({}, peers.make_plans(programs, None, None, 5, ["W1", "append-W1"], 1))


class Rounds(unittest.TestCase):
    def test_each_plan_runs_once_a_round_up_to_its_maximum(self):
        order = []

        def plan(name, most):
            return lambda: order.append(name) or len(order), most

        figures, failed = peers.run_rounds({"a": plan("a", 9), "b": plan("b", 9), "c": plan("c", 1)}, 3)
        self.assertEqual([3, 3, 1], [len(figures[key]) for key in "abc"])
        self.assertEqual([set("abc"), set("ab"), set("ab")], [set(order[:3]), set(order[3:5]), set(order[5:])])
        self.assertEqual({}, failed)

    def test_a_plan_that_fails_leaves_the_others(self):
        def fail():
            raise ValueError("no figure")

        figures, failed = peers.run_rounds({"good": (lambda: 1.0, 2), "bad": (fail, 2)}, 2)
        self.assertEqual({"good": [1.0, 1.0]}, figures)
        self.assertEqual(["bad"], list(failed))


if __name__ == "__main__":
    unittest.main()
