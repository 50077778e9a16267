"""Runs clang-tidy over the sources that a compilation database names; called by scripts/tidy."""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*"([^"]+)"', re.MULTILINE)


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


def headers(call, directory, path):
    """The file and every file of the tree that it includes, found by the names in quotes: conditions are not read, so
    there may be more than the compiler sees. Headers in angle brackets are the system's and DuckDB's."""
    roots = [pathlib.Path(directory, part[2:]) for part in call if part.startswith("-I")]
    found, todo = {}, [path]
    while todo:
        file = todo.pop()
        found[file] = file.read_bytes()
        for name in INCLUDE.findall(found[file].decode()):
            header = next((folder / name for folder in (file.parent, *roots) if (folder / name).is_file()), None)
            if header and header.resolve() not in found:
                todo.append(header.resolve())
    return found


def fingerprint(rules, directory, command, path):
    """Changes with the file, its headers in the tree, the compiler call and the rules. Preprocessing would see the
    system's headers too, but takes a quarter of the time that it saves, and on a fresh tree saves nothing."""
    call = [part for part in command if "ccache" not in part]
    key = hashlib.sha256(rules + shlex.join(call).encode())
    for name, text in sorted(headers(call, directory, path).items()):
        key.update(f"\n{name.relative_to(ROOT)} {len(text)}\n".encode() + text)
    return key.hexdigest()


def check(tidy, database, rules, path, directory, command):
    """The findings as text; empty when the file is clean."""
    stamp = database / "clean" / fingerprint(rules, directory, command, path)
    if stamp.exists():
        return ""
    run = subprocess.run([tidy, "-p", database, "--quiet", path], capture_output=True, text=True)
    if run.returncode == 0:
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
