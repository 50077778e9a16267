"""`mduckdb-host backup` and `restore`."""

import json
import os
import unittest

from host_case import HostCase


class BackupTest(HostCase):
    def setUp(self):
        super().setUp()
        self.output("create", "a.db")
        self.execute("a.db", """CREATE TABLE t AS SELECT i, 'é' || i AS s FROM range(2500) r(i);
            CREATE SCHEMA "s x"; CREATE TABLE "s x"."T'é.q" AS SELECT 1 AS one; CREATE TABLE empty (i INT);
            CREATE VIEW v AS SELECT count(*) AS n FROM t""")

    def backup(self, *arguments):
        """The folder that a backup printed, and its rows."""
        done = self.run_host("--format", "json", "backup", "a.db", *arguments)
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        heading = done.stderr.decode().splitlines()
        self.assertEqual(heading[0][:15], "Backup folder: ")
        self.assertRegex(heading[1], r"^Size: .*\d bytes\)?$")
        return heading[0][15:], json.loads(done.stdout)["rows"]

    def test_a_backup_prints_its_folder_and_the_rows_of_each_table(self):
        os.mkdir(self.path("b"))
        folder, rows = self.backup("b")
        self.assertEqual(os.path.dirname(folder), os.path.realpath(self.path("b")))
        self.assertTrue(os.path.exists(os.path.join(folder, "load.sql")))
        self.assertCountEqual(rows, [["t", 2500], ["empty", 0], ["\"s x\".\"T'é.q\"", 1]])

    def test_without_a_folder_the_backup_is_beside_the_database(self):
        folder, _ = self.backup()
        self.assertEqual(os.path.dirname(folder), os.path.realpath(self.path("Backup")))

    def test_the_table_format_says_it_all_on_stdout(self):
        text = self.output("backup", "a.db")
        self.assertRegex(text, r"^Backup folder: .*\nSize: .*bytes\)?\n┌")
        self.assertIn("│ t ", text)

    def test_a_folder_that_is_not_there_is_an_error(self):
        self.assertEqual(self.error("backup", "a.db", "nope"), "DuckDBDatabase backup folder is not available\n")
        self.assertFalse(os.path.exists(self.path("nope")))
        self.assertIn("File does not exist", self.error("backup", "nope.db"))

    def test_restore_returns_the_same_rows_and_reports_it(self):
        folder, exported = self.backup()
        done = self.run_host("--format", "json", "restore", "again.db", folder)
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        self.assertCountEqual(json.loads(done.stdout)["rows"],
                              [[table, count, count, "same"] for table, count in exported])
        query = "SELECT (SELECT sum(i)::BIGINT FROM t), (SELECT n FROM v), (SELECT one FROM \"s x\".\"T'é.q\")"
        self.assertEqual(self.sql("again.db", query), self.sql("a.db", query))

    def test_restore_recreates_an_existing_file(self):
        folder, _ = self.backup()
        self.execute("a.db", "DELETE FROM t WHERE i > 10")
        self.assertEqual(self.error("restore", "a.db", folder), "'a.db' exists. Use --force to replace it.\n")
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM t"), [[11]])
        self.output("restore", "a.db", folder, "--force")
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM t"), [[2500]])

    def test_restore_replaces_databases_only(self):
        folder, _ = self.backup()
        self.output("snapshot", "a.db", "s.db")
        for source in (folder, "s.db"):
            with open(self.path("notes.txt"), "w") as file:
                file.write("Not a database at all.")
            self.assertIn("exists", self.error("restore", "notes.txt", source))
            self.assertIn("The file is not a DuckDB database.", self.error("restore", "notes.txt", source, "--force"))
            with open(self.path("notes.txt")) as file:
                self.assertEqual(file.read(), "Not a database at all.")
            open(self.path("empty.db"), "w").close()
            self.assertEqual(self.error("restore", "empty.db", source), "'empty.db' exists. Use --force to replace it.\n")
            self.output("restore", "empty.db", source, "--force")
            self.assertEqual(self.sql("empty.db", "SELECT count(*) FROM t"), [[2500]])
            os.remove(self.path("empty.db"))

    def test_a_table_that_differs_is_named_with_status_1(self):
        folder, _ = self.backup()
        # The backup's script loads one file twice.
        script = os.path.join(folder, "load.sql")
        with open(script) as file:
            text = file.read()
        line = next(line for line in text.splitlines() if line.startswith("COPY t "))
        with open(script, "a") as file:
            file.write(line + "\n")
        done = self.run_host("--format", "json", "restore", "again.db", folder)
        self.assertEqual(done.returncode, 1, done.stderr.decode())
        self.assertIn(["t", 2500, 5000, "DIFFERS"], json.loads(done.stdout)["rows"])
        self.assertIn("See the tables marked DIFFERS.", done.stderr.decode())

    def test_restore_of_the_folder_above_names_the_backups_in_it(self):
        folder, _ = self.backup()
        error = self.error("restore", "again.db", os.path.dirname(folder))
        self.assertIn("contains no backup", error)
        self.assertIn("\n  " + folder, error)
        self.assertFalse(os.path.exists(self.path("again.db")))

    def test_a_broken_backup_is_duckdbs_error(self):
        folder, _ = self.backup()
        with open(os.path.join(folder, "schema.sql"), "a") as file:
            file.write("nonsense;\n")
        self.assertIn("syntax error", self.error("restore", "again.db", folder))


if __name__ == "__main__":
    unittest.main()
