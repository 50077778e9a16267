"""The clients that a user might choose instead, each in its usual manner: they read the same queries cell by cell or as Arrow
batches, and insert the same rows as parameters or through their appenders.

Each is one or two small programs in this folder, which read what to do from their arguments and from standard input, and
print DuckDB's version, the units that were read or stored and the seconds that it took. Those that cannot be built here,
that use another DuckDB or that store other rows are left out and reported."""

import functools
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys

import report

HERE = pathlib.Path(__file__).resolve().parent
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "mduckdb"
WORK = CACHE / "peers"
PIN_FILE = HERE.parents[1] / "scripts" / f"duckdb-{os.environ.get('MDUCKDB_DUCKDB') or '1.5'}.pin"
PIN = dict(line.split("=", 1) for line in PIN_FILE.read_text().splitlines() if "=" in line)
VERSION = PIN["DUCKDB_VERSION"]
DUCKDB = pathlib.Path(os.environ.get("DuckDB_ROOT") or CACHE / f"duckdb-{VERSION}")
# What the clients do: the groups of mduckdb-bench that do the same, and the cases of ours that are run beside them.
KINDS = {
    "cells": (("W1", "W2", "W3"), report.OURS),
    "parameters": (("multi-row-W1",), ("module",)),
    "append": (("append-W1", "append-W2"), ("module",)),
    "arrow": (("arrow-W1", "arrow-W2", "arrow-W3", "arrow-W4"), ("module", "streaming cursor")),
}
# How often the clients and our processes do everything, where that is more than once: the first time warms up, the fastest of
# the others counts. A stream of W4 takes 7 ms.
RUNS = {"append": 2, "arrow": 6}
# Each run takes most of a minute, with the making of the rows.
MOST_ROUNDS = {"parameters": 2, "append": 3}
# As many as those groups have.
PARAMETER_ROWS = 100_000
APPEND_ROWS = 614_400


def call(*words, cwd=None, **environment):
    subprocess.run([str(word) for word in words], cwd=cwd, check=True, stdout=sys.stderr,
                   env={**os.environ, **environment})


def copy(name):
    shutil.copytree(HERE / name, WORK / name, dirs_exist_ok=True)
    return WORK / name


def arrow_package():
    """As for the tests of the Arrow streams."""
    return re.search(r"pyarrow==[\w.]+", (HERE.parents[1] / "scripts" / "arrow-readers").read_text()).group()


def venv_python():
    arrow = arrow_package()
    venv = WORK / "python" / f"venv-{VERSION}"
    ready = venv / f"ready-{arrow}"
    if not ready.exists():
        call(sys.executable, "-m", "venv", "--clear", venv)
        call(venv / "bin" / "pip", "install", "-q", f"duckdb=={VERSION}", arrow)
        ready.touch()
    return venv / "bin" / "python"


def build_python():
    python, scripts = venv_python(), HERE / "python"

    def script(name, *modes):
        return lambda *arguments: [python, scripts / name, *arguments, *modes]

    return {"cells": {f"Python {mode}": script("read.py", mode) for mode in ("fetchall", "fetchmany")},
            "parameters": {"Python executemany": script("executemany.py")},
            "arrow": {f"pyarrow {mode}": script("arrow.py", mode, RUNS["arrow"]) for mode in ("to_arrow_reader", "to_arrow_table")}}


def node_package():
    """With the library of the pin, which names it by the same version."""
    if PIN["DUCKDB_LIBRARY_FROM"] != "npm":
        raise FileNotFoundError(f"no package for Node has DuckDB {VERSION}")
    return f"@duckdb/node-api@{PIN['DUCKDB_LIBRARY_VERSION']}"


