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
        """(commits, rows, reads) in a second, and the requests for each commit."""
        counts = {"commits": 0, "reads": 0}
        lock = threading.Lock()
        ready = threading.Barrier(writers + readers)
        self.store.front.take_requests()

        def work(name, kind, statement):
            with self.open(name) as shell:
                shell.run(statement)
                ready.wait()
                end = time.monotonic() + SECONDS
                while time.monotonic() < end:
                    printed = shell.run(statement)
                    self.assertNotIn("Error", printed)
                    with lock:
                        counts[kind] += 1

        insert = f"INSERT INTO lake.t SELECT 'w', 1, i FROM range({rows}) r(i)"
        count = "SELECT count(*) FROM lake.t"
        at_once(*[lambda n=n: work(f"w{n}", "commits", insert) for n in range(writers)],
                *[lambda n=n: work(f"r{n}", "reads", count) for n in range(readers)])
        puts = sum(request.method == "PUT" for request in self.store.front.take_requests())
        with self.open("check") as shell:
            found = int(shell.rows("SELECT count(*) FROM lake.t")[0][0])
        self.assertEqual(found, (counts["commits"] + writers) * rows)
        return counts["commits"] / SECONDS, counts["commits"] * rows / SECONDS, counts["reads"] / SECONDS, puts

    def runTest(self):
        print("| writers | readers | rows a commit | commits a second | rows a second | reads a second |")
        print("|---|---|---|---|---|---|")
        for writers, readers, rows in ((1, 0, 1), (2, 0, 1), (4, 0, 1), (1, 0, 100000), (2, 0, 100000), (4, 0, 100000),
                                       (2, 2, 100000)):
            self.setUp()
            commits, total, reads, _ = self.measure(writers, rows, readers)
            print(f"| {writers} | {readers} | {rows:,} | {commits:.1f} | {total:,.0f} | {reads:.1f} |", flush=True)


if __name__ == "__main__":
    if len(sys.argv) > 1:
        SECONDS = float(sys.argv[1])
    Figures.setUpClass()
    try:
        Figures().runTest()
    finally:
        Figures.doClassCleanups()
