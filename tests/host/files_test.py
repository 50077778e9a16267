"""`mduckdb-host version`, `probe`, `create`, and the help of every command."""

import os
import re
import unittest

from host_case import HostCase

COMMANDS = ("call", "version", "probe", "create", "sql", "backup", "restore", "shell")


class FilesTest(HostCase):
    def test_version_names_duckdbs(self):
        self.assertRegex(self.output("version"), r"mduckdb-host \d+\.\d+\.\d+\nmodule +mduckdb_casts\nDuckDB +v1\.\d")

    def test_probe_tells_databases_from_other_files(self):
        self.output("create", "a.db")
        for name, content in (("empty", ""), ("text", "no database at all")):
            with open(self.path(name), "w") as file:
                file.write(content)
        done = self.run_host("--format", "csv", "probe", "a.db", "empty", "text", "missing")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.decode().splitlines()[1:],
                         ["a.db,true", "empty,true", "text,false", "missing,false"])
        self.assertEqual(self.run_host("probe", "a.db").returncode, 0)

    def test_create_takes_block_size_and_storage_version(self):
        self.output("create", "a.db", "--block-size", "16384", "--storage-version", "v1.2.0")
        self.assertEqual(self.sql("a.db", "SELECT block_size FROM pragma_database_size()"), [[16384]])
        self.assertEqual(self.sql("a.db", "SELECT tags['storage_version'] LIKE 'v1.2%' FROM duckdb_databases() "
                                  "WHERE database_name = 'a'"), [[True]])

    def test_create_refuses_what_duckdb_refuses(self):
        self.assertNotEqual(self.error("create", "a.db", "--block-size", "17"), "")
        self.assertNotEqual(self.error("create", "no/such/folder/a.db"), "")
        self.error("create", "a.db", "--block-size", "many", status=2)

    def test_create_makes_an_existing_file_anew(self):
        self.output("create", "a.db")
        self.execute("a.db", "CREATE TABLE t (i INT)")
        self.output("create", "a.db")
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM duckdb_tables()"), [[0]])

    def test_every_command_has_help_with_an_example(self):
        overview = self.output("--help")
        for command in COMMANDS:
            with self.subTest(command=command):
                self.assertIn(f"\n  {command} ", overview)
                text = self.output(command, "--help")
                self.assertRegex(text, r"Example:\n  mduckdb-host " + command)

    def test_man_page_and_completions_know_every_command_and_option(self):
        folder = os.path.join(os.path.dirname(__file__), "../../host")
        options = set(re.findall(r"(--[a-z-]+)", "".join(self.output(*words, "--help")
                                                         for words in [()] + [(c,) for c in COMMANDS])))
        for name in ("mduckdb-host.1", "completions/mduckdb-host.bash", "completions/_mduckdb-host",
                     "completions/mduckdb-host.fish"):
            with open(os.path.join(folder, name)) as file:
                text = file.read().replace("\\-", "-")
            for word in list(COMMANDS) + sorted(options):
                with self.subTest(file=name, word=word):
                    # fish writes long options without their dashes
                    self.assertTrue(word in text or "-l " + word[2:] in text)


if __name__ == "__main__":
    unittest.main()