def build_node():
    package = node_package()
    folder = copy("node")
    ready = folder / f"ready-{PIN['DUCKDB_LIBRARY_VERSION']}"
    if not ready.exists():
        call("npm", "install", "--silent", "--no-save", "--prefix", folder, package)
        ready.touch()
    node = ["node", "--max-old-space-size=14000"]
    return {"cells": {f"Node {mode}": lambda db, mode=mode: [*node, folder / "read.mjs", db, mode]
                      for mode in ("getRows", "yieldRows")},
            "append": {"Node DuckDBAppender": lambda: [*node, folder / "append.mjs"]}}


def build_go():
    folder = copy("go")
    lib = DUCKDB / "lib"
    call("go", "build", "-mod=mod", "-tags=duckdb_use_lib", "-o", "peer", ".", cwd=folder, CGO_ENABLED="1",
         CGO_LDFLAGS=f"-L{lib} -lduckdb -Wl,-rpath,{lib}")
    return {"cells": {"Go Scan into any": lambda db: [folder / "peer", db]},
            "append": {"Go AppendRow": lambda: [folder / "peer", "append"]}}


def build_rust():
    folder = copy("rust")
    lib = DUCKDB / "lib"
    call("cargo", "build", "-q", "--release", cwd=folder, DUCKDB_LIB_DIR=str(lib),
         DUCKDB_INCLUDE_DIR=str(DUCKDB / "include"), RUSTFLAGS=f"-C link-arg=-Wl,-rpath,{lib}")
    program = folder / "target" / "release" / "peer"
    return {"cells": {"Rust get::<Value>": lambda db: [program, db]},
            "append": {"Rust append_rows": lambda: [program, "append"]}}


def build_jdbc():
    folder = copy("jdbc")
    jar = folder / f"duckdb_jdbc-{VERSION}.0.jar"
    if not jar.exists():
        call("mvn", "-q", "dependency:copy", f"-Dartifact=org.duckdb:duckdb_jdbc:{VERSION}.0",
             f"-DoutputDirectory={folder}")
    call("javac", "-cp", jar, "-d", folder, folder / "Read.java", folder / "Append.java")
    java = ["java", "-cp", f"{folder}:{jar}"]
    return {"cells": {"JDBC getObject": lambda db: [*java, "Read", db]},
            "append": {"JDBC DuckDBAppender": lambda: [*java, "Append"]}}


def build_all(left_out):
    """{kind: {client: command of its arguments}}; those that cannot be built are added to `left_out`."""
    WORK.mkdir(parents=True, exist_ok=True)
    programs = {kind: {} for kind in KINDS}
    for build in (build_python, build_node, build_go, build_rust, build_jdbc):
        try:
            for kind, clients in build().items():
                programs[kind].update(clients)
        except (OSError, subprocess.CalledProcessError) as error:
            left_out.append(f"{build.__name__[6:]}: {error}")
    return programs


def run_client(words, text):
    """DuckDB's version, units, seconds."""
    output = subprocess.run([str(word) for word in words], input=text, check=True, capture_output=True, text=True).stdout
    version, units, seconds = output.split()
    return version.lstrip("v"), int(units), float(seconds)


def nanoseconds_of(words, text, expected=None):
    """Those of a unit. A ValueError where it is another DuckDB, or other units than expected."""
    version, units, seconds = run_client(words, text)
    if version != VERSION:
        raise ValueError(f"DuckDB {version}")
    if units == 0 or units != (expected or units):
        raise ValueError(f"{units} units instead of {expected or 'some'}")
    return seconds / units * 1e9


def append_statements(database, query, rows):
    """A line each: what attaches the database and makes the tables, the query of the rows, and the query of DuckDB's version
    and of how many rows were stored, which is 0 if they are not the same."""
    source = f"SELECT * FROM (FROM ({query}) UNION ALL FROM ({query})) LIMIT {rows}"
    make = (f"ATTACH '{database}' AS source (READ_ONLY); SET search_path = 'memory.main,source.main'; "
            + "; ".join(f"CREATE TABLE {table} AS FROM ({source}) LIMIT 0" for table in ("items", "warm_up")))
    verify = ("SELECT version(), if(stored = given, count, 0) FROM (SELECT count(*) AS count, sum(hash(i)) AS stored FROM items i), "
              f"(SELECT sum(hash(s)) AS given FROM ({source}) s)")
    return f"{make}\n{source}\n{verify}\n"


