"""What the operator and a host see when the loader finds another DuckDB library than the one that the modules are built for:
one of every other version, instead of the installed one or in its place."""

import os
import shutil
import subprocess
import tempfile
import unittest

BUILD = os.environ["MDUCKDB_BUILD"]
BUILT_FOR = os.environ["MDUCKDB_DUCKDB_VERSION"]
RIGHT_LIBRARY = os.environ["MDUCKDB_DUCKDB_LIBRARY"]
# Folders with a libduckdb.so of one function, by version.
SMALL_LIBRARIES = os.environ["MDUCKDB_OTHER_LIBRARIES"]
# Where DuckDB's own libraries are, as far as they have been fetched: duckdb-VERSION/lib.
DUCKDB_HOMES = os.path.dirname(os.path.dirname(os.path.dirname(RIGHT_LIBRARY)))
C_HOST = os.environ["MDUCKDB_ABI_HOST"]
BOUND_LAZILY = os.environ["MDUCKDB_BOUND_LAZILY"]
MODULES = ("mduckdb", "mduckdb_casts")
OTHER_VERSIONS = sorted(os.listdir(SMALL_LIBRARIES))


def text_of(version):
    return f"mduckdb is built for DuckDB {BUILT_FOR} and cannot use the loaded DuckDB library of version {version}.\n"


class LibraryTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tree = tempfile.mkdtemp(prefix="mduckdb-host-")
        cls.addClassCleanup(shutil.rmtree, cls.tree, ignore_errors=True)
        subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.tree], check=True, stdout=subprocess.DEVNULL)
        cls.folder = os.path.join(cls.tree, "lib/mduckdb")
        shutil.copy(BOUND_LAZILY, cls.folder)
        os.remove(os.path.join(cls.folder, "libduckdb.so"))

    def setUp(self):
        self.library = os.path.join(self.folder, "libduckdb.so")
        self.addCleanup(lambda: os.path.lexists(self.library) and os.remove(self.library))

    def install(self, library):
        os.symlink(library, self.library)

    def run_program(self, *command, **environment):
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, stdin=subprocess.DEVNULL, check=False,
                              env={**os.environ, **environment})
        return done.returncode, done.stdout, done.stderr

    def run_host(self, *command, **environment):
        return self.run_program(os.path.join(self.tree, "bin/mduckdb-host"), *command, **environment)

    def c_host(self, module, binding, text, **environment):
        """A host in plain C, which checks what the module reports to it."""
        file = os.path.join(self.folder, f"lib{module}.so")
        return self.run_program(C_HOST, file, self.tree, "library", binding, text, **environment)

    def check(self, version, **environment):
        text = text_of(version)
        for module in MODULES:
            with self.subTest(module=module, **environment):
                self.assertEqual(self.run_host("--module", module, "version", **environment), (1, "", text))
        for module, binding in [(module, "now") for module in MODULES] + [("mduckdb_bound_lazily", "lazy")]:
            with self.subTest(host="C", module=module, binding=binding, **environment):
                code, _, error = self.c_host(module, binding, text.rstrip("\n"), **environment)
                self.assertEqual((code, error), (0, text))

    def check_library(self, version, library):
        with self.subTest("the loader finds it first", version=version):
            self.install(RIGHT_LIBRARY)
            self.check(version, LD_LIBRARY_PATH=os.path.dirname(library))
            os.remove(self.library)
        with self.subTest("in the place of the right one", version=version):
            self.install(library)
            self.check(version)
            os.remove(self.library)

    def test_the_text_for_a_library_that_lacks_nearly_all_symbols(self):
        self.assertGreaterEqual(len(OTHER_VERSIONS), 3)
        for version in OTHER_VERSIONS:
            self.check_library(version, os.path.join(SMALL_LIBRARIES, version, "libduckdb.so"))

    def test_the_text_for_the_library_of_a_release(self):
        for version in OTHER_VERSIONS:
            library = os.path.join(DUCKDB_HOMES, f"duckdb-{version}/lib/libduckdb.so")
            with self.subTest(version=version):
                if not os.path.exists(library):
                    self.skipTest(f"there is no {library}")
                self.check_library(version, library)

    def test_the_text_ends_every_command(self):
        self.install(os.path.join(SMALL_LIBRARIES, OTHER_VERSIONS[0], "libduckdb.so"))
        for command in (("call", "fetch_parquet", "x.parquet"), ("sql", ":memory:", "SELECT 1")):
            self.assertEqual(self.run_host(*command), (1, "", text_of(OTHER_VERSIONS[0])))

    def test_the_text_without_a_library(self):
        text = "libduckdb.so: cannot open shared object file: No such file or directory\n"
        for module in MODULES:
            self.assertEqual(self.run_host("--module", module, "version"), (1, "", "Cannot load the module: " + text))
        self.assertEqual(self.c_host("mduckdb_bound_lazily", "lazy", ""), (2, "", text))

    def test_a_module_that_is_linked_to_bind_lazily_does(self):
        section = subprocess.run(["readelf", "-d", BOUND_LAZILY], capture_output=True, text=True, check=True).stdout
        self.assertNotIn("NOW", section)
        self.install(RIGHT_LIBRARY)
        self.assertEqual(self.run_host("--module", "mduckdb_bound_lazily", "--format", "csv", "sql", ":memory:", "SELECT 1 AS i"),
                         (0, "i\n1\n", ""))


if __name__ == "__main__":
    unittest.main()
