#!/usr/bin/env python3
"""Runs what the pages show of a terminal, and compares (see pages.py).

  console_test.py SOURCE_FOLDER BUILD_BIN_FOLDER [unittest arguments]
"""

import os
import pathlib
import re
import shlex
import shutil
import sys
import tempfile
import time
import typing
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "host"))
import pages  # noqa: E402
import screen  # noqa: E402
from pseudo_terminal import Terminal  # noqa: E402

ROOT = pathlib.Path()
BIN = pathlib.Path()
LINES = 32
COLUMNS = 80
SECONDS = 60
PROMPT = re.compile(r"(\w+>| *\.\.\.>)( .*)?")
KEYS = {"Ctrl-C": "\x03", "Up": "\x1b[A"}


class Session:
    """The terminals of one page, one after the other."""

    def __init__(self, folder, environment):
        self.folder = folder
        self.environment = environment
        self.terminal = None
        self.screen = None
        self.is_over = True

    def start(self, command):
        if self.terminal is not None:
            self.wait_for_end()
            self.close()
        self.terminal = Terminal(command, self.folder, self.environment, LINES, COLUMNS)
        self.screen = screen.Screen(COLUMNS)
        self.is_over = False

    def close(self):
        if self.terminal is not None:
            self.terminal.kill()
            self.terminal = None

    def wait_for_end(self):
        end = time.monotonic() + SECONDS
        while not self.is_over:
            if time.monotonic() > end:
                raise AssertionError("the program of the block before was left running")
            self.read(end - time.monotonic())

    def read(self, seconds):
        self.is_over = not self.terminal.read(seconds) or self.is_over
        self.screen.write(self.terminal.text)
        self.terminal.text = ""

    def wait_for(self, first, expected):
        """Reads until the screen shows the lines from `first` on; returns what it shows at the end."""
        end = time.monotonic() + SECONDS
        while True:
            shown = "\n".join(self.screen.text(first)).rstrip() + "\n"
            if pages.matches(expected, shown) or self.is_over or time.monotonic() > end:
                return shown
            self.read(end - time.monotonic())


class Step(typing.NamedTuple):
    """Keys, and what the block shows before they are pressed; None: that doesn't matter."""

    shown: typing.Optional[str]
    keys: str


def steps(block, lines):
    """What is typed into a block, in its order."""
    options = dict(word.split("=") for word in block.info[1:])
    index = 0
    if "press" in options:
        yield Step(None, "".join(KEYS[key] for key in options["press"].split("+")))
        index = 1
    while index < len(lines):
        prompt = PROMPT.fullmatch(lines[index])
        if prompt is None or prompt.group(2) is None:
            index += 1
            continue
        typed = prompt.group(2)[1:]
        count = 1
        if "paste" in options and index == 0:
            count = int(options["paste"])
            typed = "\x1b[200~" + "\n".join([typed] + lines[1:count]) + "\x1b[201~"
        yield Step("\n".join(lines[:index] + [prompt.group(1)]) + "\n", typed + "\n")
        index += count


class Console(unittest.TestCase):
    maxDiff = None

    def check(self, session, first, expected):
        shown = session.wait_for(first, expected)
        if not pages.matches(expected, shown):
            self.assertEqual(expected, shown)

    def run_block(self, session, block):
        lines = block.text.splitlines()
        if lines[0].startswith("$ "):
            command = shlex.split(lines.pop(0)[2:])
            command[0] = shutil.which(command[0], path=session.environment["PATH"])
            session.start(command)
        first = session.screen.row
        for step in steps(block, lines):
            if step.shown is not None:
                self.check(session, first, step.shown)
            session.terminal.send(step.keys)
        self.check(session, first, "\n".join(lines) + "\n")

    def run_page(self, page):
        found = [block for block in pages.blocks(page) if block.kind == "console"]
        with tempfile.TemporaryDirectory() as folder:
            os.symlink(ROOT / "examples", pathlib.Path(folder, "examples"))
            environment = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}", "HOME": folder, "LANG": "C.UTF-8",
                           "TZ": "UTC", "PAGER": "cat"}
            session = Session(folder, environment)
            try:
                for block in found:
                    with self.subTest(block=block.place):
                        self.run_block(session, block)
            finally:
                session.close()
        return len(found)

    def test_terminals_show_what_the_pages_show(self):
        counts = {page.name: self.run_page(page) for page in pages.all_pages(ROOT)}
        self.assertGreater(counts["terminal.md"], 5)


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    BIN = pathlib.Path(sys.argv[2]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:], verbosity=1)
