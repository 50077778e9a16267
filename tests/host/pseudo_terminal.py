"""A program on its own terminal, driven by a test."""

import codecs
import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time

CONTROL = re.compile(r"\x1b\[[0-9;?]*[A-Za-z@]|\x1b[78]|\r")


class Terminal:
    """The program's output is collected in `text`, control sequences and all."""

    def __init__(self, command, folder, environment, lines=30, columns=100, term="xterm"):
        self.text = ""
        self.decoder = codecs.getincrementaldecoder("utf-8")(errors="replace")
        self.terminal, program_side = pty.openpty()
        fcntl.ioctl(program_side, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))
        self.process = subprocess.Popen(
            command, cwd=folder, env={**environment, "TERM": term, "INPUTRC": "/dev/null"}, stdin=program_side,
            stdout=program_side, stderr=program_side, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(program_side)

    def send(self, text):
        os.write(self.terminal, text.encode())

    def read(self, seconds):
        """Waits that long for output and collects what came; false at the program's end."""
        if select.select([self.terminal], [], [], max(0, seconds))[0]:
            try:
                self.text += self.decoder.decode(os.read(self.terminal, 65536))
            except OSError:
                return False
        return True

    def expect(self, text, seconds=20):
        """Reads until the text appears; returns and discards what was read, without control sequences."""
        end = time.monotonic() + seconds
        while text not in CONTROL.sub("", self.text):
            if time.monotonic() > end:
                raise AssertionError(f"{text!r} did not appear in {self.text!r}")
            if not self.read(end - time.monotonic()):
                raise AssertionError(f"the program ended before {text!r}: {self.text!r}")
        before, self.text = CONTROL.sub("", self.text).split(text, 1)
        return before + text

    def finish(self):
        """Waits for the program to terminate; returns its status."""
        end = time.monotonic() + 20
        while time.monotonic() < end and self.read(end - time.monotonic()):
            pass
        return self.process.wait(timeout=20)

    def kill(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
        os.close(self.terminal)
