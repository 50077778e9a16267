"""The screen of a terminal: as much of an xterm as the line editor and mduckdb-host use."""

import re
import unicodedata

SEQUENCE = re.compile(r"\x1b\[(\??)([0-9;]*)([A-Za-z@])")


def width(character):
    if unicodedata.combining(character):
        return 0
    return 2 if unicodedata.east_asian_width(character) in "WF" else 1


class Screen:
    """Lines are kept for ever, as a terminal keeps what it has scrolled away. A sequence that it doesn't know is an
    error, so that nothing is shown wrong in silence."""

    def __init__(self, columns):
        self.columns = columns
        self.lines = [[]]
        self.row = 0
        self.column = 0
        self.saved = (0, 0)
        self.rest = ""

    def text(self, first=0):
        """The lines from the given one on, without blanks at their ends."""
        return ["".join(line).rstrip() for line in self.lines[first:]]

    def write(self, text):
        text = self.rest + text
        self.rest = ""
        position = 0
        while position < len(text):
            if text[position] != "\x1b":
                self.put(text[position])
                position += 1
                continue
            if text[position:position + 2] == "\x1b7":
                self.saved = (self.row, self.column)
                position += 2
                continue
            if text[position:position + 2] == "\x1b8":
                self.row, self.column = self.saved
                position += 2
                continue
            found = SEQUENCE.match(text, position)
            if found is None:
                if len(text) - position > 20:
                    raise ValueError(f"no control sequence: {text[position:]!r}")
                self.rest = text[position:]
                return
            self.control(*found.groups())
            position = found.end()

    def put(self, character):
        if character == "\n":
            self.move_to(self.row + 1, self.column)
        elif character == "\r":
            self.column = 0
        elif character == "\b":
            self.column = max(0, self.column - 1)
        elif character == "\a":
            pass
        elif character < " ":
            raise ValueError(f"control character {character!r}")
        else:
            self.show(character)

    def show(self, character):
        cells = width(character)
        line = self.lines[self.row]
        if cells == 0:
            line[self.column - 1] += character
            return
        if self.column + cells > self.columns:
            self.move_to(self.row + 1, 0)
            line = self.lines[self.row]
        line.extend(" " * (self.column + cells - len(line)))
        line[self.column:self.column + cells] = [character] + [""] * (cells - 1)
        self.column += cells

    def move_to(self, row, column):
        self.row = max(0, row)
        self.column = max(0, column)
        while len(self.lines) <= self.row:
            self.lines.append([])

    def control(self, private, numbers, name):
        if name == "m" or private and name in "hl":
            return  # colours, modes
        count = int(numbers or 0) if name in "JK" else int(numbers or 1)
        if name in "ABCD":
            down, right = {"A": (-count, 0), "B": (count, 0), "C": (0, count), "D": (0, -count)}[name]
            self.move_to(self.row + down, self.column + right)
        elif name == "G":
            self.move_to(self.row, count - 1)
        elif name == "K" and count == 0:
            del self.lines[self.row][self.column:]
        elif name == "K" and count == 2:
            self.lines[self.row] = []
        elif name == "J" and count == 0:
            del self.lines[self.row][self.column:]
            del self.lines[self.row + 1:]
        elif name == "P":
            del self.lines[self.row][self.column:self.column + count]
        elif name == "@":
            line = self.lines[self.row]
            line[self.column:self.column] = " " * count
            del line[self.columns:]
        else:
            raise ValueError(f"control sequence {private}{numbers}{name}")
