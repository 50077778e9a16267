"""Results of the shell that are longer than the screen, on a pseudo-terminal of 30 lines."""

import os
import shutil
import unittest
import unittest.mock

from terminal_case import TerminalCase

LONG = ".all on\nSELECT i FROM range(1000) r(i);\n"
SHORT = "SELECT i FROM range(20) r(i);\n"


class PagerTest(TerminalCase):
    def script(self, text):
        """A pager."""
        with open(self.path("pager"), "w") as file:
            file.write("#!/bin/sh\n" + text)
        os.chmod(self.path("pager"), 0o755)
        return self.path("pager")

    def shell(self, pager, **more):
        shell = self.open("shell", more={"PAGER": pager}, **more)
        shell.expect("memory> ")
        return shell

    def test_only_what_is_longer_than_the_screen_goes_through_the_pager(self):
        shell = self.shell("sed 's/^/paged: /'")
        shell.send(SHORT)
        self.assertNotIn("paged", shell.expect("\n20 rows\n"))
        shell.send(LONG)
        text = shell.expect("paged: 1,000 rows\n")
        self.assertEqual(text.count("paged: │"), 1001)
        shell.send(".mode line\nSELECT i FROM range(40) r(i);\n")
        self.assertIn("paged: i = 7", shell.expect("paged: i = 39"))
        shell.send(".help\n")
        self.assertIn("paged: .all", shell.expect("paged: Ctrl-C interrupts"))
        shell.send(".pager off\n.help\n")
        self.assertNotIn("paged", shell.expect("Ctrl-C interrupts"))
        self.leave(shell)

    def test_the_message_of_an_error_comes_behind_the_pager(self):
        shell = self.shell("sed 's/^/paged: /; $ a the end'")
        shell.send(".mode line\nSELECT CASE WHEN i < 3000 THEN i ELSE error('no more') END AS n FROM range(3001) r(i);\n")
        shell.expect("no more")
        shell.send("SELECT 'here' AS t;\n")
        shell.expect("t = here")
        self.leave(shell)

    def test_a_pager_that_is_left_early_ends_only_the_result(self):
        shell = self.shell("head -n 4")
        shell.send(".all on\nSELECT i FROM range(5000000) r(i); SELECT 'next' AS t;\n")
        text = shell.expect("│ next │")
        self.assertIn("│    0 │", text)
        self.assertNotIn("│    1 │", text)
        self.assertNotIn("Error", text)
        # The next long result has a pager again.
        shell.expect("memory> ")
        shell.send(LONG)
        shell.expect("│   0 │")
        shell.expect("memory> ")
        self.leave(shell)

    def test_ctrl_c_in_the_pager_is_for_the_pager(self):
        # `read` alone would miss a key that comes just before it waits.
        shell = self.shell(self.script("trap 'key=got; echo $key the key' INT\nhead -n 2\n"
                                       "while [ -z \"$key\" ]; do sleep 0.05; done\nread line </dev/tty\n"))
        shell.send(LONG)
        shell.expect("│   i │")
        shell.send("\x03")
        shell.expect("got the key")
        shell.send("\n")
        self.assertNotIn("Interrupted", shell.expect("memory> "))
        shell.send("SELECT 'here' AS t;\n")
        self.assertNotIn("^C", shell.expect("│ here │"))
        self.leave(shell)

    def test_a_pager_dies_quietly_of_a_closed_pipe(self):
        # The shell ignores SIGPIPE, programs that it starts do not.
        shell = self.shell("seq 1000000 | head -n 1; echo ended; cat >/dev/null")
        shell.send(LONG)
        self.assertNotIn("roken pipe", shell.expect("ended"))
        shell.expect("memory> ")
        self.leave(shell)

    def test_results_for_a_file_and_repeated_ones_are_not_paged(self):
        shell = self.shell("sed 's/^/paged: /'")
        shell.send(f".mode csv\n.once o.csv\nSELECT i FROM range(100) r(i);\n.output o2.csv\nFROM range(100);\n.output\n")
        shell.send("SELECT i FROM range(100) r(i);\n")
        shell.expect("paged: 99\n")
        shell.send(".watch 0.1 2\n")
        self.assertNotIn("paged", shell.expect("\n99\n") + shell.expect("\n99\n"))
        self.leave(shell)
        for name in ("o.csv", "o2.csv"):
            with open(self.path(name)) as file:
                self.assertEqual(len(file.readlines()), 101)

    def test_without_a_pager_or_escapes_a_long_result_is_printed(self):
        for pager, term in (("cat", "xterm"), ("", "xterm"), ("no-such-pager", "xterm"), ("./no/pager -x", "xterm"),
                            ("sed 's/^/paged: /'", "dumb")):
            with self.subTest(pager=pager, term=term):
                shell = self.shell(pager, term=term)
                shell.send(LONG)
                text = shell.expect("\n1,000 rows\n")
                self.assertNotIn("paged", text)
                self.assertEqual(text.count("\n│"), 1001)
                self.leave(shell)

    def test_a_pager_that_cannot_run_is_named(self):
        shell = self.shell("sh -c 'exit 127'")
        shell.send(LONG)
        shell.expect("'sh -c 'exit 127'' failed with status 127. Set PAGER to the pager to use.")
        self.leave(shell)

    @unittest.skipUnless(shutil.which("less"), "less is not installed")
    def test_less_shows_a_page_and_leaves_it_on_the_screen(self):
        environment = {name: value for name, value in os.environ.items() if name not in ("PAGER", "LESS")}
        with unittest.mock.patch.dict(os.environ, environment, clear=True):
            shell = self.open("shell")
        shell.expect("memory> ")
        shell.send(LONG)
        self.assertNotIn("\x1b[?1049h", shell.text)
        text = shell.expect("│  15 │")
        shell.send("G")
        shell.expect("1,000 rows\n")
        shell.send("q")
        shell.expect("memory> ")
        self.assertNotIn("\x1b[?1049h", text)
        self.leave(shell)


if __name__ == "__main__":
    unittest.main()
