"""Runs a server for as long as its owner lives.

  guard.py USER COMMAND...    USER: the number of the user who runs it, or - for this one

When standard input closes, which it does however the owner ends, the server gets SIGINT, and SIGKILL if it stays.
"""

import os
import select
import signal
import subprocess
import sys

LONGEST_END = 20


def main():
    # A Ctrl-C at a terminal is for the owner.
    os.setsid()
    user, *command = sys.argv[1:]
    number = None if user == "-" else int(user)
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, user=number, group=number,
                          extra_groups=None if number is None else []) as server:
        ended = os.pidfd_open(server.pid)
        select.select([sys.stdin, ended], [], [])
        server.send_signal(signal.SIGINT)
        try:
            server.wait(LONGEST_END)
        except subprocess.TimeoutExpired:
            server.kill()


if __name__ == "__main__":
    main()
