"""What a process may do with a file that another one has open: the table of docs/operating.md."""

import os
import subprocess
import sys
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
        return other

    def sources(self):
        """What the file can be restored from: a backup and a snapshot."""
        self.output("backup", "a.db")
        self.output("snapshot", "a.db", "s.db")
        return os.path.join("Backup", os.listdir(self.path("Backup"))[0]), "s.db"

    def expect_no_replacement(self, sources, holder):
        for command in (("create", "a.db"), *(("restore", "a.db", source) for source in sources)):
            for options in ((), ("--force",)):
                with self.subTest(command=command, options=options):
                    self.assertIn(holder, self.error(*command, *options))

    def fetch(self):
        return self.run_host("--format", "csv", "call", "fetch_duckdb", "a.db", "t")

    def test_a_writer_excludes_everyone_else(self):
        self.hold("READ_WRITE")
        for option in ((), ("--read-only",)):
            self.assertIn("Could not set lock on file", self.error("sql", "a.db", "FROM t", *option))
        done = self.fetch()
        self.assertEqual((done.returncode, done.stderr), (1, b"Unable to open DuckDB database.\n"))

    def test_a_file_that_another_process_has_open_is_not_replaced(self):
        sources = self.sources()
        for access in ("READ_ONLY", "READ_WRITE"):
            other = self.hold(access)
            self.expect_no_replacement(sources, f"{os.path.realpath(HOST)} (process {other.pid}) has ")
            other.stdin.write("INSERT INTO a.t VALUES (2);\n" if access == "READ_WRITE" else "FROM a.t;\n")
            other.stdin.close()
            self.assertEqual(other.wait(timeout=60), 0)
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM t"), [[2]])

    def test_the_holder_of_a_lock_that_belongs_to_no_process_is_named(self):
        sources = self.sources()
        program = ("import fcntl, struct, sys; f = open('a.db', 'r+b'); "
                   "fcntl.fcntl(f, fcntl.F_OFD_SETLK, struct.pack('hhqqi4x', fcntl.F_WRLCK, 0, 0, 0, 0)); "
                   "print('held', flush=True); sys.stdin.read()")
        with subprocess.Popen([sys.executable, "-c", program], cwd=self.folder, text=True, stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as other:
            self.assertEqual(other.stdout.readline(), "held\n")
            self.expect_no_replacement(sources, f"{os.path.realpath(sys.executable)} (process {other.pid}) has ")
            for option in ((), ("--read-only",)):
                self.assertIn(f"lock is held in {os.path.realpath(sys.executable)} (process {other.pid}).",
                              self.error("sql", "a.db", "FROM t", *option))
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM t"), [[1]])

    def test_a_module_beside_a_foundation_without_its_list_keeps_a_list_of_its_own(self):
        with open(os.environ["MDUCKDB_MSHARED"], "rb") as library:
            content = library.read()
        self.assertIn(b"nbx_open_files_1", content)
        with open(self.path("libmshared.so.0"), "wb") as library:
            library.write(content.replace(b"nbx_open_files_1", b"nbx_open_files_2"))
        environment = {**os.environ, "LD_LIBRARY_PATH": self.folder}
        os.symlink("a.db", self.path("link.db"))
        done = self.run_host("--format", "csv", "shell", "a.db", env=environment, stdin=(
            "INSERT INTO t VALUES (2);\n.open link.db two\nINSERT INTO t VALUES (3);\n"
            "CALL fetch_duckdb('a.db', 't');\n"))
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        self.assertTrue(done.stdout.endswith(b"i\n1\n2\n3\n"), done.stdout)
        done = self.run_host("shell", env=environment, stdin="ATTACH 'a.db' AS x;\n.open link.db\n")
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"this process has it open by other means", done.stderr)
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM t"), [[3]])

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
