"""The options of `mduckdb-host` that limit the calls of procedures."""

import os
import time
import unittest

from host_case import SAMPLE_MODULE, HostCase

SLOW = "(SELECT count(*) FROM range(100000000000) r(x)) > 0"


class LimitsTest(HostCase):
    def setUp(self):
        super().setUp()
        for folder in ("in", "out", "spill"):
            os.mkdir(self.path(folder))
        for file in ("in/a.parquet", "out/a.parquet"):
            self.execute(":memory:", f"COPY (SELECT i, '{file}' AS t FROM range(100) r(i)) TO '{self.path(file)}'")

    def where(self, condition, *options):
        return self.rows(*options, "call", "parquet_count", "in/a.parquet", condition)[0][0] == 100

    def test_memory_threads_and_temporary_directory_are_those_of_the_calls_engine(self):
        self.assertTrue(self.where("current_setting('memory_limit') = '95.3 MiB'", "--memory-mb", "100"))
        self.assertTrue(self.where("current_setting('threads') = 3", "--threads=3"))
        folder = os.path.realpath(self.path("spill"))
        self.assertTrue(self.where(f"starts_with(current_setting('temp_directory'), '{folder}/mduckdb-')",
                                   "--temp-directory", "spill"))
        self.assertEqual(os.listdir(folder), [])

    def test_options_may_follow_the_command(self):
        self.assertEqual(self.rows("call", "--threads", "2", "parquet_count", "in/a.parquet",
                                   "current_setting('threads') = 2"), [[100]])

    def test_a_statement_is_cut_after_the_same_seconds(self):
        done = self.run_host("--seconds", "0.2", "sql", ":memory:",
                             "SELECT count(*) FROM range(100000000) a, range(100000) b")
        self.assertEqual(done.returncode, 1)
        self.assertIn("The time limit of 200 ms is over: the statement was cut", done.stderr.decode())

    def test_a_call_is_cut_after_its_seconds(self):
        start = time.monotonic()
        self.assertEqual(self.error("--seconds", "0.2", "call", "parquet_count", "in/a.parquet", SLOW),
                         "parquet_count exceeded its time limit of 200 milliseconds.\n")
        self.assertEqual(self.error("--seconds", "1", "call", "parquet_count", "in/a.parquet", SLOW),
                         "parquet_count exceeded its time limit of 1 second.\n")
        self.assertLess(time.monotonic() - start, 30)

    def test_a_folder_is_the_only_one_that_calls_read(self):
        os.symlink("../out/a.parquet", self.path("in/link.parquet"))
        options = ("--allow-directory", "in")
        self.assertEqual(self.rows(*options, "call", "parquet_count", "in/a.parquet"), [[100]])
        for uri in ("out/a.parquet", "in/../out/a.parquet", "in/link.parquet", self.path("out/a.parquet")):
            self.assertIn("disabled by configuration", self.error(*options, "call", "parquet_count", uri))
        self.assertEqual(self.rows(*options, "--allow-directory=out", "call", "parquet_count", "out/a.parquet"), [[100]])

    def test_a_shell_limits_its_calls_too(self):
        done = self.run_host("--allow-directory", "in", "shell", stdin="CALL parquet_count('out/a.parquet');\n")
        self.assertEqual(done.returncode, 1)
        self.assertIn("disabled by configuration", done.stderr.decode())

    def test_spilled_rows_are_private_and_removed(self):
        self.execute(":memory:", f"COPY (SELECT i, i AS j FROM range(1200000) r(i)) TO '{self.path('in/b.parquet')}'")
        lines = self.output("--memory-mb", "16", "--threads", "2", "--temp-directory", "spill", "--format", "csv",
                            "call", "fetch_parquet", "in/b.parquet").splitlines()
        self.assertEqual(len(lines), 1200001)
        self.assertEqual(lines[1199999], "1199998,1199998")
        self.assertEqual(os.listdir(self.path("spill")), [])

    def test_wrong_limits_are_errors(self):
        self.assertIn("'missing'", self.error("--allow-directory", "missing", "call", "parquet_count", "in/a.parquet"))
        self.assertIn("The folder does not exist",
                      self.error("--temp-directory", "missing", "call", "parquet_count", "in/a.parquet"))
        for option in ("--memory-mb", "--threads", "--seconds"):
            for number in ("-1", "x", ""):
                self.error(f"{option}={number}", "call", "parquet_count", "in/a.parquet", status=2)
        self.assertEqual(self.error("--module", SAMPLE_MODULE, "--threads", "1", "call", "values"),
                         "The module cannot limit the calls of procedures.\n")


if __name__ == "__main__":
    unittest.main()
