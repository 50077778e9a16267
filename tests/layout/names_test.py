#!/usr/bin/env python3
"""The tests keep the style of names.py, and names.py finds those that do not.

  names_test.py SOURCE_FOLDER [BUILD_FOLDER [unittest arguments]]
"""

import pathlib
import sys
import tempfile
import unittest

import names

ROOT = pathlib.Path()


class Names(unittest.TestCase):
    def findings(self, name, text):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, name)
            path.parent.mkdir(parents=True)
            path.write_text(text)
            return names.findings(pathlib.Path(folder))

    def test_the_style_has_no_findings(self):
        self.assertEqual(self.findings("src/x_test.cpp", "TEST(Json, ReadsAnObject) {\nTEST_F(xFile, IsRead) {\n"), [])
        self.assertEqual(self.findings("tests/x_test.py", "class A(B):\n    def test_reads_2_files(self):\n"), [])

    def test_underscores_and_small_letters_in_cpp_are_found(self):
        for name in ("reads_an_object", "Reads_An_Object", "readsAnObject", "READS"):
            with self.subTest(name=name):
                self.assertEqual(self.findings("src/x_test.cpp", f"\nTEST_P(Json, {name}) {{\n"),
                                 [f"src/x_test.cpp:2: '{name}' is not in the style of test names"])

    def test_a_suite_with_underscores_is_found(self):
        self.assertEqual(self.findings("src/x_test.cpp", "TEST(Json_Text, IsRead) {\n"),
                         ["src/x_test.cpp:1: 'Json_Text' is not in the style of suite names"])

    def test_capitals_and_names_of_one_word_in_python_are_found(self):
        for name in ("testReads", "test_ReadsFiles", "test"):
            with self.subTest(name=name):
                self.assertEqual(self.findings("host/x_test.py", f"class A(B):\n    def {name}(self):\n"),
                                 [f"host/x_test.py:2: '{name}' is not in the style of test names"])

    def test_two_tests_of_one_name_are_found(self):
        text = "class A(B):\n    def test_it(self):\n        pass\n    def test_it(self):\nclass C:\n    def test_it(self):\n"
        self.assertEqual(self.findings("bench/x_test.py", text), ["bench/x_test.py:4: 'A' has two tests 'test_it'"])

    def test_the_tree_keeps_the_style(self):
        count = sum(len(list(names.tests(path))) for path in ROOT.glob("src/*/*_test.cpp"))
        self.assertGreater(count, 150)
        self.assertEqual(names.findings(ROOT), [])


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:], verbosity=1)
