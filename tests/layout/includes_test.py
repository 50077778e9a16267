#!/usr/bin/env python3
"""The tree keeps the rules of includes.py, and each rule finds what it is for, in small trees that break it.

  includes_test.py SOURCE_FOLDER [BUILD_FOLDER [unittest arguments]]
"""

import pathlib
import sys
import tempfile
import unittest

import includes

ROOT = pathlib.Path()
# A tree that breaks no rule.
CLEAN = {
    "mshared/include/nbx/string.h": "#include <string>\n",
    "mshared/src/text.h": '#include "nbx/string.h"\n',
    "mshared/src/text.cpp": '#include "text.h"\n',
    "src/base/errors.h": '#include "nbx/string.h"\n',
    "src/base/errors.cpp": '#include "base/errors.h"\n#include <vector>\n',
    "src/values/kinds.h": '#include <duckdb.h>\n#include "base/errors.h"\n',
    "src/values/kinds.cpp": '#include "values/kinds.h"\n#include "nbx/string.h"\n',
    "src/values/kinds_test.cpp": '#include "values/kinds.h"\n#include <gtest/gtest.h>\n#include "support/samples.h"\n',
    "host/text/text.h": '#include "nbx/string.h"\n',
    "host/main.cpp": '#include "text/text.h"\n',
}


class Tree(unittest.TestCase):
    def findings(self, changes, *rules):
        """What the rules find in the clean tree with the changes: a file name and its text each."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in {**CLEAN, **changes}.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text)
            return includes.findings(root, rules or includes.RULES)


class Rules(Tree):
    def test_a_clean_tree_has_no_findings(self):
        self.assertEqual(self.findings({}), [])

    def test_an_include_that_climbs_is_found(self):
        self.assertEqual(self.findings({"src/values/text.cpp": '\n#include "../base/errors.h"\n'}),
                         ["src/values/text.cpp:2: '../base/errors.h' climbs; name the room instead"])
        self.assertEqual(len(self.findings({"src/values/x_test.cpp": '#include "base/../base/errors.h"\n'})), 1)

    def test_two_dots_in_a_name_do_not_climb(self):
        self.assertEqual(self.findings({"src/base/a..b.h": "", "src/base/text.cpp": '#include "base/a..b.h"\n'}), [])

    def test_an_include_without_its_room_is_found(self):
        self.assertEqual(self.findings({"src/values/kinds.cpp": '#include "kinds.h"\n'}),
                         ["src/values/kinds.cpp:1: 'kinds.h' does not name its room"])
        self.assertEqual(len(self.findings({"host/text/text.cpp": '#  include "text.h"\n'})), 1)
        self.assertEqual(len(self.findings({"mshared/include/nbx/array.h": '#include "string.h"\n'})), 1)
        self.assertEqual(len(self.findings({"src/values/x_test.cpp": '#include "kinds.h"\n'})), 1)

    def test_a_room_in_angle_brackets_is_found(self):
        self.assertEqual(self.findings({"src/values/kinds.cpp": "#include <values/kinds.h>\n"}),
                         ["src/values/kinds.cpp:1: <values/kinds.h> is the project's own and belongs in quotes"])

    def test_a_header_of_no_room_is_found(self):
        self.assertEqual(self.findings({"src/values/kinds.cpp": '#include "elsewhere/kinds.h"\n'}),
                         ["src/values/kinds.cpp:1: 'elsewhere/kinds.h' is in no room"])

    def test_a_circle_between_rooms_is_found(self):
        changes = {"src/base/text.cpp": '#include "values/kinds.h"\n'}
        self.assertEqual(self.findings(changes), ["rooms in a circle: src/base, src/values"])

    def test_a_circle_through_three_rooms_is_found(self):
        changes = {"src/objects/database.h": '#include "values/kinds.h"\n',
                   "src/base/text.cpp": '#include "objects/database.h"\n'}
        self.assertEqual(self.findings(changes), ["rooms in a circle: src/base, src/objects, src/values"])

    def test_a_test_creates_no_circle_of_rooms(self):
        self.assertEqual(self.findings({"src/base/errors_test.cpp": '#include "values/kinds.h"\n'}), [])

    def test_a_circle_between_files_is_found(self):
        changes = {"src/base/a.h": '#include "base/b.h"\n', "src/base/b.h": '#include "base/a.h"\n'}
        self.assertEqual(self.findings(changes), ["files in a circle: src/base/a, src/base/b"])

    def test_a_circle_through_a_source_is_found(self):
        changes = {"src/base/a.h": '#include "base/b.h"\n', "src/base/b.cpp": '#include "base/a.h"\n'}
        self.assertEqual(self.findings({**changes, "src/base/b.h": ""}), ["files in a circle: src/base/a, src/base/b"])
        mshared = {"mshared/src/a.h": '#include "b.h"\n', "mshared/src/b.cpp": '#include "a.h"\n', "mshared/src/b.h": ""}
        self.assertEqual(self.findings(mshared), ["files in a circle: mshared/src/a, mshared/src/b"])

    def test_a_header_and_its_source_are_not_a_circle(self):
        changes = {"src/base/a.h": "", "src/base/a.cpp": '#include "base/a.h"\n#include "base/b.h"\n',
                   "src/base/b.h": '#include "base/errors.h"\n'}
        self.assertEqual(self.findings(changes), [])

    def test_test_support_in_a_product_source_is_found(self):
        for name in ("support/samples.h", "gtest/gtest.h", "tests/support/samples.h", "gmock/gmock.h"):
            with self.subTest(name=name):
                found = self.findings({"src/values/samples.h": f"#include <{name}>\n"})
                self.assertEqual(found, [f"src/values/samples.h:1: '{name}' belongs to the tests"])

    def test_each_rule_finds_its_own_case_and_no_other(self):
        cases = {
            includes.climbing: {"src/values/a.cpp": '#include "../base/errors.h"\n'},
            includes.nameless: {"src/values/kinds.cpp": '#include "kinds.h"\n'},
            includes.test_support: {"src/values/a.cpp": "#include <gtest/gtest.h>\n"},
            includes.room_circles: {"src/base/text.cpp": '#include "values/kinds.h"\n'},
            includes.file_circles: {"src/base/a.h": '#include "base/b.h"\n', "src/base/b.h": '#include "base/a.h"\n'},
        }
        self.assertEqual(set(cases), set(includes.RULES))
        for case in cases:
            for rule in includes.RULES:
                with self.subTest(case=case.__name__, rule=rule.__name__):
                    self.assertEqual(len(self.findings(cases[case], rule)), 1 if rule is case else 0)


class TheTree(unittest.TestCase):
    def test_the_sources_keep_the_rules(self):
        # Without this, the test would pass if no file was read.
        self.assertGreater(len(includes.read(ROOT)), 500)
        self.assertEqual(includes.findings(ROOT), [])


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:], verbosity=1)
