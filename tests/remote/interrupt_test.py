"""Interrupts, cuts and closes while a server is silent: what waits for it ends, and nothing else."""

import os
import pathlib
import subprocess
import time
import unittest

import duckdb

import http_servers
from remote_case import RemoteCase

WAITING = os.environ["MDUCKDB_REMOTE_WAITING"]
ROWS = 400000
# A procedure has no setting that makes DuckDB wait longer than half a minute by itself.
OWN_END_OF_DUCKDB = 28


class InterruptTest(RemoteCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.files = pathlib.Path(cls.home, "files")
        cls.files.mkdir()
        for name in ("silent", "well"):
            duckdb.sql(f"COPY (SELECT i, hash(i) AS h FROM range({ROWS}) r(i)) TO '{cls.files}/{name}.parquet' "
                       "(FORMAT parquet, ROW_GROUP_SIZE 50000)")
            with duckdb.connect(f"{cls.files}/{name}.duckdb") as database:
                database.sql("CREATE TABLE t AS SELECT 42 AS i")
        cls.server = cls.enter(http_servers.FileServer(cls.files))

    def start(self, way, ending="parquet"):
        process = subprocess.Popen([WAITING, way, *(f"{self.server.url}/{name}.{ending}" for name in ("silent", "well"))],
                                   env=self.environment, cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stdin.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start_waiting(self, planted, *arguments):
        process = self.start(*arguments)
        self.assertTrue(planted.met.wait(self.longest_run))
        return process

    def send_line(self, process):
        process.stdin.write("\n")
        process.stdin.flush()

    def end(self, process):
        printed, _ = process.communicate(timeout=self.longest_run)
        self.assertEqual(process.returncode, 0, printed)
        return printed.splitlines()

    def interrupt(self, way, expected, ending="parquet", rows=ROWS, longest=None, **fault):
        """What waits ends with the expected text, although the server goes on being silent."""
        fault = {"kind": "silent", **fault}
        with self.subTest(way=way, **fault), self.server.faulty(path="silent", **fault) as planted:
            process = self.start_waiting(planted, way, ending)
            begun = time.monotonic()
            self.send_line(process)
            first, *others = self.end(process)
            waited = time.monotonic() - begun
            self.assertIn(expected, first)
            self.assertEqual(others, [str(rows)])
            if longest:
                self.assertLess(waited, longest)

    def test_an_interrupt_ends_every_kind_of_statement(self):
        for way in ("select", "statement", "stream"):
            self.interrupt(way, "xInterruptError")
            # In the middle of an answer.
            self.interrupt(way, "xInterruptError", kind="slow")

    def test_an_interrupt_ends_a_statement_that_is_being_prepared(self):
        for way in ("select", "statement", "stream"):
            self.interrupt(way, "xInterruptError", method="HEAD")

    def test_a_time_limit_ends_a_statement(self):
        for method in ("GET", "HEAD"):
            self.interrupt("limit", "The time limit of 500 ms is over", method=method)

    def test_closing_a_database_ends_its_streams(self):
        self.interrupt("close", "DuckDBCursor is invalid")

    def test_a_cut_ends_a_call(self):
        for method in ("GET", "HEAD"):
            self.interrupt("call", "parquet_count was cut by the host.", longest=OWN_END_OF_DUCKDB, method=method)
            self.interrupt("fetch_duckdb", "fetch_duckdb was cut by the host.", "duckdb", 42, OWN_END_OF_DUCKDB,
                           method=method)

    def test_a_time_limit_ends_a_call(self):
        for method in ("GET", "HEAD"):
            for procedure, url, *arguments in (("parquet_count", "silent.parquet", "h <> 5"),
                                               ("fetch_duckdb", "silent.duckdb", "t")):
                with self.server.faulty("silent", method=method, path="silent"), self.subTest(procedure=procedure, method=method):
                    error = self.error("--seconds", "1", "call", procedure, f"{self.server.url}/{url}", *arguments)
                    self.assertIn(f"{procedure} exceeded its time limit of 1 second.", error)

    def test_what_others_wait_for_is_left_alone(self):
        with self.server.faulty("silent", path="silent") as planted:
            process = self.start_waiting(planted, "neighbour")
            self.send_line(process)
            self.assertIn("xInterruptError", process.stdout.readline())
            self.assertEqual(process.stdout.readline(), f"{ROWS}\n")
            planted.release()
            self.assertEqual(self.end(process), ["none", str(ROWS)])

    def test_a_process_that_exits_does_not_wait(self):
        with self.server.faulty("silent", path="silent") as planted:
            process = self.start_waiting(planted, "exit")
            self.send_line(process)
            self.assertEqual(self.end(process), ["exits"])


if __name__ == "__main__":
    unittest.main()
