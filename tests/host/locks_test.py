"""What a process may do with a file that another one has open: the table of docs/operating.md."""

import subprocess
import unittest

from host_case import HOST, HostCase


class LocksTest(HostCase):
    def setUp(self):
        super().setUp()
        self.output("create", "a.db")
        self.execute("a.db", "CREATE TABLE t AS SELECT 1 AS i")

    def hold(self, access):
        """Another process that has the file open until the test ends."""
        other = subprocess.Popen([HOST, "--format", "csv", "shell"], cwd=self.folder, text=True,
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(other.wait, timeout=60)
        self.addCleanup(other.stdout.close)
        self.addCleanup(other.stdin.close)
        other.stdin.write(f"ATTACH 'a.db' AS a ({access});\nSELECT count(*) AS n FROM a.t;\n")
        other.stdin.flush()
        self.assertEqual([other.stdout.readline() for _ in "n1"], ["n\n", "1\n"])

    def fetch(self):
        return self.run_host("--format", "csv", "call", "fetch_duckdb", "a.db", "t")

    def test_a_writer_excludes_everyone_else(self):
        self.hold("READ_WRITE")
        for option in ((), ("--read-only",)):
            self.assertIn("Could not set lock on file", self.error("sql", "a.db", "FROM t", *option))
        done = self.fetch()
        self.assertEqual((done.returncode, done.stderr), (1, b"Unable to open DuckDB database.\n"))

    def test_two_readers_share_a_file(self):
        self.hold("READ_ONLY")
        self.assertEqual(self.sql("a.db", "FROM t", "--read-only"), [[1]])
        self.assertEqual(self.fetch().stdout, b"i\n1\n")

    def test_a_writer_beside_a_reader_can_only_read(self):
        self.hold("READ_ONLY")
        done = self.run_host("--format", "csv", "sql", "a.db", "FROM t")
        self.assertEqual((done.returncode, done.stdout), (0, b"i\n1\n"))
        self.assertIn(b"is open read-only: it is write-protected or in use.", done.stderr)
        self.assertIn("read-only", self.error("sql", "a.db", "INSERT INTO t VALUES (2)"))

    def test_everything_is_possible_alone(self):
        self.execute("a.db", "INSERT INTO t VALUES (2)")
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM t", "--read-only"), [[2]])
        self.assertEqual(self.fetch().stdout, b"i\n1\n2\n")


if __name__ == "__main__":
    unittest.main()
