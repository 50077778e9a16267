"""A path means the file that the system means, in every command."""

import os
import subprocess
import unittest

from host_case import HOST, HostCase


class PathsTest(HostCase):
    def setUp(self):
        super().setUp()
        os.makedirs(self.path("far/sub"))
        os.symlink("far/sub", self.path("lnk"))

    def make(self, name, rows):
        self.output("create", name)
        self.execute(name, f"CREATE TABLE t AS SELECT * FROM range({rows})")
        self.execute(name, f"COPY t TO '{self.path(name)}.parquet'")

    def files(self):
        return sorted(os.path.join(folder, name) for folder, _, names in os.walk(self.folder) for name in names)

    def count(self, name):
        return self.sql(name, "SELECT count(*) FROM t", "--read-only")

    def test_two_dots_after_a_link_lead_where_the_system_goes(self):
        self.make("x.db", 1)
        self.make("lnk/../x.db", 2)
        self.assertTrue(os.path.exists(self.path("far/x.db")))
        self.assertEqual(self.count("lnk/../x.db"), [[2]])
        self.assertEqual(self.rows("call", "fetch_duckdb", "lnk/../x.db", "t"), [[0], [1]])
        self.assertEqual(self.rows("call", "fetch_parquet", "lnk/../x.db.parquet"), [[0], [1]])
        self.assertEqual(self.rows("probe", "lnk/../x.db"), [["lnk/../x.db", True]])
        os.mkdir(self.path("far/b"))
        self.output("backup", "lnk/../x.db", "lnk/../b")
        folder = "lnk/../b/" + os.listdir(self.path("far/b"))[0]
        self.output("snapshot", "lnk/../x.db", "lnk/../s.db")
        self.output("restore", "lnk/../r.db", folder)
        self.output("restore", "lnk/../rs.db", "lnk/../s.db")
        self.assertIn("exists", self.error("create", "lnk/../x.db"))
        self.assertEqual([self.count(f"far/{name}.db") for name in ("x", "s", "r", "rs")], [[[2]]] * 4)
        self.assertEqual(self.count("x.db"), [[1]])

    def test_two_dots_after_a_missing_name_lead_nowhere(self):
        self.make("x.db", 1)
        self.output("snapshot", "x.db", "s.db")
        self.output("backup", "x.db")
        folder = os.path.join("Backup", os.listdir(self.path("Backup"))[0])
        before = self.files()
        self.assertEqual(self.error("sql", "missing/../x.db", "FROM t"),
                         "Cannot open missing/../x.db: File does not exist\n")
        self.assertIn("No such file or directory", self.error("create", "missing/../new.db"))
        self.assertIn("No such file or directory", self.error("create", "missing/../new.db", "--block-size", "16384"))
        self.assertEqual(self.error("call", "fetch_duckdb", "missing/../x.db", "t"), "Unable to open DuckDB database.\n")
        self.assertIn("No files found", self.error("call", "fetch_parquet", "missing/../x.db.parquet"))
        self.assertIn("false", self.output("--format", "csv", "probe", "missing/../x.db", status=1))
        for command in (("backup", "x.db", "missing/.."), ("snapshot", "x.db", "missing/../s2.db"),
                        ("restore", "missing/../r.db", folder), ("restore", "missing/../r.db", "s.db"),
                        ("restore", "r.db", "missing/../" + folder), ("restore", "r.db", "missing/../s.db")):
            with self.subTest(command=command):
                self.assertNotEqual(self.error(*command), "")
        self.assertEqual(self.files(), before)

    def test_a_path_that_is_not_utf8_is_refused_by_name(self):
        self.make("x\ufffd.db", 1)
        self.output("snapshot", "x\ufffd.db", "s.db")
        before = self.files()
        for command in ("create", "sql", "probe", "backup", "snapshot", "restore"):
            arguments = {"sql": ["FROM t"], "snapshot": ["s2.db"], "restore": ["s.db", "--force"]}.get(command, [])
            done = subprocess.run([HOST.encode(), command.encode(), b"x\xff.db", *(word.encode() for word in arguments)],
                                  cwd=self.folder, capture_output=True, timeout=60, check=False)
            with self.subTest(command=command):
                self.assertEqual(done.returncode, 1, done.stdout)
                self.assertIn(b"'x\xff.db' is not valid UTF-8.", done.stderr)
        self.assertEqual(self.files(), before)

    def test_sql_that_is_not_utf8_is_refused_instead_of_changed(self):
        self.make("x.db", 1)
        done = subprocess.run([HOST.encode(), b"sql", b"x.db", b"INSERT INTO t\n VALUES ('\xfc')"], cwd=self.folder,
                              capture_output=True, timeout=60, check=False)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertEqual(done.stderr.decode(),
                         "The statement is not valid UTF-8.\n\nLINE 2:  VALUES ('\ufffd')\n" + " " * 18 + "^\n")

    def test_in_a_working_folder_that_is_gone_a_relative_path_is_an_error(self):
        self.make("x.db", 1)
        script = f'mkdir gone && cd gone && rmdir ../gone && "{HOST}" "$@"'
        for command in (("create", "y.db"), ("sql", "x.db", "FROM t"), ("snapshot", "x.db", "s.db"),
                        ("backup", "x.db"), ("restore", "y.db", "b"), ("call", "fetch_duckdb", "x.db", "t"),
                        ("call", "fetch_parquet", "x.db.parquet"), ("shell", "x.db")):
            done = subprocess.run(["sh", "-c", script, "sh", *command], cwd=self.folder, capture_output=True, text=True,
                                  stdin=subprocess.DEVNULL, timeout=60, check=False)
            with self.subTest(command=command):
                self.assertEqual(done.returncode, 1, done.stdout)
                self.assertRegex(done.stderr, "working folder cannot be found|Unable to open|No files found")
                self.assertNotIn("filesystem", done.stderr)


if __name__ == "__main__":
    unittest.main()
