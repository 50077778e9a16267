#!/usr/bin/env python3
"""Reads the includes of src/, host/ and mshared/ and reports those that break the layout.

  includes.py SOURCE_FOLDER      a line for each finding; status 1 when there is one

The rules:
  - An include never climbs ("../x.h").
  - An include of the project's own header is in quotes and names its room: "values/kinds.h", "nbx/string.h". Only the
    private headers of mshared/src, a single room, are included by their bare names.
  - Rooms do not use each other in a circle.
  - Files do not include each other in a circle. x.h and x.cpp count as one.
  - Product sources include nothing of the tests: only *_test.cpp does.
"""

import pathlib
import re
import sys
import typing

import rooms

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(["<])([^">]+)[">]')
ENDINGS = (".c", ".cpp", ".h")
# Rooms that belong to no part: the public headers of the foundation, by their first folder.
PUBLIC = {"nbx": "mshared/include/nbx", "mirona": "mshared/include/mirona"}
PRIVATE = "mshared/src"
# The first word of a header of the tests or of their framework.
TEST_WORDS = {"support", "tests", "gtest", "gmock"}


class Include(typing.NamedTuple):
    file: pathlib.PurePosixPath  # from the top of the tree
    line: int
    is_quoted: bool
    name: str

    @property
    def words(self):
        return self.name.split("/")

    @property
    def is_in_test(self):
        return self.file.stem.endswith("_test")


def read(root):
    found = []
    for top in (*rooms.PARTS, "mshared"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix in ENDINGS:
                for number, line in enumerate(path.read_text().splitlines(), 1):
                    if match := INCLUDE.match(line):
                        file = pathlib.PurePosixPath(path.relative_to(root))
                        found.append(Include(file, number, match[1] == '"', match[2]))
    return found


def room_of(file):
    """The room of a file of the tree: src/values/kinds.h is in src/values, mshared/include/nbx/mrsql/x.h in nbx."""
    for name, folder in PUBLIC.items():
        if file.is_relative_to(folder):
            return name
    return "/".join(file.parts[:2])


def target(root, include):
    """The file of the tree that is included, or None."""
    first = include.words[0]
    if first in PUBLIC:
        candidates = [pathlib.PurePosixPath("mshared/include", include.name)]
    elif len(include.words) == 1:
        candidates = [include.file.parent / include.name]
    else:
        candidates = [pathlib.PurePosixPath(part, include.name) for part in rooms.PARTS]
        # A room of the file's own part comes first, as its include root does.
        candidates.sort(key=lambda file: file.parts[0] != include.file.parts[0])
    return next((file for file in candidates if (root / file).is_file()), None)


def unit(file):
    return str(file.with_suffix(""))


def climbing(root, includes):
    for include in includes:
        if ".." in include.words:
            yield f"{include.file}:{include.line}: '{include.name}' climbs; name the room instead"


def nameless(root, includes):
    for include in includes:
        file = target(root, include)
        if include.is_quoted and len(include.words) == 1 and not include.file.is_relative_to(PRIVATE):
            yield f"{include.file}:{include.line}: '{include.name}' does not name its room"
        elif not include.is_quoted and file is not None and len(include.words) > 1:
            yield f"{include.file}:{include.line}: <{include.name}> is the project's own and belongs in quotes"
        elif include.is_quoted and file is None and not include.is_in_test and ".." not in include.words:
            yield f"{include.file}:{include.line}: '{include.name}' is in no room"


def test_support(root, includes):
    for include in includes:
        is_test = include.words[0] in TEST_WORDS or include.name.endswith("_test.h")
        if is_test and not include.is_in_test:
            yield f"{include.file}:{include.line}: '{include.name}' belongs to the tests"


def circles(edges):
    """The strongly connected components of more than one node, each as a sorted list (Tarjan's algorithm)."""
    order, low, stack, found = {}, {}, [], []

    def visit(node):
        order[node] = low[node] = len(order)
        stack.append(node)
        for other in sorted(edges.get(node, ())):
            if other not in order:
                visit(other)
            if other in stack:
                low[node] = min(low[node], low[other])
        if low[node] == order[node]:
            component = stack[stack.index(node):]
            del stack[stack.index(node):]
            if len(component) > 1:
                found.append(sorted(component))

    for node in sorted(edges):
        if node not in order:
            visit(node)
    return found


def product_edges(root, includes, name):
    """name(file) -> those it includes, without itself."""
    edges = {}
    for include in includes:
        file = target(root, include)
        if file is not None and not include.is_in_test and name(file) != name(include.file):
            edges.setdefault(name(include.file), set()).add(name(file))
    return edges


def room_circles(root, includes):
    for circle in circles(product_edges(root, includes, room_of)):
        yield f"rooms in a circle: {', '.join(circle)}"


def file_circles(root, includes):
    for circle in circles(product_edges(root, includes, unit)):
        yield f"files in a circle: {', '.join(circle)}"


RULES = (climbing, nameless, test_support, room_circles, file_circles)


def findings(root, rules=RULES):
    includes = read(root)
    return [finding for rule in rules for finding in rule(root, includes)]


if __name__ == "__main__":
    found = findings(pathlib.Path(sys.argv[1]))
    print("\n".join(found))
    sys.exit(1 if found else 0)
