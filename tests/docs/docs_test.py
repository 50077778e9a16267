#!/usr/bin/env python3
"""Checks README.md and docs/*.md against the sources: blocks of code, links, names, error texts. What the pages
show of running programs is checked by commands_test.py and console_test.py.

  docs_test.py SOURCE_FOLDER [unittest arguments]
"""

import pathlib
import re
import sys
import textwrap
import unittest

import pages

ROOT = pathlib.Path()
# A string literal, or a character literal, which may be a quote.
STRING = re.compile(r'"((?:[^"\\\n]|\\.)*)"|\'(?:[^\'\\\n]|\\.)\'')


def all_pages():
    return pages.all_pages(ROOT)


def all_blocks():
    return [block for page in all_pages() for block in pages.blocks(page)]


class Blocks(unittest.TestCase):
    def test_every_block_says_what_it_is(self):
        for block in all_blocks():
            self.assertIn(block.kind, pages.KINDS, f"{block.place}: a block without a word that a test knows")

    def test_every_fence_belongs_to_a_block(self):
        for page in all_pages():
            fences = re.findall(r"^[ \t>]*(?:```|~~~)", page.read_text(), re.MULTILINE)
            self.assertEqual(len(fences), 2 * len(list(pages.blocks(page))), page.name)

    def test_no_block_is_made_by_indentation(self):
        for page in all_pages():
            self.assertNotRegex(pages.FENCE.sub("", page.read_text()), r"(?m)^(?: {4}|\t)", page.name)

    def test_every_output_belongs_to_a_command(self):
        before = None
        for block in all_blocks():
            if block.kind == "text":
                self.assertTrue(block.follows and before.kind == "sh", block.place)
            before = block

    def test_no_output_is_left_out_entirely(self):
        for block in all_blocks():
            if block.kind in ("text", "console"):
                self.assertNotEqual(set(block.text.splitlines()), {"..."}, block.place)

    def test_what_another_duckdb_shows_is_on_a_page(self):
        shown = [found.group(2) for page in all_pages() for found in pages.FENCE.finditer(page.read_text())]
        for pattern, _ in [each for differences in pages.DIFFERENCES.values() for each in differences]:
            self.assertTrue(any(re.search(pattern, text, re.MULTILINE) for text in shown), pattern)

    def test_pictures_are_few(self):
        self.assertEqual([block.page.name for block in all_blocks() if block.kind == "picture"], ["README.md"] + ["architecture.md"] * 4 + ["host-contract.md", "remote.md"])


class Code(unittest.TestCase):
    def region(self, file, name):
        lines = (ROOT / file).read_text().splitlines()
        marks = [i for i, line in enumerate(lines) if re.search(r"docs: " + name + r"\b", line)]
        self.assertEqual(len(marks), 1, f"{file} has no region {name}")
        end = next(i for i in range(marks[0], len(lines)) if "docs: end" in lines[i])
        return textwrap.dedent("\n".join(lines[marks[0] + 1:end]) + "\n")

    def test_code_is_that_of_the_files(self):
        count = 0
        for block in all_blocks():
            if block.kind in ("c", "cpp"):
                self.assertEqual(len(block.info), 3, f"{block.place}: names no file and region")
                self.assertEqual(self.region(*block.info[1:]), block.text, block.place)
                count += 1
        self.assertGreater(count, 0)


class Names(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for page in all_pages():
            for target, anchor in re.findall(r"\]\(([^)#:]*)(#[^)]*)?\)", page.read_text()):
                file = page.parent / target if target else page
                self.assertTrue(file.exists(), f"{page.name}: {target}")
                if anchor:
                    headings = re.findall(r"^#+ (.*)$", file.read_text(), re.MULTILINE)
                    anchors = {"#" + re.sub(r"[^\w -]", "", h.lower()).replace(" ", "-") for h in headings}
                    self.assertIn(anchor, anchors, f"{page.name}: {target}{anchor}")

    def test_paths_exist(self):
        for page in all_pages():
            for path in re.findall(r"`((?:src|mshared|host|tests|bench|docs|scripts|examples|cmake|tools|\.ci)/[\w./-]*)`",
                                   page.read_text()):
                where = [ROOT / path, ROOT / "src" / path]
                self.assertTrue(any(file.exists() for file in where), f"{page.name}: {path}")

    def test_headers_named_exist(self):
        for page in all_pages():
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


# Literals of the sources that are not messages: SQL, and texts of the registration.
NO_MESSAGE = re.compile(
    r"^\s*(SELECT|ATTACH|EXPORT|IMPORT|SET|RESET|LIMIT|WHERE|FROM)\b|^'? \( |^, (STORAGE_VERSION|BLOCK_SIZE)|^\) AS "
    r"|^uri\b|^Reads |^Returns |^(\\[tnr]| )*$|^no (bytes|value)$|^engine lock$|MDUCKDB_SELECT_REPORTED_TYPE"
    r"|^these DuckDB headers are not|\|\||&&"
    # The queries of a comparison on DuckDB's catalog, and the JSON of a manifest.
    r"|^(BEGIN|CREATE) |^duckdb_\w+\(\) WHERE |::VARCHAR|^'[A-Z\w ]+'(, '[\w ]+')+$|unnest\(| UNION ALL SELECT |^ AS h FROM "
    r"|^constraint_name, |ROW_GROUP_SIZE|^ AND database_name = |\]\), '|^ \(i INTEGER\)$|^,?\\n +[{\]]|^, \\\"|snapshot guard ")


class Errors(unittest.TestCase):
    def sources(self):
        for folder in ("src", "mshared/src", "mshared/include"):
            for file in sorted((ROOT / folder).rglob("*")):
                if file.suffix in (".cpp", ".h") and "test" not in file.stem and file.stem != "sample_values":
                    text = re.sub(r"/\*.*?\*/", "", file.read_text(), flags=re.DOTALL)
                    text = re.sub(r"^\s*#.*$|(?<!:)//[^\n]*", "", text, flags=re.MULTILINE)
                    text = re.sub(r"static_assert\([^;]*;", "", text)
                    yield file, re.sub(r'"\s*\n\s*"', "", text)

    def test_every_text_of_the_sources_is_on_the_page(self):
        page = re.sub(r"\s+", " ", (ROOT / "docs/errors.md").read_text())
        count = 0
        for file, text in self.sources():
            for literal in STRING.findall(text):
                if " " not in literal.strip() or NO_MESSAGE.search(literal):
                    continue
                self.assertTrue(literal.strip() in page, f"{file.relative_to(ROOT)}: docs/errors.md lacks {literal}")
                count += 1
        self.assertGreater(count, 50)

    def test_every_code_of_the_sources_is_on_the_page(self):
        page = (ROOT / "docs/errors.md").read_text().lower()
        count = 0
        for file, text in self.sources():
            for name, code in re.findall(r"constexpr uint32_t (k\w*Code) = (0x[0-9A-Fa-f]+)", text):
                self.assertIn(f"| {code.lower()} |", page, f"{file.relative_to(ROOT)}: {name}")
                count += 1
        self.assertGreater(count, 5)


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[2:], verbosity=1)
