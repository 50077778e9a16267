"""`mduckdb-host version`, `probe`, `create`, and the help of every command."""

import os
import re
import shutil
import subprocess
import unittest

from host_case import HOST, PLAIN_MODULE, SAMPLE_MODULE, HostCase
from pseudo_terminal import Terminal

SOURCES = os.path.abspath(os.path.join(os.path.dirname(__file__), "../../host"))
VERSION = os.environ["MDUCKDB_VERSION"]
COMMANDS = ("call", "version", "probe", "create", "sql", "backup", "restore", "snapshot", "shell")


class FilesTest(HostCase):
    def versions(self, *arguments, **more):
        rows = self.rows("version", *arguments, **more)
        self.assertEqual([row[0] for row in rows], ["program", "module", "foundation", "engine"])
        return [row[2] for row in rows]

    def patched(self, file, name):
        """A copy of a library that reports another version."""
        with open(file, "rb") as library:
            content = library.read()
        old, new = VERSION.encode() + b"\0", re.sub("[0-9]", "9", VERSION).encode() + b"\0"
        self.assertEqual(content.count(old), 1, file)
        with open(self.path(name), "wb") as library:
            library.write(content.replace(old, new))
        return self.path(name)

    def test_version_names_every_part(self):
        self.assertEqual([row[1] for row in self.rows("version")],
                         ["mduckdb-host", "mduckdb_casts", "mshared", "DuckDB"])
        duckdb = "v" + os.environ["MDUCKDB_DUCKDB_VERSION"]
        self.assertEqual(self.versions(), [VERSION, VERSION, VERSION, duckdb])
        self.assertEqual(self.versions("--module", "mduckdb"), [VERSION, VERSION, VERSION, duckdb])
        self.assertIn("│ foundation │ mshared       │ " + VERSION, self.output("version"))

    def test_version_comes_from_each_part_itself(self):
        other = re.sub("[0-9]", "9", VERSION)
        module = self.patched(PLAIN_MODULE, "other.so")
        self.assertEqual(self.versions("--module", module)[:3], [VERSION, other, VERSION])
        self.patched(os.environ["MDUCKDB_MSHARED"], "libmshared.so.0")
        environment = {**os.environ, "LD_LIBRARY_PATH": self.folder}
        self.assertEqual(self.versions(env=environment)[:3], [VERSION, VERSION, other])

    def test_a_module_may_have_neither_a_version_nor_databases(self):
        self.assertEqual(self.versions("--module", SAMPLE_MODULE), [VERSION, None, VERSION, None])

    def test_a_stripped_module_reports_its_version(self):
        stripped = self.path("stripped.so")
        subprocess.run(["strip", "--strip-all", "-o", stripped, PLAIN_MODULE], check=True)
        self.assertEqual(self.versions("--module", stripped)[1], VERSION)

    def test_probe_distinguishes_databases_from_other_files(self):
        self.output("create", "a.db")
        for name, content in (("empty", ""), ("text", "no database at all")):
            with open(self.path(name), "w") as file:
                file.write(content)
        done = self.run_host("--format", "csv", "probe", "a.db", "empty", "text", "missing")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.decode().splitlines()[1:],
                         ["a.db,true", "empty,true", "text,false", "missing,false"])
        self.assertEqual(self.run_host("probe", "a.db").returncode, 0)

    def test_closed_standard_streams_do_not_reach_the_database(self):
        """The database file would be the next one to get their descriptors, and the texts for them."""
        self.output("create", "a.db")
        self.execute("a.db", "CREATE TABLE t AS SELECT 1 AS i")
        for sql in "SELECT i FROM nowhere", "SELECT 'text' FROM range(1000)":
            done = self.run_host("sql", "a.db", sql, preexec_fn=lambda: os.closerange(0, 3))
            self.assertEqual(done.returncode, 1)
            self.assertEqual(self.sql("a.db", "SELECT * FROM t"), [[1]])

    def test_create_accepts_block_size_and_storage_version(self):
        self.output("create", "a.db", "--block-size", "16384", "--storage-version", "v1.2.0")
        self.assertEqual(self.sql("a.db", "SELECT block_size FROM pragma_database_size()"), [[16384]])
        self.assertEqual(self.sql("a.db", "SELECT tags['storage_version'] LIKE 'v1.2%' FROM duckdb_databases() "
                                  "WHERE database_name = 'a'"), [[True]])

    def test_create_refuses_what_duckdb_refuses(self):
        self.assertNotEqual(self.error("create", "a.db", "--block-size", "17"), "")
        self.assertNotEqual(self.error("create", "no/such/folder/a.db"), "")
        self.error("create", "a.db", "--block-size", "many", status=2)

    def test_create_recreates_an_existing_file(self):
        self.output("create", "a.db")
        self.execute("a.db", "CREATE TABLE t (i INT)")
        self.assertEqual(self.error("create", "a.db"), "'a.db' exists. Use --force to replace it.\n")
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM duckdb_tables()"), [[1]])
        self.output("create", "a.db", "--force")
        self.assertEqual(self.sql("a.db", "SELECT count(*) FROM duckdb_tables()"), [[0]])

    def test_create_replaces_databases_and_empty_files_only(self):
        with open(self.path("notes.txt"), "w") as file:
            file.write("Not a database at all.")
        self.assertIn("exists", self.error("create", "notes.txt"))
        self.assertIn("The file is not a DuckDB database.", self.error("create", "notes.txt", "--force"))
        with open(self.path("notes.txt")) as file:
            self.assertEqual(file.read(), "Not a database at all.")
        open(self.path("empty.db"), "w").close()
        self.assertEqual(self.error("create", "empty.db"), "'empty.db' exists. Use --force to replace it.\n")
        self.output("create", "empty.db", "--force")
        self.assertEqual(self.sql("empty.db", "SELECT count(*) FROM duckdb_tables()"), [[0]])

    def test_every_command_has_help_with_an_example(self):
        overview = self.output("--help")
        for command in COMMANDS:
            with self.subTest(command=command):
                self.assertIn(f"\n  {command} ", overview)
                text = self.output(command, "--help")
                self.assertRegex(text, r"Example:\n  mduckdb-host " + command)

    def examples(self):
        for command in COMMANDS:
            yield from re.search(r"Example:\n((?:  .*\n)+)", self.output(command, "--help")).group(1).splitlines()
        with open(os.path.join(SOURCES, "mduckdb-host.1")) as file:
            page = file.read().replace("\\-", "-")
        yield from re.search(r"\.SH EXAMPLES\n\.nf\n((?:.*\n)*)\.fi", page).group(1).splitlines()

    def test_every_example_of_the_help_and_the_man_page_works(self):
        self.execute(":memory:", "COPY (SELECT 1 AS id, 20 AS price) TO '%s'" % self.path("sales.parquet"))
        self.output("create", "sales.db")
        self.execute("sales.db", "CREATE TABLE orders AS SELECT 17 AS id")
        os.mkdir(self.path("backups"))
        environment = {**os.environ, "PATH": os.path.dirname(HOST) + ":/usr/bin:/bin"}
        count = 0
        for line in self.examples():
            with self.subTest(line=line):
                made = os.listdir(self.path("backups"))
                line = re.sub("/var/backups(/[0-9TZ-]+)?", lambda found: self.path("backups") + (
                    "/" + made[0] if found.group(1) else ""), line)
                done = subprocess.run(["bash", "-c", line], cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                                      capture_output=True, timeout=60)
                self.assertEqual((done.returncode, done.stderr.decode()), (0, ""))
                count += 1
        self.assertGreaterEqual(count, len(COMMANDS) + 3)

    def test_probe_accepts_every_file_name(self):
        names = ["call", "[b]", "-x", "--", "probe"]
        for name in names:
            self.output("create", "./" + name)
        for words in (["./call", "call", "[b]", "--", "-x", "--", "probe"], ["--", *names], ["call", "--", "-x"]):
            with self.subTest(words=words):
                files = [word for i, word in enumerate(words) if word != "--" or "--" in words[:i]]
                self.assertEqual(self.rows("probe", *words), [[name, True] for name in files])
        self.assertEqual(self.error("probe", status=2), "FILE is required. See mduckdb-host probe --help.\n")

    def complete(self, *words):
        """What the bash completion offers for the last of the words, which are as bash splits them."""
        script = ('. "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _mduckdb_host; printf "%s\\n" "${COMPREPLY[@]}"')
        done = subprocess.run(["bash", "-c", script, os.path.join(SOURCES, "completions/mduckdb-host.bash"),
                               "mduckdb-host", *words], cwd=self.folder, capture_output=True, text=True, check=True)
        self.assertEqual(done.stderr, "")
        return done.stdout.split()

    def test_bash_completes_commands_options_and_their_values(self):
        self.assertEqual(self.complete("s"), ["sql", "snapshot", "shell"])
        self.assertEqual(self.complete("--format", "js"), ["json", "jsonl"])
        self.assertEqual(self.complete("--format", "=", "js"), ["json", "jsonl"])
        self.assertEqual(self.complete("sql", "--cursor", "="), ["server", "client"])
        self.assertEqual(self.complete("create", "--f"), ["--format", "--force"])
        self.assertEqual(self.complete("restore", "--fo"), ["--format", "--force"])
        self.assertEqual(self.complete("backup", "--fo"), ["--format"])
        self.assertEqual(self.complete("--module", "=", "mduckdb_c"), ["mduckdb_casts"])
        self.assertEqual(self.complete("--module", "=", "mduckdb", "sql", "--par"), ["--param", "--params-file"])
        self.assertEqual(self.complete("--format", "=", "csv", "call", "parquet_c"), ["parquet_count"])
        self.output("create", "sales.db")
        self.assertEqual(self.complete("shell", "sa"), ["sales.db"])

    def complete_in_fish(self, line):
        completions = os.path.join(SOURCES, "completions/mduckdb-host.fish")
        done = subprocess.run(["fish", "--no-config", "-c", f"source '{completions}'; complete -C '{line}'"],
                              capture_output=True, text=True, cwd=self.folder, env={**os.environ, "HOME": self.folder})
        self.assertEqual(done.stderr, "")
        return [offer.split("\t")[0] for offer in done.stdout.splitlines()]

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish_completes_modules_and_the_values_of_options(self):
        self.assertIn("snapshot", self.complete_in_fish("mduckdb-host sn"))
        self.assertLessEqual({"mduckdb", "mduckdb_casts"}, set(self.complete_in_fish("mduckdb-host --module ")))
        self.assertEqual(self.complete_in_fish("mduckdb-host --module=mduckdb_"), ["--module=mduckdb_casts"])
        self.assertEqual(self.complete_in_fish("mduckdb-host --format=js"), ["--format=json", "--format=jsonl"])
        self.assertEqual(self.complete_in_fish("mduckdb-host call parquet_c"), ["parquet_count"])

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh_completes_modules_and_the_values_of_options(self):
        # The folder comes with the environment: a line editor without a UTF-8 locale does not take every letter of its name.
        environment = {"PATH": os.environ["PATH"], "HOME": self.folder, "FPATH_FIRST": os.path.join(SOURCES, "completions")}
        setup = "PS1='ready: '; fpath=(\"$FPATH_FIRST\" $fpath); autoload -Uz compinit; compinit -u -D; echo be''gin\n"
        for line, completed in (("mduckdb-host sn", "apshot "), ("mduckdb-host --module=mduckdb_", "casts "),
                                ("mduckdb-host --format=ma", "rkdown "), ("mduckdb-host sql --cursor=c", "lient "),
                                ("mduckdb-host call parquet_c", "ount ")):
            with self.subTest(line=line):
                shell = Terminal(["zsh", "-f"], self.folder, environment, term="dumb")
                self.addCleanup(shell.kill)
                shell.send(setup)
                shell.expect("begin")
                shell.expect("ready: ")
                shell.send(line + "\t")
                shell.expect(line + completed)

    def test_man_page_and_completions_know_every_command_and_option(self):
        options = set(re.findall(r"(--[a-z-]+)", "".join(self.output(*words, "--help")
                                                         for words in [()] + [(c,) for c in COMMANDS])))
        for name in ("mduckdb-host.1", "completions/mduckdb-host.bash", "completions/_mduckdb-host",
                     "completions/mduckdb-host.fish"):
            with open(os.path.join(SOURCES, name)) as file:
                text = file.read().replace("\\-", "-")
            for word in list(COMMANDS) + sorted(options):
                with self.subTest(file=name, word=word):
                    # fish writes long options without their dashes
                    self.assertTrue(word in text or "-l " + word[2:] in text)


if __name__ == "__main__":
    unittest.main()
