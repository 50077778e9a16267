"""Runs clang-tidy over the sources that a compilation database names; called by scripts/tidy."""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def is_product(path):
    parts = path.relative_to(ROOT).parts
    return path.suffix == ".cpp" and parts[0] not in ("tests", "fuzz", "build") and not path.stem.endswith("_test")


def sources(database):
    """File and compiler call, each file once."""
    found = {}
    for entry in json.loads((database / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["directory"], entry["file"]).resolve()
        if path.is_relative_to(ROOT) and is_product(path):
            found.setdefault(path, (entry["directory"], shlex.split(entry["command"])))
    return found


def fingerprint(rules, directory, command):
    """Changes with everything that clang-tidy sees of a file: its text and comments, its headers, the rules."""
    call = [part for part in command if "ccache" not in part]
    output = call.index("-o")
    del call[output : output + 2]
    text = subprocess.run(call + ["-E", "-C"], cwd=directory, capture_output=True)
    return hashlib.sha256(rules + shlex.join(call).encode() + text.stdout).hexdigest() if text.returncode == 0 else None


def check(tidy, database, rules, path, directory, command):
    """The findings as text; empty when the file is clean."""
    key = fingerprint(rules, directory, command)
    stamp = database / "clean" / key if key else None
    if stamp and stamp.exists():
        return ""
    run = subprocess.run([tidy, "-p", database, "--quiet", path], capture_output=True, text=True)
    if run.returncode == 0:
        if stamp:
            stamp.touch()
        return ""
    return run.stdout or run.stderr


def main():
    tidy, database = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    (database / "clean").mkdir(exist_ok=True)
    wanted = {pathlib.Path(name).resolve() for name in sys.argv[3:]}
    todo = {path: how for path, how in sources(database).items() if not wanted or path in wanted}
    if not todo:
        sys.exit("scripts/tidy: no such source in the build")
    version = subprocess.run([tidy, "--version"], capture_output=True, check=True).stdout
    rules = version + (ROOT / ".clang-tidy").read_bytes()
    bad = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = {pool.submit(check, tidy, database, rules, path, *how): path for path, how in todo.items()}
        for run in concurrent.futures.as_completed(runs):
            if findings := run.result():
                bad += 1
                print(findings, flush=True)
    print(f"clang-tidy: {len(todo)} files, {bad} with findings")
    sys.exit(1 if bad else 0)


main()
