#!/usr/bin/env python3
"""docs/architecture.md names only what exists, answers its questions, and shows the rooms as they are.

  architecture_test.py SOURCE_FOLDER [unittest arguments]

Everything in backticks, and each name and path in a picture, is checked: a path must be a file or folder of the tree, a name (`Class`, `kConstant`, `Function`,
`Class::Member`) must be in the code of the sources, outside comments, and anything else must literally be a text of the
sources.
"""

import pathlib
import re
import sys
import unittest

import pages

ROOT = pathlib.Path()
TREE = ("src", "mshared", "host", "tests", "cmake", "docs", "examples", "scripts", "bench", "tools")
PATH = re.compile(r"(?:%s)/[\w./-]*" % "|".join(TREE))
NAME = re.compile(r"[A-Za-z_]\w*(?:::[A-Za-z_]\w*)*")
CAMEL = re.compile(r"\b(?:[A-Z][a-z0-9]+){2,}(?:::\w+)?\b")
INLINE = re.compile(r"`([^`\n]+)`")
COMMENT = re.compile(r"/\*.*?\*/|//[^\n]*", re.DOTALL)
# Names that the code has only as parts of others.
OUTSIDE = {"*_test.cpp", "CMakeLists.txt", "libduckdb", "libduckdb.so"}
QUESTIONS = (
    "DECIMAL become a double", "thread closes an engine", "missing file", "row limit", "errors become JSON",
    "dead child", "lock guards the connection", "host type becomes which DuckDB type", "huge pages", "new DuckDB type",
)


class Sources:
    """The code of the sources, and their words."""

    def __init__(self, root):
        self.root = root
        folders = [root / name for name in ("src", "mshared", "host")]
        self.texts = {file: COMMENT.sub("", file.read_text()) for folder in folders
                      for file in folder.rglob("*") if file.suffix in (".cpp", ".h") and "_test" not in file.stem}
        self.words = {file: set(re.findall(r"\w+", text)) for file, text in self.texts.items()}
        # The names of the tests and of the build: test programs, targets, rooms.
        others = [file for file in root.rglob("CMakeLists.txt") if "build" not in file.relative_to(root).parts]
        self.build = {word for file in others for word in re.findall(r"[\w-]+", file.read_text())}
        self.build |= {f"docs_{word}" for word in self.build}

    def has_name(self, name):
        parts = name.split("::")
        return any(words.issuperset(parts) for words in self.words.values())

    def has(self, text):
        if PATH.fullmatch(text):
            return (self.root / text).exists()
        if text in OUTSIDE or text in self.build:
            return True
        if NAME.fullmatch(text):
            return self.has_name(text)
        return any(text in code for code in self.texts.values())


def missing(sources, page_text):
    """What the page names and the sources lack."""
    prose = pages.FENCE.sub("", page_text)
    pictures = "".join(match[2] for match in pages.FENCE.finditer(page_text))
    named = set(INLINE.findall(prose)) | set(PATH.findall(page_text)) | set(CAMEL.findall(pictures))
    return sorted(text for text in named if not sources.has(text.removesuffix(".")))


class Architecture(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sources = Sources(ROOT)
        cls.page = (ROOT / "docs/architecture.md").read_text()

    def test_everything_that_the_page_names_exists(self):
        self.assertGreater(len(set(INLINE.findall(self.page))), 80)
        self.assertEqual(missing(self.sources, self.page), [])

    def test_invented_files_and_names_are_found(self):
        for invented in ("src/base/no_such_file.h", "src/no_such_room", "NoSuchClass", "kNoSuchConstant",
                         "DuckDBDatabase::NoSuchMember", "SELECT no_such_text", "File does not exists"):
            with self.subTest(invented=invented):
                self.assertEqual(missing(self.sources, f"One `DuckDBDatabase` and `{invented}` of `src/base`."), [invented])

    def test_a_name_that_only_a_comment_has_is_found(self):
        self.assertEqual(COMMENT.sub("", "a /* Gone\n Gone */ b // Gone\nc"), "a  b \nc")

    def test_paths_and_names_in_a_picture_are_checked(self):
        self.assertEqual(missing(self.sources, "```picture\n| src/attic | RunRows, NoSuchCall: a row |\n```\n"),
                         ["NoSuchCall", "src/attic"])

    def test_each_question_leads_to_its_answer_in_one_step(self):
        top, _, rest = self.page.partition("## Rooms")
        rows = [row for row in top.splitlines() if row.startswith("| ") and "](" in row]
        for question in QUESTIONS:
            with self.subTest(question=question):
                found = [row for row in rows if question in row.split("|")[1]]
                self.assertEqual(len(found), 1)
                for anchor in re.findall(r"\]\(#([\w-]+)\)", found[0]):
                    self.assertIn(anchor, [self.anchor(heading) for heading in re.findall(r"^## (.*)$", rest, re.MULTILINE)])

    @staticmethod
    def anchor(heading):
        return re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")

    def test_the_table_of_rooms_is_that_of_the_build(self):
        sys.path.insert(0, str(ROOT / "tests/layout"))
        import rooms
        shown = {name: set(re.findall(r"`(\w+)`", uses))
                 for name, uses in re.findall(r"^\| `src/(\w+)` \|[^|]*\|([^|]*)\|$", self.page, re.MULTILINE)}
        self.assertEqual(shown, {room: set(uses) for room, uses in rooms.SRC.items()})

    def test_every_file_of_the_sources_is_in_a_room_of_the_page(self):
        folders = {str(file.parent.relative_to(ROOT)) for part in ("src", "host") for file in (ROOT / part).glob("*/*.h")}
        self.assertGreater(len(folders), 10)
        self.assertGreaterEqual(set(INLINE.findall(self.page)), folders)


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[2:], verbosity=1)
