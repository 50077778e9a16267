"""A server that refuses, breaks off, stands still, answers with errors, or changes an object meanwhile."""

import signal
import subprocess
import unittest

import duckdb

import servers
from remote_case import HOST, StoreCase

# Reads a whole column.
CONDITION = "h <> 5"


class FaultsTest(StoreCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.url, cls.original = cls().put("f.parquet", "SELECT i, hash(i) AS h FROM range(400000) r(i)")
        cls.ways = {"call": ["call", "parquet_count", cls.url, CONDITION],
                    "sql": ["sql", ":memory:", f"SELECT count(*) FROM '{cls.url}' WHERE {CONDITION}"]}

    def check_recovery(self, kind, **fault):
        """One such answer is asked for again, so that the rows are right."""
        for way, arguments in self.ways.items():
            with self.subTest(way=way), self.store.front.faulty(kind, times=1, **fault) as planted:
                self.assertEqual(self.rows(*arguments), [[400000]])
                self.assertTrue(planted.met.is_set())

    def check_error(self, part, kind, **fault):
        """The same answer for every request is an error with this part, and the next call works."""
        for way, arguments in self.ways.items():
            with self.subTest(way=way):
                with self.store.front.faulty(kind, **fault):
                    error = self.error(*arguments)
                self.assertIn(part, error)
                self.assertNotIn(self.store.secret, error)
                self.assertEqual(self.rows(*arguments), [[400000]])

    def test_a_reset_in_the_middle_of_an_answer(self):
        self.check_recovery("reset")
        self.check_error("Failure when receiving data", "reset")

    def test_a_truncated_answer(self):
        self.check_recovery("truncated")
        self.check_error("Transferred a partial file", "truncated")

    def test_an_internal_error_of_the_server(self):
        self.check_recovery(500)
        self.check_recovery(503)
        self.check_error("HTTP 500 Internal Server Error", 500)

    def test_an_object_that_is_forbidden_or_gone(self):
        self.check_error("HTTP 403 Forbidden", 403)
        self.check_error("403", 403, method="HEAD|GET")
        self.check_error("HTTP 404 Not Found", 404)
        self.check_error("404", 404, method="HEAD|GET")

    def test_a_server_that_refuses_connections(self):
        port = servers.free_port()
        for arguments in (["call", "parquet_count", f"http://127.0.0.1:{port}/a.parquet"],
                          ["sql", ":memory:", f"FROM 'http://127.0.0.1:{port}/a.parquet'"]):
            self.assertIn("Could not connect to server", self.error(*arguments))

    def test_an_object_that_changes_between_two_reads_of_a_query_is_an_error(self):
        self.addCleanup(self.store.put, "f.parquet", self.original)
        other = self.path("other.parquet")
        duckdb.sql(f"COPY (SELECT i, hash(i + 7) AS h FROM range(400000) r(i)) TO '{other}'")
        for way, arguments in self.ways.items():
            with self.subTest(way=way):
                self.store.put("f.parquet", self.original)
                with self.store.front.faulty(lambda: self.store.put("f.parquet", other), times=1, after=1) as planted:
                    error = self.error(*arguments)
                self.assertTrue(planted.met.is_set())
                self.assertIn("ETag", error)

    def test_a_call_with_a_time_limit_ends_although_the_server_stands_still(self):
        with self.store.front.faulty("slow"):
            error = self.error("--seconds", "1", *self.ways["call"])
        self.assertIn("time limit", error)
        self.assertEqual(self.rows(*self.ways["call"]), [[400000]])

    def test_a_statement_ends_with_the_time_that_duckdb_waits_for_a_server(self):
        with self.shell() as shell:
            shell.run("SET http_timeout = 1; SET http_retries = 0")
            with self.store.front.faulty("slow"):
                self.assertIn("Timeout was reached", shell.run(self.ways["sql"][2]))
            self.assertEqual(shell.rows(self.ways["sql"][2]), [["400000"]])

    def test_ctrl_c_ends_a_call_at_once_although_the_server_stands_still(self):
        with self.store.front.faulty("slow") as planted:
            # A test that was started in the background ignores the signal, and so would the program.
            with subprocess.Popen([HOST, *self.ways["call"]], env=self.environment, stdout=subprocess.PIPE,
                                  preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL)) as process:
                self.assertTrue(planted.met.wait(60))
                process.send_signal(signal.SIGINT)
                self.assertEqual(process.wait(20), 130)

    def test_one_process_goes_on_after_every_fault(self):
        """The engine of a database and the engines of procedures serve the next statement."""
        with self.shell() as shell:
            for kind in ("reset", "truncated", 500, 403, 404):
                # Of another name, since the database's engine keeps what it has read.
                self.store.put(f"{kind}.parquet", self.original)
                url = self.url.replace("f.parquet", f"{kind}.parquet")
                for statement in (f"SELECT count(*) FROM '{url}' WHERE {CONDITION}", f"CALL parquet_count('{url}', '{CONDITION}')"):
                    with self.subTest(kind=kind, statement=statement):
                        with self.store.front.faulty(kind):
                            self.assertIn("Error", shell.run(statement))
                        self.assertEqual(shell.rows(statement), [["400000"]])


if __name__ == "__main__":
    unittest.main()
