"""Interrupts, cuts and closes while a server is silent: what waits for it ends, and nothing else."""

import contextlib
import pathlib
import time
import unittest

import duckdb

import http_servers
from remote_case import RemoteCase
from waiting_process import WaitingProcess

ROWS = 400000
# A procedure has no setting that makes DuckDB wait longer than half a minute by itself.
OWN_END_OF_DUCKDB = 28
# In seconds. DuckDB's own pauses grow from 0.1 to 0.4.
BETWEEN_THE_PAUSES = 0.3


class InterruptTest(WaitingProcess, RemoteCase):
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
                database.sql("CREATE VIEW pauses AS SELECT value FROM duckdb_settings() "
                             "WHERE name = 'http_retry_backoff'")
        cls.server = cls.enter(http_servers.FileServer(cls.files))

    def start_waiting(self, planted, way, ending="parquet"):
        process = self.start(way, *(f"{self.server.url}/{name}.{ending}" for name in ("silent", "well")))
        self.assertTrue(planted.met.wait(self.longest_run))
        return process

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

    def test_the_pauses_while_a_database_is_opened_do_not_grow(self):
        """DuckDB opens the file three times, so a cut call would go through all pauses three times."""
        def fourth_attempt_comes_soon():
            self.server.take_requests()
            with self.server.faulty(503, method="GET|HEAD", path="silent"):
                self.error("call", "fetch_duckdb", f"{self.server.url}/silent.duckdb", "t")
            times = [request.time for request in self.server.take_requests() if request.status == 503]
            return times[3] - times[2] < BETWEEN_THE_PAUSES

        # A busy machine makes pauses longer, never shorter.
        self.assertTrue(any(fourth_attempt_comes_soon() for _ in range(10)))
        self.assertEqual(self.call("fetch_duckdb", f"{self.server.url}/well.duckdb", "pauses"), [["4"]])

    def test_a_time_limit_ends_a_call(self):
        for method in ("GET", "HEAD"):
            for procedure, url, *arguments in (("parquet_count", "silent.parquet", "h <> 5"),
                                               ("fetch_duckdb", "silent.duckdb", "t")):
                with self.server.faulty("silent", method=method, path="silent"), self.subTest(procedure=procedure, method=method):
                    error = self.error("--seconds", "1", "call", procedure, f"{self.server.url}/{url}", *arguments)
                    self.assertIn(f"{procedure} exceeded its time limit of 1 second.", error)

    def test_what_others_wait_for_is_left_alone(self):
        with contextlib.ExitStack() as faults:
            # One of the first two for each reader, which then asks again.
            planted = [faults.enter_context(self.server.faulty("silent", path="silent", times=times))
                       for times in (1, 1, None)]
            process = self.start_waiting(planted[0], "neighbour")
            self.assertTrue(planted[1].met.wait(self.longest_run))
            self.send_line(process)
            self.assertIn("xInterruptError", process.stdout.readline())
            self.assertEqual(process.stdout.readline(), f"{ROWS}\n")
            for fault in planted:
                fault.release()
            self.assertEqual(self.end(process), ["none", str(ROWS)])

    def test_a_process_that_exits_does_not_wait(self):
        with self.server.faulty("silent", path="silent") as planted:
            process = self.start_waiting(planted, "exit")
            self.send_line(process)
            self.assertEqual(self.end(process), ["exits"])


if __name__ == "__main__":
    unittest.main()
