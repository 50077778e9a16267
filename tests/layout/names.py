#!/usr/bin/env python3
"""Reads the names of the tests and reports those that are not in the project's style.

  names.py SOURCE_FOLDER      a line for each finding; status 1 when there is one

A test's name is a sentence about what its subject does. In C++ the suite names the subject and the name is written
ReadsAJsonObject, with no underscore, which GoogleTest keeps for itself. In Python it is written
test_an_empty_file_has_no_rows. No two tests of a suite or class have the same name.
"""

import pathlib
import re
import sys

CPP = re.compile(r"^[ \t]*(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)", re.MULTILINE)
PYTHON = re.compile(r"^    def (test\w*)\(self\b|^class (\w+)", re.MULTILINE)
CPP_STYLE = re.compile(r"[A-Z][A-Za-z0-9]*[a-z][A-Za-z0-9]*")
SUITE_STYLE = re.compile(r"[A-Za-z][A-Za-z0-9]*")
PYTHON_STYLE = re.compile(r"test(_[a-z0-9]+)+")
FOLDERS = ("bench", "fuzz", "host", "mshared", "proof", "src", "tests")


def tests(path):
    """(line, suite or class, name) of each test of the file."""
    text = path.read_text()
    suite = ""
    for match in (CPP if path.suffix == ".cpp" else PYTHON).finditer(text):
        line = text.count("\n", 0, match.start() + len(match[0]) - len(match[0].lstrip())) + 1
        if path.suffix == ".cpp":
            yield line, match[1], match[2]
        elif match[2]:
            suite = match[2]
        else:
            yield line, suite, match[1]


def findings(root):
    found = []
    for path in sorted(path for folder in FOLDERS for path in (root / folder).rglob("*") if path.suffix in (".cpp", ".py")):
        seen = set()
        name_style = CPP_STYLE if path.suffix == ".cpp" else PYTHON_STYLE
        for line, suite, name in tests(path):
            place = f"{path.relative_to(root)}:{line}"
            if not name_style.fullmatch(name):
                found.append(f"{place}: '{name}' is not in the style of test names")
            if not SUITE_STYLE.fullmatch(suite):
                found.append(f"{place}: '{suite}' is not in the style of suite names")
            if (suite, name) in seen:
                found.append(f"{place}: '{suite}' has two tests '{name}'")
            seen.add((suite, name))
    return found


if __name__ == "__main__":
    found = findings(pathlib.Path(sys.argv[1]))
    print("\n".join(found))
    sys.exit(1 if found else 0)
