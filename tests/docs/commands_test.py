#!/usr/bin/env python3
"""Runs the commands that the pages show and compares their output (see pages.py).

  commands_test.py SOURCE_FOLDER BUILD_FOLDER whole|programs [unittest arguments]

`whole`: the README as on a machine where the tree was just unpacked: a copy of it, whose build uses the
objects of BUILD_FOLDER, a release build (reuse_object), links, installs and continues.
`programs`: the same without the lines that build. It is for builds of another kind (sanitizers), since the page names
the release; the programs of BUILD_FOLDER are placed where the page would build them.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import pages

ROOT = pathlib.Path()
BUILD = pathlib.Path()
BUILDS = True
HERE = pathlib.Path(__file__).resolve().parent
SECONDS = 300

# The lines that build.
BUILDING = re.compile(r"^(scripts/|cmake |gcc |g\+\+ ).*\n", re.MULTILINE)

# Commands that are not run as the page shows them: what runs instead, and why.
OTHERWISE = {
    "scripts/test\n": ("scripts/test --tests-regex '_exports$'\n",
                       "this is one of all the tests, and would run itself without an end"),
}

# Commands inside the text: what is run of them, with what it prints, or why they are not run.
INLINE = {
    "scripts/check-parquet FOLDER": ("scripts/check-parquet examples", "...\nno differences\n"),
    "scripts/package": ("scripts/package", "...\n....tar.gz\n....deb\n"),
    "mduckdb-host --help": ("mduckdb-host --help", "...\nSubcommands:\n...\n"),
    "mduckdb-host snapshot DATABASE FILE": (
        "mduckdb-host create kept.duckdb >/dev/null && mduckdb-host snapshot kept.duckdb copy.duckdb",
        "Snapshot: ...copy.duckdb\nSize: ...\nCompared: rows\n...\n"),
    "mduckdb-host restore DATABASE BACKUP": ("mduckdb-host restore again-kept.duckdb copy.duckdb",
                                             "Snapshot: ...copy.duckdb\n...\n0 rows\n"),
    "mduckdb-host backup --verify": ("mkdir verified && mduckdb-host backup --verify kept.duckdb verified",
                                     "...\nVerified: the backup restores everything.\n"),
    "mduckdb-host probe FILE": ("mduckdb-host --format csv probe kept.duckdb", "file,is_duckdb_file\nkept.duckdb,true\n"),
    'mduckdb-host sql FILE "SELECT 1"': ('mduckdb-host --format csv sql nothing.duckdb "SELECT 1"',
                                         "Cannot open nothing.duckdb: File does not exist\n"),
    "mduckdb-host create --storage-version": ("mduckdb-host create newer.duckdb --storage-version latest", "newer.duckdb\n"),
    "mduckdb-host COMMAND --help": ("mduckdb-host probe --help", "...\nExample:\n  mduckdb-host probe ...\n...\n"),
}
NOT_RUN = {
    "scripts/test --duckdb NAME": "builds and tests everything on another DuckDB",
    "scripts/test --duckdb NAME --preset asan": "builds and tests everything on another DuckDB",
    "scripts/setup --duckdb NAME": "downloads another DuckDB",
    **dict.fromkeys(("scripts/test --duckdb 1.5.5 --arch arm64", "scripts/package --duckdb 1.5.5 --arch arm64"),
                    "compiles everything for another processor"),
    **dict.fromkeys(("scripts/private-names", "scripts/private-names OLD NEW"), "is run by duckdb_names_test.py"),
    "scripts/bench": "measures for half an hour",
    "scripts/bench --peers": "measures for half an hour, and builds the other clients first",
    "scripts/bench --gate": "is a stage of .ci/run by itself",
    **dict.fromkeys(("scripts/prove", "scripts/prove --short", "scripts/prove --record", "scripts/prove files kills",
                     "scripts/prove stress --minutes 1"), "runs tests in their long forms, for minutes to hours"),
    "scripts/check-user": "needs root, and is a stage of .ci/run by itself",
    "scripts/check-package": "needs root, and a network the first time",
    "scripts/arrow-readers": "needs a network the first time; the test arrow_readers runs it",
    "scripts/test -R arrow_readers": "is one of the tests beside this one",
    "scripts/test --duckdb 1.5.5 --label remote": "builds on another DuckDB",
    "scripts/remote-servers": "needs a network the first time; the tests with remote files run it",
    ".ci/run": "is what runs this test",
    ".ci/run format tidy": "is what runs this test",
    "man mduckdb-host": "a machine may have no man; install_test looks for the page",
}
# Pages whose commands another test runs.
ELSEWHERE = {"remote.md": "needs other servers: tests/remote/page_test.py starts them"}


def copy_tree(folder):
    """Without generated files."""
    made = [line.strip("/") for line in (ROOT / ".gitignore").read_text().splitlines() if line.startswith("/")]
    ignore_at_top = shutil.ignore_patterns(".git", *made)
    shutil.copytree(ROOT, folder, ignore=lambda path, names: ignore_at_top(path, names)
                    if pathlib.Path(path) == ROOT else ())


class Reader:
    """A reader who types what a page shows: the folder and the exported variables persist from block to block."""

    def __init__(self, folder, environment):
        self.folder = folder
        self.environment = {**environment, "PWD": str(folder)}

    def type(self, commands):
        """What the commands print."""
        with tempfile.NamedTemporaryFile() as state:
            script = f"{commands}\nmduckdb_status=$?\nenv -0 >{state.name}\nexit $mduckdb_status"
            done = subprocess.run(["bash", "-c", script], cwd=self.folder, env=self.environment, text=True,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                  timeout=SECONDS, check=False)
            left = state.read().decode()
        if left:
            self.environment = dict(word.split("=", 1) for word in left.split("\0") if word)
            self.folder = self.environment["PWD"]
        return done.stdout


class Commands(unittest.TestCase):
    maxDiff = None
    ran = []

    def make_environment(self, home):
        home.mkdir()
        cache = os.environ.get("XDG_CACHE_HOME", pathlib.Path(os.environ.get("HOME", "/"), ".cache"))
        passed_on = [name for name in os.environ if name in ("PATH", "DuckDB_ROOT") or name.startswith("MDUCKDB_")
                     or name.endswith("SAN_OPTIONS")]
        return {**{name: os.environ[name] for name in passed_on}, "HOME": str(home), "LANG": "C.UTF-8", "TZ": "UTC",
                "XDG_CACHE_HOME": str(cache)}

    def check(self, reader, commands, expected):
        printed = reader.type(commands)
        if not pages.matches(expected, printed):
            self.assertEqual(expected, printed)

    def run_page(self, page, reader):
        for block, expected in pages.commands(page):
            commands = OTHERWISE.get(block.text, (block.text,))[0]
            if not BUILDS:
                commands = BUILDING.sub("", commands)
            with self.subTest(block=block.place):
                if commands:
                    self.check(reader, commands, expected)

    def open_tree(self, folder):
        """Somebody in a copy of the tree."""
        tree = folder / "mduckdb"
        copy_tree(tree)
        environment = self.make_environment(folder / "home")
        name = os.environ.get("MDUCKDB_DUCKDB", "")
        if name not in ("", "1.5"):
            # A build on another DuckDB has a folder of its own; the pages name that of the shipped one.
            (tree / "build").mkdir()
            (tree / "build/release").symlink_to(pathlib.Path(name, "release"))
        if BUILDS:
            environment.update(CMAKE_C_COMPILER_LAUNCHER=str(HERE / "reuse_object"),
                               CMAKE_CXX_COMPILER_LAUNCHER=str(HERE / "reuse_object"), MDUCKDB_BUILT=str(BUILD))
        else:
            build = tree / "build" / name
            build.mkdir(parents=True)
            (build / "release").symlink_to(BUILD)
            for program in ("sum-c", "sum-cpp", "host-c", "host-cpp"):
                (tree / program).symlink_to(BUILD / "bin" / program)
            (folder / "home/mduckdb/lib").mkdir(parents=True)
            (folder / "home/mduckdb/lib/mduckdb").symlink_to(BUILD / "lib")
        return Reader(tree, environment)

    def test_readme(self):
        with tempfile.TemporaryDirectory() as folder:
            reader = self.open_tree(pathlib.Path(folder))
            self.run_page(ROOT / "README.md", reader)
            self.run_inline(reader)

    def run_inline(self, reader):
        for shown, (command, expected) in INLINE.items():
            with self.subTest(command=shown):
                if BUILDS or not BUILDING.match(command + "\n"):
                    self.check(reader, command, expected)

    def test_other_pages(self):
        for page in pages.all_pages(ROOT)[1:]:
            if page.name in ELSEWHERE:
                continue
            with tempfile.TemporaryDirectory() as folder:
                here = pathlib.Path(folder, "here")
                here.mkdir()
                (here / "examples").symlink_to(ROOT / "examples")
                environment = self.make_environment(pathlib.Path(folder, "home"))
                environment["PATH"] = f"{BUILD}/bin:{environment['PATH']}"
                self.run_page(page, Reader(here, environment))

    def test_every_command_inside_the_text_is_known(self):
        shown = set()
        for page in pages.all_pages(ROOT):
            for span in re.findall(r"`([^`\n]+)`", pages.FENCE.sub("", page.read_text())):
                if re.match(r"(scripts/[\w-]+( |$)|\.ci/|man |mduckdb-host )", span):
                    shown.add(span)
        known = {command.strip() for command in OTHERWISE} | set(INLINE) | set(NOT_RUN)
        blocks = "".join(block.text for page in pages.all_pages(ROOT) for block, _ in pages.commands(page))
        named = {command.split()[0] for command in known}
        self.assertEqual({span for span in shown - known - named if span not in blocks}, set())
        self.assertEqual({command for command in known - shown if command not in blocks}, set())

    def test_the_gate_runs_the_tests_as_the_readme_does(self):
        self.assertIn("release) scripts/test ;;", (ROOT / ".ci/run").read_text())


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    BUILD = pathlib.Path(sys.argv[2]).resolve()
    BUILDS = {"whole": True, "programs": False}[sys.argv[3]]
    unittest.main(argv=[sys.argv[0]] + sys.argv[4:], verbosity=1)
