"""Counted instructions: reading callgrind's output, comparing with the stored figures."""

import collections
import pathlib
import re

TOLERANCE = 1.05
# Small enough to be counted in seconds each, large enough that start-up does not matter.
SCALE = 0.01
CASES = [
    *[(workload, case) for workload in ("W1", "W2", "W3", "W4") for case in ("server cursor", "client cursor")],
    ("random-W1", "client cursor"),
    ("fetch_parquet-W1", "procedure"),
    ("fetch_parquet-W2", "procedure"),
    ("fetch_duckdb-W2", "procedure"),
    ("fetch_duckdb-W3", "procedure"),
    ("go-to-row", "procedure"),
    *[(f"binds-{workload}", "module") for workload in ("W1", "W2", "W3", "W4")],
    ("point-query", "module"),
    ("point-read", "module"),
    ("script-1000", "module"),
    ("multi-row-W1", "module"),
    ("multi-row-W3", "module"),
    ("append-W1", "module"),
    ("append-W2", "module"),
    ("append-W2", "columns"),
    ("arrow-W2", "module"),
    ("open-close", "module"),
]
# Without its abbreviations the output is plain: an `ob=` line before the functions of a file of code, and lines of
# a position and a cost.
VALGRIND = ["valgrind", "--tool=callgrind", "--compress-strings=no", "--compress-pos=no",
            "--toggle-collect=mduckdb_bench_measured"]
COST = re.compile(r"^\d+ (\d+)$")

# Instructions per unit; `verdict` is ok, better, moved (more in the module, and the whole less), WORSE, NEW (not stored)
# or GONE (stored, not counted).
Row = collections.namedtuple("Row", "name kind counted stored verdict")


def instructions_by_object(lines):
    """The instructions that were spent in each file of code, by the file's name."""
    spent = collections.Counter()
    current = ""
    is_call = False
    for line in lines:
        if line.startswith("ob="):
            current = pathlib.PurePath(line[len("ob="):]).name
        elif line.startswith("calls="):
            is_call = True  # the next cost is the callee's, which is counted where it is spent
        elif found := COST.match(line):
            if not is_call:
                spent[current] += int(found.group(1))
            is_call = False
    return spent


def figures(lines, units):
    """All instructions per unit, and those in the module and in mshared."""
    spent = instructions_by_object(lines)
    ours = sum(count for name, count in spent.items() if name.startswith(("libmduckdb", "libmshared")))
    return {"all": round(sum(spent.values()) / units, 1), "module": round(ours / units, 1)}


def verdict(counted, stored):
    if counted is None:
        return "GONE"
    if stored is None:
        return "NEW"
    if counted > stored * TOLERANCE:
        return "WORSE"
    return "better" if counted * TOLERANCE < stored else "ok"


def compare(stored, counted, is_partial=False):
    """A row for each figure, the stored ones that were not counted among them unless only some were to be."""
    names = list(counted) if is_partial else list(dict.fromkeys([*counted, *stored]))
    rows = []
    for name in names:
        whole, module = (Row(name, kind, new, old, verdict(new, old)) for kind in ("all", "module")
                         for new, old in [(counted.get(name, {}).get(kind), stored.get(name, {}).get(kind))])
        if module.verdict == "WORSE" and whole.counted < whole.stored:
            module = module._replace(verdict="moved")
        rows += [whole, module]
    return rows


def failures(rows):
    return [row for row in rows if row.verdict not in ("ok", "better", "moved")]
