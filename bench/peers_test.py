#!/usr/bin/env python3
"""What the other clients are held to: DuckDB's version."""

import re
import sys
import unittest
import unittest.mock

import peers


def echo(*words):
    """A client that prints these."""
    return lambda database: [sys.executable, "-c", f"print({' '.join(words)!r})"]


class Versions(unittest.TestCase):
    def test_go_names_the_pinned_duckdb(self):
        manifest = (peers.HERE / "go" / "go.mod").read_text()
        self.assertEqual([peers.packed_version()], re.findall(r"duckdb-go/v2 v2\.(\d+)\.\d+", manifest))

    def test_rust_names_the_pinned_duckdb(self):
        manifest = (peers.HERE / "rust" / "Cargo.toml").read_text()
        self.assertEqual([peers.packed_version()], re.findall(r'duckdb = "=1\.(\d+)\.\d+"', manifest))

    def test_node_has_the_pinned_duckdb(self):
        for origin, library in (("npm", peers.VERSION + "-r.9"), ("wheel", "")):
            with unittest.mock.patch.dict(peers.PIN, DUCKDB_LIBRARY_FROM=origin, DUCKDB_LIBRARY_VERSION=library):
                if origin == "npm":
                    self.assertEqual(f"@duckdb/node-api@{peers.VERSION}-r.9", peers.node_package())
                else:
                    self.assertRaises(OSError, peers.node_package)

    def test_a_client_with_another_duckdb_is_left_out(self):
        clients = {"right": echo("v" + peers.VERSION, "5", "0.5"), "old": echo("v0.1.2", "5", "0.5")}
        left_out = []
        self.assertEqual({"right"}, set(peers.keep_right_versions(clients, "database", left_out)))
        self.assertEqual(["old: DuckDB 0.1.2"], left_out)

    def test_a_client_prints_version_units_and_seconds(self):
        self.assertEqual(("1.2.3", 40, 0.25), peers.run_client(echo("v1.2.3", "40", "0.25")(""), ""))


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
