"""The process of waiting.cpp, which is interrupted while a server is silent."""

import os
import subprocess

WAITING = os.environ["MDUCKDB_REMOTE_WAITING"]


class WaitingProcess:
    """For a RemoteCase."""

    def start(self, way, silent_url, url):
        process = subprocess.Popen([WAITING, way, silent_url, url], env=self.environment, cwd=self.folder,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stdin.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def send_line(self, process):
        """Lets the process interrupt what waits."""
        process.stdin.write("\n")
        process.stdin.flush()

    def end(self, process):
        """Waits for the process, which must succeed, and returns the rest of its lines."""
        printed, _ = process.communicate(timeout=self.longest_run)
        self.assertEqual(process.returncode, 0, printed)
        return printed.splitlines()
