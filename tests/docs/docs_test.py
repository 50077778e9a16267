#!/usr/bin/env python3
"""Checks README.md and docs/*.md against the tree and the build.

Conventions of the pages:
  - A ```sh block that is followed by a ```text block, with nothing but blank lines between, is run by bash in a
    scratch folder that the blocks of one page share, in their order. What it prints on both streams must be the text
    block. A line `...` in the text stands for any lines, `...` inside a line for any text. mduckdb-host and the examples are in PATH, the folder
    `examples` is there.
  - A ```sh block without a text block builds or installs; it is not run, but the files of this tree and the presets
    that it names must be there.
  - A ```c or ```cpp block names a file and a region in its first line, as ```c examples/host-c/host.c load; it must be
    the lines between `docs: load` and `docs: end` in that file.
  - A block without a word after its fence (a picture, a capture of a terminal) is not looked at.

  docs_test.py SOURCE_FOLDER BUILD_BIN_FOLDER [unittest arguments]
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import textwrap
import unittest

ROOT = pathlib.Path()
BIN = pathlib.Path()

FENCE = re.compile(r"^```(.*)\n((?:.*\n)*?)```$", re.MULTILINE)
# A string literal, or a character literal, which may be a quote.
STRING = re.compile(r'"((?:[^"\\\n]|\\.)*)"|\'(?:[^\'\\\n]|\\.)\'')


def pages():
    return [ROOT / "README.md"] + sorted((ROOT / "docs").glob("*.md"))


def blocks(page):
    """(info, text, whether the next block follows at once) of each code block."""
    text = page.read_text()
    found = list(FENCE.finditer(text))
    for block, following in zip(found, found[1:] + [None]):
        is_followed = following is not None and not text[block.end():following.start()].strip()
        yield block.group(1).strip(), block.group(2), is_followed


def runs(page):
    """(command, expected output) of each block that is run."""
    found = list(blocks(page))
    for (info, text, is_followed), (next_info, output, _) in zip(found, found[1:]):
        if info == "sh" and is_followed and next_info == "text":
            yield text, output


def matches(expected, actual):
    pattern = "".join(r"(?:.*\n)*" if line == "..." else re.escape(line).replace(r"\.\.\.", ".*") + "\n" for line in expected.splitlines())
    return re.fullmatch(pattern, actual) is not None


class Commands(unittest.TestCase):
    maxDiff = None

    def run_page(self, page):
        with tempfile.TemporaryDirectory() as folder:
            os.symlink(ROOT / "examples", pathlib.Path(folder, "examples"))
            environment = {"PATH": f"{BIN}:/usr/bin:/bin", "HOME": folder, "LANG": "C.UTF-8", "TZ": "UTC"}
            for variable in ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
                if variable in os.environ:
                    environment[variable] = os.environ[variable]
            for command, expected in runs(page):
                with self.subTest(page=page.name, command=command):
                    done = subprocess.run(["bash", "-c", command], cwd=folder, env=environment, text=True,
                                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60, check=False)
                    if not matches(expected, done.stdout):
                        self.assertEqual(expected, done.stdout)

    def test_readme_has_commands_that_are_run(self):
        self.assertGreater(len(list(runs(ROOT / "README.md"))), 2)

    def test_output_of_the_commands_is_as_shown(self):
        for page in pages():
            self.run_page(page)

    def test_every_output_belongs_to_a_command(self):
        for page in pages():
            before = ("", "", False)
            for block in blocks(page):
                if block[0] == "text":
                    self.assertTrue(before[0] == "sh" and before[2], f"{page.name}: {block[1][:60]}")
                before = block

    def test_files_and_presets_of_other_commands_exist(self):
        presets = json.loads((ROOT / "CMakePresets.json").read_text())
        names = {preset["name"] for preset in presets["configurePresets"]}
        for page in pages():
            for info, text, _ in blocks(page):
                if info != "sh":
                    continue
                for path in re.findall(r"(?<![\w/.-])(?:scripts|\.ci|examples)/[\w./-]+", text):
                    self.assertTrue((ROOT / path).exists(), f"{page.name}: {path}")
                for preset in re.findall(r"--preset[ =](\w+)", text):
                    self.assertIn(preset, names, page.name)


class Code(unittest.TestCase):
    def region(self, file, name):
        lines = (ROOT / file).read_text().splitlines()
        marks = [i for i, line in enumerate(lines) if re.search(r"docs: " + name + r"\b", line)]
        self.assertEqual(len(marks), 1, f"{file} has no region {name}")
        end = next(i for i in range(marks[0], len(lines)) if "docs: end" in lines[i])
        return textwrap.dedent("\n".join(lines[marks[0] + 1:end]) + "\n")

    def test_code_is_that_of_the_files(self):
        count = 0
        for page in pages():
            for info, text, _ in blocks(page):
                words = info.split()
                if not words or words[0] not in ("c", "cpp"):
                    continue
                self.assertEqual(len(words), 3, f"{page.name}: a code block names no file and region: {text[:60]}")
                self.assertEqual(self.region(words[1], words[2]), text, f"{page.name}: {info}")
                count += 1
        self.assertGreater(count, 0)


class Names(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for page in pages():
            for target, anchor in re.findall(r"\]\(([^)#:]*)(#[^)]*)?\)", page.read_text()):
                file = page.parent / target if target else page
                self.assertTrue(file.exists(), f"{page.name}: {target}")
                if anchor:
                    headings = re.findall(r"^#+ (.*)$", file.read_text(), re.MULTILINE)
                    anchors = {"#" + re.sub(r"[^\w -]", "", h.lower()).replace(" ", "-") for h in headings}
                    self.assertIn(anchor, anchors, f"{page.name}: {target}{anchor}")

    def test_paths_exist(self):
        for page in pages():
            for path in re.findall(r"`((?:src|mshared|host|tests|bench|docs|scripts|examples|cmake|\.ci)/[\w./-]*)`",
                                   page.read_text()):
                where = [ROOT / path, ROOT / "src" / path]
                self.assertTrue(any(file.exists() for file in where), f"{page.name}: {path}")

    def test_headers_named_exist(self):
        for page in pages():
            for path in re.findall(r"`((?:nbx|mirona)/[\w./-]*\.h)`", page.read_text()):
                self.assertTrue((ROOT / "mshared/include" / path).exists(), f"{page.name}: {path}")

    def test_positions_of_the_function_table(self):
        header = (ROOT / "mshared/include/mirona/extension_api.h").read_text()
        table = header[header.index("typedef struct mirona_extension_api {"):header.index("} mirona_extension_api;")]
        positions = {}
        position = 0
        for size, name in re.findall(r"\(\*(?:reserved_\w+\[(\d+)\]|(\w+))\)\(", table):
            if name:
                positions[name] = position
            position += int(size) if size else 1
        contract = (ROOT / "docs/host-contract.md").read_text()
        shown = {name: int(number) for number, name in re.findall(r"^\| (\d+) \| `(\w+)` \|", contract, re.MULTILINE)}
        self.assertEqual(positions, shown)
        self.assertIn(f"#define MIRONA_EXTENSION_API_POSITIONS {position}", header)
        self.assertIn(f"all {position},", contract)


# Literals of the sources that are no messages: SQL, and texts of the registration.
NO_MESSAGE = re.compile(
    r"^\s*(SELECT|ATTACH|EXPORT|IMPORT|SET|LIMIT|WHERE|FROM)\b|^'? \( |^, (STORAGE_VERSION|BLOCK_SIZE)|^\) AS "
    r"|^uri\b|^Reads |^Returns |^(\\[tnr]| )*$|^no (bytes|value)$|^engine lock$|MDUCKDB_SELECT_REPORTED_TYPE"
    r"|^these DuckDB headers are not|\|\||&&")


class Errors(unittest.TestCase):
    def sources(self):
        for folder in ("src", "mshared/src", "mshared/include"):
            for file in sorted((ROOT / folder).rglob("*")):
                if file.suffix in (".cpp", ".h") and "test" not in file.stem and file.stem != "sample_values":
                    text = re.sub(r"/\*.*?\*/", "", file.read_text(), flags=re.DOTALL)
                    text = re.sub(r"^\s*#.*$|(?<!:)//[^\n]*", "", text, flags=re.MULTILINE)
                    text = re.sub(r"static_assert\([^;]*;", "", text)
                    yield file, re.sub(r'"\s*\n\s*"', "", text)

    def test_every_text_of_the_sources_stands_on_the_page(self):
        page = re.sub(r"\s+", " ", (ROOT / "docs/errors.md").read_text())
        count = 0
        for file, text in self.sources():
            for literal in STRING.findall(text):
                if " " not in literal.strip() or NO_MESSAGE.search(literal):
                    continue
                self.assertTrue(literal.strip() in page, f"{file.relative_to(ROOT)}: docs/errors.md lacks {literal}")
                count += 1
        self.assertGreater(count, 50)

    def test_every_code_of_the_sources_stands_on_the_page(self):
        page = (ROOT / "docs/errors.md").read_text().lower()
        count = 0
        for file, text in self.sources():
            for name, code in re.findall(r"constexpr uint32_t (k\w*Code) = (0x[0-9A-Fa-f]+)", text):
                self.assertIn(f"| {code.lower()} |", page, f"{file.relative_to(ROOT)}: {name}")
                count += 1
        self.assertGreater(count, 5)


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    BIN = pathlib.Path(sys.argv[2]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:], verbosity=1)
