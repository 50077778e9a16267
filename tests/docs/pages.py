"""The pages, README.md and docs/*.md, and the blocks of code in them.

The word after a fence names the kind of a block; a block without one is an error.
  sh        Commands. Run by bash in their order, all of a page in one folder and one environment. Their output on
            both streams is the ```text block that follows, with nothing but blank lines between; without one they
            print nothing. commands_test.py runs them.
  text      What the ```sh block before it prints. A line `...` stands for any lines, `...` inside a line for any text.
  console   What a terminal shows, compared in the same way. `$ COMMAND` starts a program on a new terminal, text
            after a prompt (`memory> `) is typed. A block that does not begin with `$` continues in the terminal of the
            block before, on the line of its cursor. `paste=N`: the first N lines are pasted as one. `press=KEY+KEY`: the
            keys are pressed first, and the first line is the cursor's line after them. console_test.py runs them.
  c, cpp    Code: ```c FILE REGION are the lines between `docs: REGION` and `docs: end` in that file, which is built and
            run. docs_test.py compares them.
  picture   A drawing. Only its names are checked.
"""

import os
import pathlib
import re
import typing

KINDS = ("sh", "text", "console", "c", "cpp", "picture")
SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"
FENCE = re.compile(r"^```(.*)\n((?:.*\n)*?)```$", re.MULTILINE)
# What another DuckDB shows where the pages have the text of the one that is shipped. docs/operating.md says why.
DIFFERENCES = {
    "2.0": (
        (r"^(CREATE TABLE .*\));;$", r"\1;"),
        (r"^(accounts\.duckdb|.*CREATE TABLE people AS .*)\nOK$", r"\1\n300 rows changed"),
        (r"^one statement in 5 pieces$", "one statement in 1 pieces"),
        (r"^\.\.\. s  (\(Ctrl-C interrupts\))$", r"... s, ...  \1"),
    ),
}


class Block(typing.NamedTuple):
    page: pathlib.Path
    line: int
    info: list  # the words behind the fence
    text: str
    follows: bool  # whether it directly follows the previous block

    @property
    def kind(self):
        return self.info[0] if self.info else ""

    @property
    def place(self):
        return f"{self.page.name}:{self.line}"


def all_pages(root):
    return [root / "README.md"] + sorted((root / "docs").glob("*.md"))


def duckdb_version(name):
    pin = (SCRIPTS / f"duckdb-{name}.pin").read_text()
    return re.search(r"^DUCKDB_VERSION=(.*)$", pin, re.MULTILINE).group(1)


def shown(text):
    """What a build shows where the page has the text, which states the version of the DuckDB that is shipped."""
    name = os.environ.get("MDUCKDB_DUCKDB") or "1.5"
    for pattern, replacement in DIFFERENCES.get(name, ()):
        text = re.sub(pattern, replacement, text, flags=re.MULTILINE)
    return text.replace("v" + duckdb_version("1.5"), "v" + duckdb_version(name))


def blocks(page):
    text = page.read_text()
    end = None
    for found in FENCE.finditer(text):
        follows = end is not None and not text[end:found.start()].strip()
        info = found.group(1).split()
        content = shown(found.group(2)) if info[:1] in (["text"], ["console"]) else found.group(2)
        yield Block(page, text.count("\n", 0, found.start()) + 1, info, content, follows)
        end = found.end()


def commands(page):
    """(block, what it prints) of each block of commands."""
    found = list(blocks(page))
    for block, following in zip(found, found[1:] + [None]):
        if block.kind == "sh":
            has_output = following is not None and following.kind == "text" and following.follows
            yield block, following.text if has_output else ""


def matches(expected, actual):
    """Whether the lines are those of the page, which may hold `...`."""
    pattern = "".join(r"(?:.*\n)*" if line == "..." else re.escape(line).replace(r"\.\.\.", ".*") + "\n"
                      for line in expected.splitlines())
    return re.fullmatch(pattern, actual) is not None
