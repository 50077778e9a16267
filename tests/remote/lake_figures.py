#!/usr/bin/env python3
"""Measures a lake that several processes write to at once. Prints the table of docs/remote.md.

  scripts/remote-servers --duckdb NAME tests/remote/lake_figures.py [SECONDS]    with MDUCKDB_HOST and the other variables
                                                                                 of the tests
"""

import sys
import threading
import time

from lake_case import LakeCase, at_once

SECONDS = 10


class Figures(LakeCase):
    def measure(self, writers, rows, readers=0):
        """Commits, refused commits, and reads in a second."""
        counts = {"commits": 0, "refused": 0, "reads": 0}
        lock = threading.Lock()
        ready = threading.Barrier(writers + readers)

        def is_done(shell, statement):
            """False for a conflict, after which the statement can be run again."""
            printed = shell.run(statement)
            is_refused = "Failed to commit DuckLake transaction" in printed
            self.assertTrue(is_refused or "Error" not in printed, printed)
            return not is_refused

        def work(name, kind, statement):
            with self.open(name) as shell:
                while not is_done(shell, statement):
                    pass
                ready.wait()
                end = time.monotonic() + SECONDS
                while time.monotonic() < end:
                    outcome = kind if is_done(shell, statement) else "refused"
                    with lock:
                        counts[outcome] += 1

        insert = f"INSERT INTO lake.t SELECT 'w', 1, i FROM range({rows}) r(i)"
        count = "SELECT count(*) FROM lake.t"
        at_once(*[lambda n=n: work(f"w{n}", "commits", insert) for n in range(writers)],
                *[lambda n=n: work(f"r{n}", "reads", count) for n in range(readers)])
        with self.open("check") as shell:
            found = int(shell.rows("SELECT count(*) FROM lake.t")[0][0])
        self.assertEqual(found, (counts["commits"] + writers) * rows)
        return [counts[kind] / SECONDS for kind in ("commits", "refused", "reads")]

    def runTest(self):
        print("| writers | readers | rows a commit | commits a second | refused a second | rows a second | reads a second |")
        print("|---|---|---|---|---|---|---|")
        for writers, readers, rows in ((1, 0, 1), (2, 0, 1), (4, 0, 1), (1, 0, 100000), (2, 0, 100000), (4, 0, 100000),
                                       (2, 2, 100000)):
            self.setUp()
            commits, refused, reads = self.measure(writers, rows, readers)
            print(f"| {writers} | {readers} | {rows:,} | {commits:.1f} | {refused:.1f} | {commits * rows:,.0f} | {reads:.1f} |", flush=True)


if __name__ == "__main__":
    if len(sys.argv) > 1:
        SECONDS = float(sys.argv[1])
    Figures.setUpClass()
    try:
        Figures().runTest()
    finally:
        Figures.doClassCleanups()
