"""What the tests of the built mduckdb-host share."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest

HOST = os.environ["MDUCKDB_HOST"]
SAMPLE_MODULE = os.environ["MDUCKDB_SAMPLE_MODULE"]
PLAIN_MODULE = os.environ["MDUCKDB_MODULE"]


class HostCase(unittest.TestCase):
    """Runs the program in a new, empty folder."""

    longest_run = 60

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="mduckdb-host-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_host(self, *arguments, stdin="", **more):
        """The finished process. `stdin` is text or bytes."""
        sent = stdin if isinstance(stdin, bytes) else stdin.encode()
        return subprocess.run([HOST, *arguments], input=sent, capture_output=True, cwd=self.folder, timeout=self.longest_run,
                              **more)

    def output(self, *arguments, status=0, **more):
        """What a call prints; its status is checked, and that it says nothing on stderr when it worked."""
        done = self.run_host(*arguments, **more)
        error = done.stderr.decode(errors="replace")
        self.assertEqual(done.returncode, status, error)
        if status == 0:
            self.assertEqual(error, "")
        return done.stdout.decode()

    def error(self, *arguments, status=1, **more):
        """What a failing call says on stderr."""
        done = self.run_host(*arguments, **more)
        self.assertEqual(done.returncode, status, done.stdout.decode())
        return done.stderr.decode()

    def rows(self, *arguments, **more):
        """The rows of a call as JSON values, checked against the count after them."""
        result = json.loads(self.output("--format", "json", *arguments, **more))
        self.assertEqual(result["row_count"], len(result["rows"]))
        return result["rows"]

    def sql(self, database, text, *arguments, **more):
        return self.rows("sql", database, text, *arguments, **more)

    def execute(self, database, text):
        """Runs SQL whose results do not matter."""
        return self.output("sql", database, text)