def client_run(kind, command, group, get_query, scale):
    """What runs a client for the figure of one run."""
    database, sql = get_query(group.removeprefix("multi-row-").removeprefix("append-").removeprefix("arrow-"))
    if kind == "parameters":
        rows = max(1, int(PARAMETER_ROWS * scale))
        return functools.partial(nanoseconds_of, command(database, rows), sql, rows)
    if kind == "append":
        rows = max(1, int(APPEND_ROWS * scale))
        return functools.partial(nanoseconds_of, command(), append_statements(database, sql, rows), rows)
    return functools.partial(nanoseconds_of, command(database), sql)


def run_rounds(plans, rounds):
    """{key: figures} of the plans {key: (what gives a figure, the most rounds of it)}, each round in an order of its
    own, and {key: error} of those that failed once."""
    figures, failed = {key: [] for key in plans}, {}
    for number in range(rounds):
        print(f"other clients, round {number + 1} of {rounds} ...", file=sys.stderr, flush=True)
        keys = [key for key, (_, most) in plans.items() if number < most and key not in failed]
        random.Random(number).shuffle(keys)
        for key in keys:
            try:
                figures[key].append(plans[key][0]())
            except (ValueError, subprocess.CalledProcessError) as error:
                failed[key] = error
    return {key: done for key, done in figures.items() if key not in failed}, failed


def make_plans(programs, get_query, run_ours, rounds, names, scale):
    """{(client or our case, group): (function that measures one run in ns per unit, maximum number of rounds)}"""
    plans = {}
    for kind, (groups, ours) in KINDS.items():
        most = min(rounds, MOST_ROUNDS.get(kind, rounds))
        for group in (group for group in groups if group in names and programs[kind]):
            plans.update({(case, group): (functools.partial(run_ours, group, case, RUNS.get(kind, 1)), most) for case in ours})
            plans.update({(client, group): (client_run(kind, command, group, get_query, scale), most)
                          for client, command in programs[kind].items()})
    return plans


def measure(get_query, run_ours, rounds, names, scale):
    """Rounds of all clients and of our cases, in processes of their own, over those of `names` that they have too.
    `get_query(workload)` gives database and query, `run_ours(group, case, runs)` the nanoseconds a unit of the fastest of so
    many runs in one process, without the first where there are more."""
    known = [group for groups, _ in KINDS.values() for group in groups]
    if not set(known) & set(names):
        sys.exit("--peers: the other clients have these only: " + ", ".join(known))
    left_out = []
    plans = make_plans(build_all(left_out), get_query, run_ours, rounds, names, scale)
    figures, failed = run_rounds(plans, rounds)
    left_out += [f"{client}, {what}: {error}" for (client, what), error in failed.items()]
    for line in left_out:
        print(f"left out: {line}", file=sys.stderr)
    cells = KINDS["cells"][0]
    return report.Peers({key: done for key, done in figures.items() if key[1] in cells},
                        {key: done for key, done in figures.items() if key[1] not in cells}, left_out)


def first_line(*words):
    try:
        done = subprocess.run(words, capture_output=True, text=True, check=True)
        return (done.stdout + done.stderr).splitlines()[0]
    except (OSError, subprocess.CalledProcessError, IndexError):
        return ""


def describe():
    """The languages' versions."""
    lines = [first_line(sys.executable, "--version"), f"Node {first_line('node', '--version')}",
             first_line("java", "-version"), first_line("go", "version"), first_line("rustc", "--version")]
    return ", ".join(line for line in lines if line and not line.endswith(" "))
