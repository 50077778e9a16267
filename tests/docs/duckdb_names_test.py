#!/usr/bin/env python3
"""docs/duckdb-names.md lists what scripts/private-names finds.

  duckdb_names_test.py SOURCE_FOLDER HEADERS used    names and headers that exist in one DuckDB
  duckdb_names_test.py SOURCE_FOLDER CACHE table     the table of two versions, whose headers are in the cache of the
                                                     scripts; 77 if they are not
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SKIPPED = 77
ROOT, PLACE, PART = pathlib.Path(), pathlib.Path(), ""
OLD, NEW = "1.5.6", "2.0.0"
# How C++ asks which DuckDB it is compiled with: by version, by header or by what a class has.
VERSION_TEST = re.compile(r"\b(?:MDUCKDB_)?DUCKDB_(?:(?:API|SOURCE)_)?(?:VERSION_)?(?:MAJOR|MINOR|PATCH|VERSION)\b|"
                          r"\b__has_include\b|\brequires\s*[({]")
# The second compares the loaded library with the headers.
ASKS = re.compile(r"src/(?:duckdb_internals/version_\w+\.h|base/library_version\.cpp)")
MAKE = f"scripts/private-names ~/.cache/mduckdb/duckdb-{OLD}/include ~/.cache/mduckdb/duckdb-{NEW}/include"


def private_names(*folders):
    return subprocess.run([sys.executable, "-B", ROOT / "scripts/private-names", *folders], capture_output=True, text=True,
                          check=False)


def used():
    return dict(line.split(": ") for line in private_names().stdout.splitlines())


def page_rows():
    return re.findall(r"^\| `.*\|$", (ROOT / "docs/duckdb-names.md").read_text(), re.MULTILINE)


def headers(version):
    return PLACE / f"duckdb-{version}/include"


class Used(unittest.TestCase):
    def test_every_name_is_declared_in_the_headers(self):
        run = private_names(PLACE, PLACE)
        self.assertEqual(run.stdout, "")
        names = used()
        self.assertGreater(len(names), 100)
        # Only the files for what differs may use the names of another version.
        for name in run.stderr.partition(": ")[2].split(", "):
            if name:
                self.assertRegex(names[name.strip()], r"^version_\w+\.h(, version_\w+\.h)*$", name)

    def test_only_the_files_for_what_differs_ask_for_the_version(self):
        asking = set()
        for path in (path for folder in ("src", "host", "mshared") for path in (ROOT / folder).rglob("*.*")):
            if path.suffix in (".cpp", ".h") and not path.stem.endswith("_test") and VERSION_TEST.search(path.read_text()):
                asking.add(str(path.relative_to(ROOT)))
        self.assertEqual({file for file in asking if not ASKS.fullmatch(file)}, set())
        self.assertIn("src/duckdb_internals/version_settings.h", asking)

    def test_an_alias_of_a_pointer_is_found(self):
        self.assertIn("const_data_ptr_t", used())

    def test_the_page_names_what_the_sources_use(self):
        names = used()
        for row in page_rows():
            name, _, files = row.strip("| ").split(" | ")
            self.assertEqual(names.get(name.strip("`")), files, f"{row}\nReplace the rows by the output of {MAKE}")

    def folder(self, text):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        pathlib.Path(folder.name, "duckdb.hpp").write_text(text)
        return folder.name

    def difference(self, old, new):
        return private_names(self.folder(old), self.folder(new)).stdout

    def test_a_declaration_that_is_gone_or_differs_is_found(self):
        old = "struct Value {\n\tidx_t size() const;\n\tValue Reinterpret(LogicalType type);\n};\n"
        self.assertEqual(self.difference(old, ""), f"| `Value` | gone | {used()['Value']} |\n")
        self.assertIn("| without `Reinterpret` |", self.difference(old, old.replace("Reinterpret", "WithType")))
        self.assertIn("| other `size` |", self.difference(old, old.replace("idx_t", "int")))

    def test_layout_comments_bodies_and_what_nothing_uses_are_no_difference(self):
        old = "struct Value {\n\tidx_t size() const { return 1; }\n};\n"
        new = "struct Value { // new\n\tidx_t\n\tsize() const {\n\t\treturn 2;\n\t}\n\tint never_used_here;\n};\n"
        self.assertEqual(self.difference(old, new), "")


class Table(unittest.TestCase):
    def test_the_page_has_the_table_that_the_script_prints(self):
        run = private_names(headers(OLD), headers(NEW))
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.stdout.splitlines(), page_rows(), f"Replace the rows by the output of {MAKE}")


if __name__ == "__main__":
    ROOT, PLACE, PART = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]), sys.argv[3]
    absent = [version for version in (OLD, NEW) if PART == "table" and not headers(version).exists()]
    if absent:
        print(f"skipped: {PLACE} has no headers of DuckDB {', '.join(absent)}; scripts/setup --duckdb NAME fetches them")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1] + [PART.capitalize()] + sys.argv[4:], verbosity=1)
