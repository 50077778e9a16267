"""Runs the commands of docs/remote.md with the servers that they need, and compares what they print."""

import os
import pathlib
import subprocess
import sys
import unittest

from lake_case import LakeCase
from remote_case import HOST, extension_file

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "docs"))

import pages  # noqa: E402


class PageTest(LakeCase):
    def setUp(self):
        super().setUp()
        # As at the beginning of the page: nothing is installed and no secret is stored.
        self.extensions = pathlib.Path(self.folder, "extensions")
        self.extensions.mkdir()
        for name in ("httpfs", "ducklake", "postgres_scanner"):
            (self.extensions / f"{name}.duckdb_extension").symlink_to(extension_file(name))
        place = pathlib.Path(self.folder, "place")
        place.mkdir()
        self.typist = {**self.environment, "HOME": str(place), "PLACE": str(place), "TREE": str(ROOT),
                       "XDG_CACHE_HOME": os.environ.get("XDG_CACHE_HOME", os.path.expanduser("~/.cache")),
                       "PATH": f"{pathlib.Path(HOST).parent}:{os.environ['PATH']}", "EXTENSIONS": str(self.extensions),
                       "KEY": self.store.key, "SECRET": self.store.secret, "STORE": self.store.front.endpoint,
                       "CATALOG_PORT": str(self.catalog.port), "CATALOG_PASSWORD": self.catalog.password, "LC_ALL": "C.UTF-8"}

    def test_commands_print_what_the_page_shows(self):
        count = 0
        script = ""
        for block, expected in pages.commands(ROOT / "docs" / "remote.md"):
            # A block continues with the folder and the variables of those before it.
            done = subprocess.run(["bash", "-c", f"{{ {script}\n:; }} >/dev/null 2>&1\n{block.text}"], env=self.typist,
                                  cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                  timeout=200, check=False)
            with self.subTest(block=block.place):
                if not pages.matches(expected, done.stdout):
                    self.assertEqual(done.stdout, expected)
            script = "\n".join(line for line in (script + block.text).splitlines() if line.startswith(("cd ", "export ")))
            count += 1
        self.assertEqual(count, 2)


if __name__ == "__main__":
    unittest.main()
