"""`mduckdb-host snapshot`, `restore` of a snapshot, `backup --verify`, and the manifest of a backup."""

import json
import os
import unittest

from host_case import HostCase


class SnapshotTest(HostCase):
    def setUp(self):
        super().setUp()
        self.output("create", "a.db")
        self.execute("a.db", "CREATE TABLE t AS SELECT i FROM range(2500) r(i); CREATE TABLE \"T'é\" AS SELECT 1 AS i")

    def snapshot(self):
        done = self.run_host("--format", "json", "snapshot", "a.db", "s.db")
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        return done.stderr.decode(), json.loads(done.stdout)["rows"]

    def test_a_snapshot_prints_its_file_and_the_rows_of_each_table(self):
        heading, rows = self.snapshot()
        self.assertIn("Snapshot: " + os.path.realpath(self.path("s.db")), heading)
        self.assertIn("Compared: rows", heading)
        self.assertCountEqual(rows, [['"main"."t"', 2500], ['"main"."T\'é"', 1]])

    def test_a_snapshot_is_a_database(self):
        self.snapshot()
        self.assertEqual(self.sql("s.db", "SELECT count(*) FROM t"), [[2500]])

    def test_an_existing_file_is_kept(self):
        with open(self.path("s.db"), "w") as file:
            file.write("mine")
        self.assertIn("is there already", self.error("snapshot", "a.db", "s.db"))
        with open(self.path("s.db")) as file:
            self.assertEqual(file.read(), "mine")

    def test_restore_takes_a_snapshot_too(self):
        self.snapshot()
        rows = self.run_host("--format", "json", "restore", "b.db", "s.db")
        self.assertEqual(rows.returncode, 0, rows.stderr.decode())
        self.assertCountEqual(json.loads(rows.stdout)["rows"],
                              [['"main"."t"', 2500, 2500, "same"], ['"main"."T\'é"', 1, 1, "same"]])
        self.assertEqual(self.sql("b.db", "SELECT count(*) FROM t"), [[2500]])

    def test_a_damaged_snapshot_is_refused(self):
        self.snapshot()
        with open(self.path("s.db"), "r+b") as file:
            file.truncate(1000)
        self.assertIn("is damaged", self.error("restore", "b.db", "s.db"))
        self.assertFalse(os.path.exists(self.path("b.db")))


class VerifyTest(HostCase):
    def setUp(self):
        super().setUp()
        os.mkdir(self.path("b"))
        self.output("create", "a.db")

    def backup_folder(self):
        return self.path(os.path.join("b", os.listdir(self.path("b"))[0]))

    def test_a_backup_that_restores_everything_is_verified(self):
        self.execute("a.db", "CREATE TABLE t AS SELECT 1 AS i")
        done = self.run_host("backup", "a.db", "b", "--verify")
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        self.assertEqual(done.stderr.decode(), "Verified: the backup restores everything.\n")

    def test_what_a_backup_loses_is_listed_and_gives_status_1(self):
        self.execute("a.db", "CREATE TABLE t AS SELECT 1 AS i; COMMENT ON TABLE t IS 'lost'")
        self.assertIn("table main.t: comment is 'lost' in the database, nothing in the backup",
                      self.error("backup", "a.db", "b", "--verify"))

    def test_an_incomplete_backup_is_told_by_its_manifest(self):
        self.execute("a.db", "CREATE TABLE t AS SELECT 1 AS i")
        self.output("backup", "a.db", "b")
        folder = self.backup_folder()
        with open(os.path.join(folder, "manifest.json")) as file:
            self.assertEqual([table["rows"] for table in json.load(file)["tables"]], [1])
        os.remove(os.path.join(folder, "t.parquet"))
        self.assertIn("The backup is incomplete or damaged", self.error("restore", "c.db", folder))
        self.assertFalse(os.path.exists(self.path("c.db")))


if __name__ == "__main__":
    unittest.main()
