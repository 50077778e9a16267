"""A lake that several processes share: nothing is lost or doubled, also when one of them is killed."""

import os
import unittest

from lake_case import ATTACH, LakeCase, at_once

BATCHES = int(os.environ.get("MDUCKDB_LAKE_BATCHES", "6"))
ROWS = 1000


class LakeTest(LakeCase):
    def batches(self, shell):
        """How many rows and how many different ones each batch has, by writer and batch."""
        rows = shell.rows("SELECT writer, batch, count(*), count(DISTINCT i) FROM lake.t GROUP BY ALL ORDER BY ALL")
        return {(writer, int(batch)): (int(count), int(different)) for writer, batch, count, different in rows}

    def test_two_writers_at_once_lose_and_double_nothing(self):
        def write(name):
            with self.open(name) as shell:
                for batch in range(BATCHES):
                    self.assertEqual(self.insert(shell, name, batch, ROWS), f"{ROWS:,} rows changed")

        at_once(lambda: write("a"), lambda: write("b"))
        with self.open("reader") as reader:
            self.assertEqual(self.batches(reader),
                             {(name, batch): (ROWS, ROWS) for name in "ab" for batch in range(BATCHES)})

    def test_a_reader_keeps_its_snapshot_and_finds_old_ones(self):
        with self.open("writer") as writer, self.open("reader") as reader:
            self.insert(writer, "w", 0, ROWS)
            version = reader.rows("SELECT max(snapshot_id) FROM lake.snapshots()")[0][0]
            reader.run("BEGIN")
            self.assertEqual(reader.rows("SELECT count(*) FROM lake.t"), [[str(ROWS)]])
            self.insert(writer, "w", 1, ROWS)
            writer.run("DELETE FROM lake.t WHERE i >= 10")
            self.assertEqual(reader.rows("SELECT count(*) FROM lake.t"), [[str(ROWS)]])
            reader.run("COMMIT")
            self.assertEqual(reader.rows("SELECT count(*) FROM lake.t"), [["20"]])
            self.assertEqual(reader.rows(f"SELECT count(*) FROM lake.t AT (VERSION => {version})"), [[str(ROWS)]])

    def test_a_conflict_is_an_error_that_can_be_retried(self):
        with self.open("a") as a, self.open("b") as b:
            self.insert(a, "w", 0, ROWS)
            change = "UPDATE lake.t SET i = i + 5000 WHERE i < 10"
            for shell in (a, b):
                shell.run("BEGIN")
                self.assertEqual(shell.run(change), "10 rows changed")
            self.assertNotIn("Error", a.run("COMMIT"))
            refused = b.run("COMMIT")
            self.assertIn("conflict", refused)
            self.assertNotIn(self.catalog.password, refused)
            b.run("ROLLBACK")
            self.assertEqual(b.run("UPDATE lake.t SET i = i + 5000 WHERE i < 20"), "10 rows changed")
            self.assertEqual(b.rows("SELECT count(*), count(DISTINCT i), sum((i >= 5000)::INT) FROM lake.t"),
                             [[str(ROWS), str(ROWS), "20"]])

    def kill_at(self, method, path):
        """Kills a writer when its request comes, and looks at the lake. Returns whether the batch is there."""
        with self.open("victim") as victim, self.open("reader") as reader:
            self.insert(victim, "w", 0, ROWS)
            with self.store.front.faulty(victim.process.kill, method=method, path=path, times=1) as fault:
                with self.assertRaises(EOFError):
                    self.insert(victim, "w", 1, 50 * ROWS)
            self.assertTrue(fault.met.wait(60))
            found = self.batches(reader)
            self.assertEqual(found.pop(("w", 0)), (ROWS, ROWS))
            # The lake takes further rows at once.
            self.assertEqual(self.insert(reader, "r", 0, ROWS), f"{ROWS:,} rows changed")
            self.assertEqual(self.batches(reader)["r", 0], (ROWS, ROWS))
            self.assertIn(found, ({}, {("w", 1): (50 * ROWS, 50 * ROWS)}))

    def test_a_writer_killed_while_it_stores_its_file_leaves_no_row(self):
        self.kill_at("PUT", "/tables/")
        with self.open("reader") as reader:
            self.assertEqual(self.batches(reader).get(("w", 1)), None)
            # Its file is in the store, and known as one that belongs to nothing.
            orphans = reader.rows("CALL ducklake_delete_orphaned_files('lake', dry_run => true, cleanup_all => true)")
            self.assertEqual(len(orphans), 1)

    def test_writers_that_are_killed_at_any_moment_leave_whole_batches_only(self):
        acknowledged = set()

        def write(name, kill_after):
            with self.open(name) as shell:
                try:
                    for batch in range(BATCHES):
                        if batch == kill_after:
                            shell.send(f"INSERT INTO lake.t SELECT '{name}', {batch}, i FROM range({ROWS}) r(i)")
                            shell.process.kill()
                        if "rows changed" in self.insert(shell, name, batch, ROWS):
                            acknowledged.add((name, batch))
                except (EOFError, BrokenPipeError):
                    pass

        at_once(lambda: write("a", BATCHES // 2), lambda: write("b", None))
        with self.open("reader") as reader:
            found = self.batches(reader)
        self.assertEqual(set(found.values()), {(ROWS, ROWS)})
        self.assertLessEqual(acknowledged, set(found))
        self.assertEqual({key for key in found if key[0] == "b"}, {("b", batch) for batch in range(BATCHES)})

    def test_the_passwords_are_in_no_error(self):
        attach = ATTACH.replace("'catalog'", "'nothing'")
        error = self.error("sql", ":memory:", attach)
        self.assertIn("nothing", error)
        self.execute(":memory:", self.catalog.make_secret("PERSISTENT SECRET").replace(self.catalog.password, "wrong-word"))
        self.addCleanup(self.execute, ":memory:", self.catalog.make_secret("PERSISTENT SECRET"))
        error = self.error("sql", ":memory:", ATTACH)
        self.assertIn("password authentication failed", error)
        self.assertNotIn("wrong-word", error)


if __name__ == "__main__":
    unittest.main()
