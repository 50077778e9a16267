"""Interrupts while an object store is silent during an upload: what waits for it ends, and nothing else."""

import signal
import subprocess
import time
import unittest

from remote_case import HOST, StoreCase
from waiting_process import WaitingProcess

ROWS = 700000
# What DuckDB asks an object store for: the parts, which it sends on threads of their own, after and before two others.
BEGIN = {"method": "POST"}
PARTS = {"method": "PUT"}
END = {"method": "POST", "after": 1}
# By itself, DuckDB waits 30 seconds for each of four attempts.
OWN_END_OF_DUCKDB = 28


class UploadsTest(WaitingProcess, StoreCase):
    def url(self, name):
        return f"s3://{self.store.bucket}/{name}.parquet"

    def silent(self, name="silent", **fault):
        return self.store.front.faulty("silent", path=name, **fault)

    def interrupt(self, way, expected, is_sent=True):
        """What waits ends with the expected text, although the store goes on being silent."""
        for fault in (BEGIN, PARTS, END):
            with self.subTest(way=way, **fault), self.silent(**fault) as planted:
                process = self.start(way, self.url("silent"), self.url("well"))
                if is_sent:
                    self.assertTrue(planted.met.wait(self.longest_run))
                    self.send_line(process)
                first, *others = self.end(process)
                self.assertIn(expected, first)
                self.assertEqual(others, [str(ROWS)])

    def test_an_interrupt_ends_an_upload(self):
        self.interrupt("upload", "xInterruptError")

    def test_an_interrupt_ends_the_upload_of_a_statement_object(self):
        self.interrupt("upload_statement", "xInterruptError")

    def test_a_time_limit_ends_an_upload(self):
        self.interrupt("upload_limit", "The time limit of 5000 ms is over", is_sent=False)

    def test_what_others_upload_and_wait_for_is_left_alone(self):
        with self.silent(**PARTS) as ours, self.silent("well", **PARTS) as others:
            process = self.start("upload_neighbour", self.url("silent"), self.url("well"))
            for planted in (ours, others):
                self.assertTrue(planted.met.wait(self.longest_run))
            self.send_line(process)
            self.assertIn("xInterruptError", process.stdout.readline())
            self.assertEqual(process.stdout.readline(), "42\n")
            others.release()
            self.assertEqual(self.end(process), ["left alone", "none", str(ROWS)])

    def ctrl_c(self, *before):
        """Ctrl-C ends these statements and a COPY while the store takes no part."""
        sql = "; ".join([*before, f"COPY (SELECT i, hash(i) AS h, hash(i + 1) AS g FROM range({ROWS}) r(i)) TO '{self.url('silent')}'"])
        with self.subTest(before=before), self.silent(**PARTS) as planted, \
                subprocess.Popen([HOST, "sql", ":memory:", sql], env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 # A test that was started in the background ignores the signal, and so would the program.
                                 preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL)) as process:
            self.assertTrue(planted.met.wait(self.longest_run))
            begun = time.monotonic()
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(self.longest_run), 130)
            self.assertLess(time.monotonic() - begun, OWN_END_OF_DUCKDB)

    def test_ctrl_c_ends_an_upload(self):
        self.ctrl_c("SET GLOBAL s3_uploader_max_filesize = '50GB'")

    def test_ctrl_c_ends_an_upload_that_is_the_first_statement_with_a_server(self):
        self.ctrl_c()


if __name__ == "__main__":
    unittest.main()
