"""What the operator sees when the loader finds another DuckDB library than the one that the modules are built for."""

import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from host_case import HOST

BUILD = os.environ["MDUCKDB_BUILD"]
BUILT_FOR = os.environ["MDUCKDB_DUCKDB_VERSION"]
# Folders with a libduckdb.so, by version: small ones with one function each, and DuckDB's own where they are present.
OTHER_LIBRARIES = os.environ["MDUCKDB_OTHER_LIBRARIES"]
DUCKDB_HOMES = os.path.dirname(os.path.dirname(os.path.dirname(os.environ["MDUCKDB_DUCKDB_LIBRARY"])))
MODULES = ("mduckdb", "mduckdb_casts")


def libraries(pattern, version_of):
    """Version and folder of each library of another version than that of the modules. What is for another processor has its
    name behind the version."""
    for folder in sorted(glob.glob(pattern)):
        version = version_of(folder)
        if version != BUILT_FOR and re.fullmatch("[0-9.]+", version) and os.path.exists(os.path.join(folder, "libduckdb.so")):
            yield version, folder


def small_libraries():
    return list(libraries(os.path.join(OTHER_LIBRARIES, "*"), os.path.basename))


def real_libraries():
    return list(libraries(os.path.join(DUCKDB_HOMES, "duckdb-*/lib"),
                          lambda folder: os.path.basename(os.path.dirname(folder)).replace("duckdb-", "")))


def text_of(version):
    return f"mduckdb is built for DuckDB {BUILT_FOR} and cannot use the loaded DuckDB library of version {version}.\n"


class LibraryTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tree = tempfile.mkdtemp(prefix="mduckdb-host-")
        cls.addClassCleanup(shutil.rmtree, cls.tree, ignore_errors=True)
        subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.tree], check=True, stdout=subprocess.DEVNULL)
        cls.library = os.path.join(cls.tree, "lib/mduckdb/libduckdb.so")
        os.remove(cls.library)

    def check(self, host, expected, command=("version",), **environment):
        """The command ends with the text, printed once, also when the loader looks up all symbols at once."""
        for module in MODULES:
            for binding in ({}, {"LD_BIND_NOW": "1"}):
                with self.subTest(command=command, module=module, binding=binding, environment=environment):
                    done = subprocess.run([host, "--module", module, *command], capture_output=True, text=True, timeout=60,
                                          stdin=subprocess.DEVNULL, check=False,
                                          env={**os.environ, **environment, **binding})
                    self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
                    self.assertEqual(done.stderr, expected)

    def test_the_text_for_a_library_that_the_loader_finds_first(self):
        self.assertGreaterEqual(len(small_libraries()), 3)
        for version, folder in small_libraries() + real_libraries():
            self.check(HOST, text_of(version), LD_LIBRARY_PATH=folder)

    def test_the_text_ends_every_command(self):
        version, folder = small_libraries()[0]
        for command in (("call", "fetch_parquet", "x.parquet"), ("sql", ":memory:", "SELECT 1")):
            self.check(HOST, text_of(version), command, LD_LIBRARY_PATH=folder)

    def test_the_text_for_a_library_that_was_replaced(self):
        for version, folder in small_libraries()[:2]:
            os.symlink(os.path.join(folder, "libduckdb.so"), self.library)
            self.check(os.path.join(self.tree, "bin/mduckdb-host"), text_of(version))
            os.remove(self.library)

    def test_the_text_without_a_library(self):
        self.check(os.path.join(self.tree, "bin/mduckdb-host"),
                   "Cannot load the module: libduckdb.so: cannot open shared object file: No such file or directory\n")


if __name__ == "__main__":
    unittest.main()
