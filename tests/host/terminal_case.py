"""What the tests of the shell on a terminal share."""

import os

from host_case import HOST, HostCase
from pseudo_terminal import Terminal


class TerminalCase(HostCase):
    def open(self, *arguments, more=(), term="xterm"):
        environment = {**os.environ, "XDG_STATE_HOME": self.path("state"), **dict(more)}
        terminal = Terminal([HOST, *arguments], self.folder, environment, term=term)
        self.addCleanup(terminal.kill)
        return terminal

    def start(self, *arguments, more=()):
        terminal = self.open(*(arguments or ("shell",)), more=more)
        if not arguments or arguments[0] == "shell":
            terminal.expect("> ")
        return terminal

    def leave(self, shell):
        shell.send(".quit\n")
        self.assertEqual(shell.finish(), 0)
