"""Compares what mduckdb-host delivers of Parquet files with what DuckDB itself reads.

For every file: the same column names, row count and cells, or DuckDB's error text and exit status 1.
The rules by which a cell may differ from DuckDB's text are those of the procedures: times are cut to
milliseconds, DECIMAL arrives as a double, and what is no valid date or time arrives as null. The module
that reads cells without casts is held to its word only for the types that need none.
"""

import argparse
import datetime
import json
import math
import os
import pathlib
import struct
import subprocess
import sys

BOOLEAN, FLOAT, DOUBLE, TIMESTAMP, DATE, TIME, VARCHAR, BLOB, DECIMAL = 1, 10, 11, 12, 13, 14, 17, 18, 19
INTEGERS = range(2, 10)
TIMESTAMPS = (TIMESTAMP, 20, 21, 22, 31)
TIMES = (TIME, 30, 39)
UNCAST = (*range(1, 15), VARCHAR, BLOB)
TIME_LIMIT = 120

DAY = 86_400_000_000
EARLIEST = -9_223_372_022_400_000_000  # DuckDB's first timestamp; its last number is infinity
YEARS = range(-(1 << 22), 1 << 22)  # what fits into the packed date
EPOCH = datetime.date(1970, 1, 1).toordinal()
CYCLE = 146_097  # days of 400 years


def date_text(days):
    """Any day of the Gregorian calendar, extended both ways; year 0 is 1 BC."""
    cycles, day = divmod(days + EPOCH - 1, CYCLE)
    date = datetime.date.fromordinal(day + 1)
    year = date.year + 400 * cycles
    return f"{year:04}-{date.month:02}-{date.day:02}" if year in YEARS else None


def time_text(micros):
    if not 0 <= micros <= DAY:
        return None
    seconds, micros = divmod(micros, 1_000_000)
    return f"{seconds // 3600:02}:{seconds // 60 % 60:02}:{seconds % 60:02}.{micros // 1000:03}"


def timestamp_text(micros):
    if not EARLIEST <= micros < (1 << 63) - 1:
        return None
    days, micros = divmod(micros, DAY)
    return f"{date_text(days)} {time_text(micros)}"


def double(cell):
    return float(cell.replace("Infinity", "inf")) if isinstance(cell, str) else float(cell)


def single(number):
    return struct.unpack("f", struct.pack("f", number))[0]


def same_double(cell, number, tolerance=0.0):
    return (math.isnan(cell) and math.isnan(number)) or math.isclose(cell, number, rel_tol=tolerance, abs_tol=0.0)


def is_same(kind, cell, reference):
    if reference is None:
        return cell is None
    if kind in TIMESTAMPS:
        return cell == timestamp_text(reference)
    if kind in TIMES:
        return cell == time_text(reference)
    if kind == DATE:
        days = abs(reference)
        return cell == (None if days == (1 << 31) - 1 else date_text(reference))
    if cell is None:
        return False
    if kind == BOOLEAN:
        return cell is (reference == "true")
    if kind in INTEGERS:
        return type(cell) is int and cell == int(reference)
    if kind == FLOAT:
        return same_double(single(double(cell)), single(float(reference)))
    if kind == DOUBLE:
        return same_double(double(cell), float(reference))
    if kind == DECIMAL:
        return same_double(double(cell), float(reference), 1e-15)
    if kind == BLOB:
        return cell == "\\x" + reference
    return cell == reference


def run(*command):
    environment = dict(os.environ, TZ="UTC")
    try:
        done = subprocess.run(command, capture_output=True, env=environment, timeout=TIME_LIMIT)
        return done.returncode, done.stdout, done.stderr.decode(errors="replace").strip()
    except subprocess.TimeoutExpired:
        return None, b"", f"no answer within {TIME_LIMIT} seconds"


def core(error):
    """An error text without what differs from process to process: the addresses of a stack trace."""
    return error.split("\n\nStack Trace")[0].strip()


def compare_cells(answer, reference, is_cast):
    """Differences in the cells, as text; one a column at the most."""
    names = [column["name"] for column in reference["columns"]]
    for index, column in enumerate(reference["columns"]):
        kind = column["type"]
        if not is_cast and kind not in UNCAST:
            continue
        for number, (row, expected) in enumerate(zip(answer["rows"], reference["rows"])):
            if not is_same(kind, row[index], expected[index]):
                yield (f"column {names[index]!r} (type {kind}), row {number}: {row[index]!r}, "
                       f"where DuckDB has {expected[index]!r}")
                break


def compare(answer, reference, is_cast):
    names = [[column["name"] for column in side["columns"]] for side in (answer, reference)]
    if names[0] != names[1]:
        yield f"columns {names[0]}, where DuckDB has {names[1]}"
        return
    counts = [answer["row_count"], len(answer["rows"]), reference["row_count"]]
    if len(set(counts)) != 1:
        yield "row count {0}, rows {1}, where DuckDB has {2}".format(*counts)
        return
    yield from compare_cells(answer, reference, is_cast)


def check(programs, module, path):
    """Outcome in a word and the differences."""
    is_cast = "casts" in pathlib.Path(module).name
    code, output, error = run(programs / "mduckdb-host", "--module", module, "--format", "json",
                              "call", "fetch_parquet", path)
    if code not in (0, 1):
        return "crashed", [f"exit status {code}: {error[-2000:]}"]
    reference_code, reference_output, reference_error = run(programs / "duckdb-reference", path)
    if code == 1:
        if reference_code != 1:
            # A cell that only the reference's casts to text can read is not a fault of a module without them.
            return "refused", [f"reports {error!r}, where DuckDB reads the file"]
        if core(error) != core(reference_error):
            return "refused", [f"reports {core(error)!r}, where DuckDB says {core(reference_error)!r}"]
        return "refused", []
    if reference_code != 0:
        # More cells can be read without casts than with them.
        return "read", [] if not is_cast else [f"read, where DuckDB says {core(reference_error)!r}"]
    answer, reference = json.loads(output), json.loads(reference_output)
    return "read", list(compare(answer, reference, is_cast))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--module", action="append")
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--verbose", action="store_true")
    arguments = parser.parse_args()
    files = sorted(path for path in arguments.folder.rglob("*")
                   if path.is_file() and ".parquet" in path.name.lower())
    if not files:
        sys.exit(f"no Parquet file in {arguments.folder}")
    bad = 0
    for module in arguments.module or ["mduckdb_casts", "mduckdb"]:
        counts = {}
        for path in files:
            outcome, differences = check(arguments.programs, module, path)
            counts[outcome] = counts.get(outcome, 0) + 1
            bad += bool(differences)
            if differences or arguments.verbose:
                print(f"{module}: {path}: {outcome}")
            for difference in differences:
                print(f"    {difference}")
        print(f"{module}: {len(files)} files: " + ", ".join(f"{count} {word}" for word, count in sorted(counts.items())))
    print(f"{bad} differences" if bad else "no differences")
    sys.exit(1 if bad else 0)


main()
