#!/usr/bin/env python3
"""The build keeps the directions between rooms: for each pair of rooms, an include of the second in a source of the
first is compiled with the flags of the first, as compile_commands.json states them. It must compile exactly where
rooms.py allows it, and fail elsewhere because there is no such file.

  rooms_test.py SOURCE_FOLDER BUILD_FOLDER [unittest arguments]
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import unittest

import rooms

ROOT = pathlib.Path()
BUILD = pathlib.Path()
# GCC's words and clang's for a header that is not there.
NO_SUCH_FILE = re.compile(r"fatal error: (?:'(?P<clang>[^']+)' file not found|(?P<gcc>[^:]+): No such file or directory)")
DUCKDB_CPP = ("duckdb.hpp", "duckdb/main/capi/capi_internal.hpp")


def sees(command):
    """What a compiler call can include: the names in the build's include roots, and the other folders."""
    seen = set()
    for folder in re.findall(r"(?:-I|-isystem )(\S+)", shlex.join(command)):
        root = pathlib.Path(folder)
        seen |= {child.name for child in root.iterdir()} if root.is_relative_to(BUILD) else {folder}
    return seen


class Room:
    """A room with the compiler call of its sources, its headers, and the rooms that it may use."""

    def __init__(self, part, name, calls):
        self.part = part
        self.name = name
        self.folder = ROOT / part / name
        self.allowed = rooms.visible(rooms.PARTS[part], name)
        self.calls = calls
        # The call that sees most: test_no_source_sees_more_than_the_one_that_is_compiled compares the others with it.
        self.directory, self.command = max(calls.values(), key=lambda call: len(sees(call[1])))
        # The tests include the first of them: an include root shows the whole room or nothing of it.
        self.headers = [f"{name}/{header.name}" for header in sorted(self.folder.glob("*.h"))]

    def __str__(self):
        return f"{self.part}/{self.name}"

    def compile(self, text):
        """What the compiler says of such a source in the room's folder: (accepted, messages)."""
        call = [part for part in self.command if "ccache" not in part]
        output = call.index("-o")
        del call[output:output + 2]
        call = call[:call.index("-c")] + call[call.index("-c") + 2:]
        # Only the includes are read. The source comes from a pipe; -iquote is the folder in which a compiler looks first for a file of the room.
        call += ["-E", "-o", os.devnull, "-iquote", str(self.folder), "-x", "c++", "-"]
        run = subprocess.run(call, cwd=self.directory, input=text, capture_output=True, text=True,
                             env={**os.environ, "LC_ALL": "C"})
        return run.returncode == 0, run.stderr


def compiled_sources():
    """(source, folder of the call, the compiler call): also of the sources that a unity source includes."""
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        file = pathlib.Path(entry["directory"], entry["file"]).resolve()
        sources = [file]
        if file.parent.name == "Unity":
            sources = [pathlib.Path(path) for path in re.findall(r'^#include "(.+)"$', file.read_text(), re.MULTILINE)]
        for source in sources:
            yield source, entry["directory"], shlex.split(entry["command"])


def all_rooms():
    calls = {}
    for source, directory, command in compiled_sources():
        if source.is_relative_to(ROOT):
            parts = source.relative_to(ROOT).parts
            if len(parts) == 3 and parts[0] in rooms.PARTS and not source.stem.endswith("_test"):
                calls.setdefault(parts[:2], {})[source.name] = (directory, command)
    return [Room(part, name, found) for (part, name), found in sorted(calls.items())]


def including(headers):
    return "".join(f"#include {name}\n" if name.startswith("<") else f'#include "{name}"\n' for name in headers)


def missing_header(messages):
    found = NO_SUCH_FILE.search(messages)
    return found and (found["clang"] or found["gcc"])


