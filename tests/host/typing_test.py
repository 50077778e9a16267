"""Colours and hints while a line of the shell is typed, on a pseudo-terminal."""

import pathlib
import sys
import time
import unittest
from random import Random

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "docs"))
import screen  # noqa: E402
from terminal_case import TerminalCase  # noqa: E402

GREEN = "\x1b[32m"
CYAN = "\x1b[36m"
DIM = "\x1b[2m"


class TypingTest(TerminalCase):
    def type(self, shell, keys, seconds=0.5):
        """Presses the keys one after the other, when the shell has answered the one before; returns what it wrote."""
        written = ""
        for key in keys:
            shell.text = ""
            shell.send(key)
            end = time.monotonic() + seconds
            # The answer ends where the painted line does, if there are colours.
            while time.monotonic() < end and not shell.text.endswith("\x1b8"):
                shell.read(min(0.05, end - time.monotonic()))
            written += shell.text
        shell.text = ""
        return written

    def paste(self, shell, text):
        """In pieces, since the terminal holds only little of what nobody has read."""
        text = "\x1b[200~" + text + "\x1b[201~"
        for start in range(0, len(text), 1000):
            shell.send(text[start:start + 1000])
            shell.read(0)

    def test_keywords_texts_and_comments_are_coloured(self):
        shell = self.start()
        written = self.type(shell, "select 'x' --")
        self.assertIn(f"{CYAN}select\x1b[m {GREEN}'x'\x1b[m {DIM}--\x1b[m", written)
        shell.send("\n")
        shell.expect("...> ")
        shell.send(", 'open\n")
        shell.expect("...> ")
        # The line continues a text.
        self.assertIn(f"C{GREEN}from'", self.type(shell, "from'"))
        shell.send("\x03")
        shell.expect("> ")
        self.assertIn(f"{CYAN}.mode\x1b[m ", self.type(shell, ".mode "))
        shell.send("\x03")
        self.leave(shell)

    def test_the_hint_names_the_arguments(self):
        shell = self.start()
        self.assertIn(f"{DIM}ort FILE TABLE\x1b[m", self.type(shell, ".imp"))
        shell.send("\x03")
        self.assertIn(f"{DIM}uri [, columns", self.type(shell, "CALL fetch_parquet("))
        shell.send("\x03")
        shell.expect("> ")
        self.assertNotIn(DIM, self.type(shell, "select nonsense("))
        shell.send("\x03")
        self.leave(shell)

    def test_the_hint_continues_a_line_of_the_history_and_the_right_arrow_accepts_it(self):
        shell = self.start()
        shell.send("SELECT 41 + 1 AS answer;\n")
        shell.expect("│     42 │")
        shell.expect("> ")
        self.assertIn(f"{DIM}T 41 + 1 AS answer;\x1b[m", self.type(shell, "SELEC"))
        shell.send("\x1b[C\n")
        shell.expect("│     42 │")
        shell.expect("> ")
        # Inside of the line, the key moves.
        self.type(shell, "SELECT 57;")
        shell.send("\x01\x1b[C\x1b[C\x1b[C\x1b[C\x1b[C\x1b[C\x1b[C1\n")
        shell.expect("│ 157 │")
        self.leave(shell)

    def test_no_hint_stays_behind_on_the_screen(self):
        for end, line in (("\n", "memory> .databa"), ("\x03", "memory> .databa^C"), ("\x1b[Dx", "memory> .databxa")):
            with self.subTest(end):
                shell = self.start()
                shown = screen.Screen(100)
                shown.write("memory> " + self.type(shell, ".databa"))
                self.assertEqual(shown.text(), ["memory> .databases"])
                shown.write(self.type(shell, [end]))
                self.assertEqual(shown.text()[0], line)

    def test_the_screen_shows_the_same_as_without_colours(self):
        keys = [*"select '日本' || 'x', ", *"1234567890" * 9, "\x01", *"/* a */", "\x1b[C", "\x7f", "\x05", *" from t",
                "\x17", *"-- ü" * 20, "\x02", "\x02", *"b"]
        shown = []
        for more in ({}, {"NO_COLOR": "1"}):
            shell = self.start(more=more)
            image = screen.Screen(100)
            # Without colours the answers have no end to wait for.
            pressed = keys if not more else ["".join(keys)]
            image.write("memory> " + self.type(shell, pressed, 1))
            shown.append((image.text(), image.row, image.column))
        self.assertEqual(shown[0], shown[1])
        self.assertIn("/* a */", shown[0][0][0])
        self.assertGreater(len(shown[0][0]), 1)

    def press(self, shell, shown, keys, expected):
        """Presses the keys and waits until the screen shows the line, but not for ever."""
        shell.send(keys)
        end = time.monotonic() + 60
        while time.monotonic() < end:
            shell.read(0.05)
            shown.write(shell.text)
            shell.text = ""
            if shown.text() == expected:
                return
        self.assertEqual(shown.text(), expected)

    def test_wide_characters_in_several_rows_stay_where_they_are(self):
        for more in ({}, {"NO_COLOR": "1"}):
            random = Random(7)
            shell = self.start(more=more)
            shown = screen.Screen(100)
            shown.write("memory> ")
            text, cursor = "", 0
            for step in range(25):
                if step == 0:
                    keys, text = ("'" + "a" * 87 + "日本語' as q",) * 2
                    cursor = len(text)
                elif cursor > 0 and random.random() < 0.3:
                    keys, text, cursor = "\x7f", text[:cursor - 1] + text[cursor:], cursor - 1
                else:
                    cursor = random.choice((0, cursor, cursor, len(text), random.randrange(len(text))))
                    new = random.choice("xy日本é")
                    keys, text = "\x01" + "\x06" * cursor + new, text[:cursor] + new + text[cursor:]
                    cursor += 1
                expected = screen.Screen(100)
                expected.write("memory> " + text)
                self.press(shell, shown, keys, expected.text())
            shell.send("\x03")
            self.leave(shell)

    def test_without_colours_or_escapes_nothing_is_painted(self):
        for more, term in (({"NO_COLOR": "1"}, "xterm"), ({}, "dumb")):
            with self.subTest(more=more, term=term):
                shell = self.open("shell", more=more, term=term)
                shell.expect("memory> ")
                written = self.type(shell, ".imp", 0.1) + self.type(shell, "\x7f\x7f\x7f\x7fselect 'x'", 0.1)
                self.assertNotIn("FILE", written)
                self.assertNotIn("\x1b7", written)
                self.assertNotIn("\x1b[3", written)

    def test_a_line_of_200_kilobytes_costs_no_more_than_without_colours(self):
        text = "SELECT length('" + "x" * 200_000 + "') AS n"
        seconds = []
        for more in ({"NO_COLOR": "1"}, {}):
            shell = self.start(more=more)
            shell.send("SELECT 1;\n")
            shell.expect("1 row")
            shell.expect("> ")
            start = time.monotonic()
            self.paste(shell, text)
            self.type(shell, ";;;", 0.1)
            shell.send("\n")
            shell.expect("200000 │", seconds=60)
            seconds.append(time.monotonic() - start)
            self.leave(shell)
        self.assertLess(seconds[1], 1.5 * seconds[0] + 1)


if __name__ == "__main__":
    unittest.main()
