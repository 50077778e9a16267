"""Database files and backups of one version of DuckDB, opened and restored by another: the table of docs/operating.md, shown
with the mduckdb-host of each version. The builds are in build/PRESET and build/NAME/PRESET. The test exits with 77, skipped,
if those of the other versions are missing.

  versions_test.py [unittest arguments]
"""

import glob
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = pathlib.Path(os.environ["MDUCKDB_BUILD"])
SKIPPED = 77
DEFAULT_NAME = "1.5"
STORAGES = ("", "latest")
CONTENT = """
CREATE TYPE mood AS ENUM ('sad', 'happy');
CREATE TABLE t(i INTEGER PRIMARY KEY, b BIGINT, d DECIMAL(20, 3), f DOUBLE, s VARCHAR, day DATE, moment TIMESTAMP, z TIMESTAMPTZ,
               l INTEGER[], p STRUCT(a INTEGER, b VARCHAR), m mood, n UUID, x BLOB);
INSERT INTO t SELECT i, i * 10000000000, i / 8, i / 3, 'text ' || i, DATE '2000-01-01' + i::INTEGER,
                     TIMESTAMP '2000-01-01' + INTERVAL (i) SECOND, TIMESTAMPTZ '2000-01-01 00:00:00+00' + INTERVAL (i) HOUR,
                     [i, NULL], {'a': i, 'b': 'x'}, CASE WHEN i % 2 = 0 THEN 'sad' ELSE 'happy' END,
                     '00000000-0000-4000-8000-00000000000' || (i % 10), '\\xAB'::BLOB
              FROM range(5000) r(i);
INSERT INTO t(i) VALUES (-1);
CREATE VIEW v AS SELECT i, s FROM t WHERE i < 3;
CREATE INDEX by_text ON t(s);
CREATE SEQUENCE q START 7;
CREATE TABLE nothing AS SELECT NULL AS n
"""
# Not the text of a whole row: how DuckDB quotes texts inside of nested values depends on the version.
CONTENTS = """
SELECT count(*) AS rows, (SELECT string_agg(s, ',') FROM v) AS view,
       md5(string_agg(concat_ws('|', i, b, d, f, s, day, moment, z, l::VARCHAR, p.a, p.b, m, n, x), ',' ORDER BY i)) AS texts
FROM t
"""
# What a version says of a file that it cannot read.
REFUSAL = r"Trying to read a database file with version number \d+, but we can only read versions between \d+ and \d+\."


def hosts():
    """Version of DuckDB -> the program of its build."""
    found = {}
    for pin in sorted((ROOT / "scripts").glob("duckdb-*.pin")):
        name = pin.stem.partition("-")[2]
        version = re.search(r"^DUCKDB_VERSION=(.*)$", pin.read_text(), re.MULTILINE).group(1)
        found[version] = ROOT / "build" / ("" if name == DEFAULT_NAME else name) / BUILD.name / "bin/mduckdb-host"
    return found


HOSTS = hosts()


class Versions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="mduckdb-host-"))
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)

    def run_host(self, version, *arguments):
        return subprocess.run([HOSTS[version], *arguments], capture_output=True, text=True, cwd=self.folder, timeout=60,
                              stdin=subprocess.DEVNULL, check=False)

    def succeed(self, version, *arguments):
        done = self.run_host(version, *arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""), f"{version}: {arguments}")
        return done.stdout

    def write(self, version, storage):
        """A database file, a backup of it, and what it contains."""
        file = f"{version}{storage}.duckdb"
        backups = self.folder / f"{version}{storage}.backups"
        backups.mkdir()
        self.succeed(version, "create", file, *(["--storage-version", storage] if storage else []))
        self.succeed(version, "sql", file, CONTENT)
        self.succeed(version, "backup", file, backups)
        (backup,) = glob.glob(f"{backups}/*")
        return file, backup, self.contents(version, file)

    def contents(self, version, file):
        return self.succeed(version, "--format", "csv", "sql", file, CONTENTS)

    def outcome_of_file(self, reader, file, contents):
        copy = f"read-by-{reader}-{file}"
        shutil.copy(self.folder / file, self.folder / copy)
        done = self.run_host(reader, "--format", "csv", "sql", copy, CONTENTS)
        if done.returncode == 0:
            self.assertEqual(done.stdout, contents)
            self.succeed(reader, "sql", copy, "INSERT INTO t(i) VALUES (-2); CHECKPOINT")
            return "opens"
        self.assertRegex(done.stderr, REFUSAL)
        return "refused"

    def check_still_readable(self, reader, writer, file):
        """What another version has written to a file does not take it from the version that created it."""
        copy = f"read-by-{reader}-{file}"
        self.assertEqual(self.succeed(writer, "--format", "csv", "sql", copy, "SELECT count(*) FROM t"), "count_star()\n5002\n")

    def outcome_of_backup(self, reader, backup, contents):
        target = f"restored-by-{reader}-{pathlib.Path(backup).parent.name}.duckdb"
        self.assertIn("same", self.succeed(reader, "restore", target, backup))
        self.assertEqual(self.contents(reader, target), contents)
        return "restores"

    def rows(self):
        for storage in STORAGES:
            for writer in HOSTS:
                file, backup, contents = self.write(writer, storage)
                outcomes = []
                for reader in HOSTS:
                    outcomes.append(self.outcome_of_file(reader, file, contents))
                    if outcomes[-1] == "opens":
                        self.check_still_readable(reader, writer, file)
                yield f"file of {writer}" + (f", storage version {storage}" if storage else ""), *outcomes
                if not storage:
                    yield f"backup of {writer}", *(self.outcome_of_backup(reader, backup, contents) for reader in HOSTS)

    def test_the_page_has_the_outcome_of_every_pair(self):
        rows = [f"| | {' | '.join(HOSTS)} |", "|---" * (len(HOSTS) + 1) + "|"]
        rows += [f"| {' | '.join(row)} |" for row in sorted(self.rows())]
        table = "\n".join(rows)
        self.assertTrue(table + "\n" in (ROOT / "docs/operating.md").read_text(), f"docs/operating.md lacks this table:\n{table}")


if __name__ == "__main__":
    absent = [f"{version} ({host})" for version, host in HOSTS.items() if not host.exists()]
    if absent:
        print("skipped: not built on DuckDB " + ", ".join(absent))
        sys.exit(SKIPPED)
    unittest.main()
