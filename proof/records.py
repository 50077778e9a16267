"""What the last runs of scripts/prove showed: proof/results.json, by stage and by what ran.

A stage's runs may be of different days and commits, and even of several trees; each says which. Of the fuzzers and of the programs that
kill processes every run is kept, since their hours and kills count together; of everything else the last."""

import contextlib
import datetime
import fcntl
import json
import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
FILE = ROOT / "proof" / "results.json"
# Files that a recorded run writes: a change of these does not make the tree differ from its commit.
WRITTEN = ("proof/results.json", "docs/reliability.md")


def now():
    return datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M:%S")


def commit():
    """Of the tree, with a mark if something was changed since."""
    def git(*arguments):
        return subprocess.run(["git", "-C", ROOT, *arguments], capture_output=True, text=True).stdout.strip()
    found = git("describe", "--always")
    changes = git("status", "--porcelain", "--", ".", *(f":!{name}" for name in WRITTEN))
    return (found + "-dirty" if changes else found) or "unknown"


def load(file=None):
    file = file or FILE
    return json.loads(file.read_text()) if file.exists() else {}


@contextlib.contextmanager
def locked():
    """Several runs of scripts/prove may record at once."""
    folder = os.open(FILE.parent, os.O_RDONLY | os.O_DIRECTORY)
    try:
        fcntl.flock(folder, fcntl.LOCK_EX)
        yield
    finally:
        os.close(folder)


def rank(entry):
    """Of two runs of the same program the larger one stays."""
    return entry["form"] == "whole", entry["date"]


def add(records, stage, entry):
    """Puts one run into the records; a shorter one does not replace a whole run, unless it failed."""
    runs = records.setdefault(stage, {})
    if entry["form"] == "part":
        known = {run["date"]: run for run in runs.get(entry["name"], [])}
        known[entry["date"]] = entry
        runs[entry["name"]] = [known[date] for date in sorted(known)]
        return
    old = runs.get(entry["name"])
    if old is None or rank(old) <= rank(entry) or (not entry["passed"] and old["date"] < entry["date"]):
        runs[entry["name"]] = entry


def entries(runs):
    """All runs of a stage."""
    for run in runs.values():
        yield from run if isinstance(run, list) else [run]


def change(additions):
    """Adds (stage, entry) pairs to the file."""
    with locked():
        records = load()
        for stage, entry in additions:
            add(records, stage, entry)
        FILE.write_text(json.dumps(records, indent=1, sort_keys=True) + "\n")


def merge(file):
    """Adds what ran in another tree."""
    change([(stage, entry) for stage, runs in load(file).items() for entry in entries(runs)])
