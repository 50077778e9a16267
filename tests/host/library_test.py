"""What the operator sees when the loader finds another DuckDB library than the one that the modules are built for."""

import glob
import os
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


def other_libraries():
    folders = sorted(glob.glob(os.path.join(OTHER_LIBRARIES, "*"))) + \
        sorted(glob.glob(os.path.join(DUCKDB_HOMES, "duckdb-*", "lib")))
    for folder in folders:
        if os.path.exists(os.path.join(folder, "libduckdb.so")):
            name = os.path.basename(folder)
            version = (os.path.basename(os.path.dirname(folder)) if name == "lib" else name).replace("duckdb-", "")
            if version != BUILT_FOR:
                yield version, folder


class LibraryTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tree = tempfile.mkdtemp(prefix="mduckdb-host-")
        cls.addClassCleanup(shutil.rmtree, cls.tree, ignore_errors=True)
        subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.tree], check=True, stdout=subprocess.DEVNULL)
        cls.library = os.path.join(cls.tree, "lib/mduckdb/libduckdb.so")
        os.remove(cls.library)

    def check(self, host, module, expected, **environment):
        """Every command ends with the text, printed once. The loader looks symbols up when they are first called, and at
        once."""
        for command in (["version"], ["call", "fetch_parquet", "x.parquet"], ["sql", ":memory:", "SELECT 1"]):
            for binding in ({}, {"LD_BIND_NOW": "1"}):
                with self.subTest(command=command, module=module, binding=binding):
                    done = subprocess.run([host, "--module", module, *command], capture_output=True, text=True, timeout=60,
                                          stdin=subprocess.DEVNULL, check=False,
                                          env={**os.environ, **environment, **binding})
                    self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
                    self.assertEqual(done.stderr, expected)

    def test_the_text_for_a_library_that_the_loader_finds_first(self):
        versions = set()
        for version, folder in other_libraries():
            text = f"mduckdb is built for DuckDB {BUILT_FOR} and cannot use the loaded DuckDB library of version {version}.\n"
            versions.add(version)
            for module in MODULES:
                with self.subTest(folder=folder):
                    self.check(HOST, module, text, LD_LIBRARY_PATH=folder)
        self.assertGreaterEqual(len(versions), 3)

    def test_the_text_for_a_library_that_was_replaced(self):
        for version, folder in other_libraries():
            text = f"mduckdb is built for DuckDB {BUILT_FOR} and cannot use the loaded DuckDB library of version {version}.\n"
            os.symlink(os.path.join(folder, "libduckdb.so"), self.library)
            for module in MODULES:
                with self.subTest(folder=folder):
                    self.check(os.path.join(self.tree, "bin/mduckdb-host"), module, text)
            os.remove(self.library)

    def test_the_text_without_a_library(self):
        for module in MODULES:
            self.check(os.path.join(self.tree, "bin/mduckdb-host"), module,
                       "Cannot load the module: libduckdb.so: cannot open shared object file: No such file or directory\n")


if __name__ == "__main__":
    unittest.main()