class Rooms(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.rooms = all_rooms()
        cls.pool = concurrent.futures.ThreadPoolExecutor(os.cpu_count())

    def compiled(self, cases):
        """Each case, (room, headers), with what the compiler says."""
        return zip(cases, self.pool.map(lambda case: case[0].compile(including(case[1])), cases))

    def check_refused(self, cases):
        self.assertGreater(len(cases), 0)
        for (room, headers), (accepted, messages) in self.compiled(cases):
            with self.subTest(room=str(room), includes=headers[0]):
                self.assertFalse(accepted, f"{room} can include {headers[0]}")
                self.assertEqual(missing_header(messages), headers[0].strip("<>"), messages)

    def check_accepted(self, cases):
        self.assertGreater(len(cases), 0)
        for (room, headers), (accepted, messages) in self.compiled(cases):
            with self.subTest(room=str(room), includes=headers):
                self.assertTrue(accepted, messages)

    def test_every_room_of_the_table_is_built_and_no_other(self):
        table = {(part, name) for part, names in rooms.PARTS.items() for name in names}
        self.assertEqual({(room.part, room.name) for room in self.rooms}, table)

    def test_every_folder_of_sources_is_a_room(self):
        for part, names in rooms.PARTS.items():
            folders = {file.parent for ending in ("*.h", "*.cpp") for file in (ROOT / part).rglob(ending)}
            self.assertEqual({str(folder.relative_to(ROOT / part)) for folder in folders} - {"."}, set(names))

    def test_no_source_sees_more_than_the_one_that_is_compiled(self):
        for room in self.rooms:
            for source, (_, command) in room.calls.items():
                self.assertLessEqual(sees(command), sees(room.command), f"{room}/{source}")

    def test_a_room_cannot_include_a_room_that_it_may_not_use(self):
        pairs = [(room, other) for room in self.rooms for other in self.rooms
                 if (other.part != room.part or other.name not in room.allowed)]
        self.assertGreater(len(pairs), len(self.rooms))
        self.check_refused([(room, other.headers[:1]) for room, other in pairs])

    def test_a_room_can_include_each_room_that_it_may_use(self):
        self.check_accepted([(room, other.headers[:1]) for room in self.rooms for other in self.rooms
                             if other.part == room.part and other.name in room.allowed])

    def test_only_one_room_can_include_the_cpp_headers_of_duckdb(self):
        allowed = [room for room in self.rooms if room.part == "src" and room.name in rooms.ON_DUCKDB_CPP]
        others = [room for room in self.rooms if room not in allowed]
        self.check_refused([(room, (f"<{header}>",)) for room in others for header in DUCKDB_CPP])
        self.check_accepted([(room, tuple(f"<{header}>" for header in DUCKDB_CPP)) for room in allowed])

    def test_the_program_cannot_include_duckdb(self):
        module = [room for room in self.rooms if room.part == "src"]
        self.check_refused([(room, ("<duckdb.h>",)) for room in self.rooms if room.part == "host"])
        self.check_accepted([(room, ("<duckdb.h>",)) for room in module])

    def test_no_room_can_include_test_support_or_private_headers_of_the_foundation(self):
        headers = ["support/test_host.h", "value_core.h", "src/value_core.h"]
        self.assertTrue((ROOT / "tests/support/test_host.h").exists() and (ROOT / "mshared/src/value_core.h").exists())
        self.check_refused([(room, (header,)) for room in self.rooms for header in headers])

    def test_only_a_missing_header_counts_as_refused(self):
        room = self.rooms[0]
        accepted, messages = room.compile(including(["no_such_room/no_such_header.h"]))
        self.assertFalse(accepted)
        self.assertEqual(missing_header(messages), "no_such_room/no_such_header.h")
        accepted, messages = room.compile("#error refused for another reason\n")
        self.assertFalse(accepted)
        self.assertIn("refused for another reason", messages)
        self.assertIsNone(missing_header(messages))


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    BUILD = pathlib.Path(sys.argv[2]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:], verbosity=1)
