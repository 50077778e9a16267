"""The clients that a user might choose instead, each reading the same queries cell by cell in its usual manner.

Each is one small program in this folder. It reads the database from its argument and the query from standard input, and prints DuckDB's version, the cells that it read and the seconds from handing in the query to the last cell.
Those that cannot be built here, or that use another DuckDB, are left out and reported."""

import functools
import os
import pathlib
import random
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
WORKLOADS = ("W1", "W2", "W3")
PARAMETER_ROWS = 100_000
# Each run takes most of a minute.
EXECUTEMANY_ROUNDS = 2


def packed_version():
    """The version as the Go and Rust packages have it within theirs: 10506 for 1.5.6."""
    major, minor, patch = VERSION.split(".")
    return f"{major}{int(minor):02}{int(patch):02}"


def call(*words, cwd=None, **environment):
    subprocess.run([str(word) for word in words], cwd=cwd, check=True, stdout=sys.stderr,
                   env={**os.environ, **environment})


def copy(name):
    shutil.copytree(HERE / name, WORK / name, dirs_exist_ok=True)
    return WORK / name


def venv_python():
    venv = WORK / "python" / f"venv-{VERSION}"
    if not (venv / "ready").exists():
        call(sys.executable, "-m", "venv", "--clear", venv)
        call(venv / "bin" / "pip", "install", "-q", f"duckdb=={VERSION}")
        (venv / "ready").touch()
    return venv / "bin" / "python"


def build_python():
    python = venv_python()
    return {f"Python {mode}": lambda db, mode=mode: [python, HERE / "python" / "read.py", db, mode]
            for mode in ("fetchall", "fetchmany")}


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
    return {f"Node {mode}": lambda db, mode=mode: ["node", "--max-old-space-size=14000", folder / "read.mjs", db, mode]
            for mode in ("getRows", "yieldRows")}


def build_go():
    folder = copy("go")
    lib = DUCKDB / "lib"
    call("go", "build", "-mod=mod", "-tags=duckdb_use_lib", "-o", "peer", ".", cwd=folder, CGO_ENABLED="1",
         CGO_LDFLAGS=f"-L{lib} -lduckdb -Wl,-rpath,{lib}")
    return {"Go Scan into any": lambda db: [folder / "peer", db]}


def build_rust():
    folder = copy("rust")
    lib = DUCKDB / "lib"
    call("cargo", "build", "-q", "--release", cwd=folder, DUCKDB_LIB_DIR=str(lib),
         DUCKDB_INCLUDE_DIR=str(DUCKDB / "include"), RUSTFLAGS=f"-C link-arg=-Wl,-rpath,{lib}")
    return {"Rust get::<Value>": lambda db: [folder / "target" / "release" / "peer", db]}


def build_jdbc():
    folder = copy("jdbc")
    jar = folder / f"duckdb_jdbc-{VERSION}.0.jar"
    if not jar.exists():
        call("mvn", "-q", "dependency:copy", f"-Dartifact=org.duckdb:duckdb_jdbc:{VERSION}.0",
             f"-DoutputDirectory={folder}")
    call("javac", "-d", folder, folder / "Read.java")
    return {"JDBC getObject": lambda db: ["java", "-cp", f"{folder}:{jar}", "Read", db]}


def build_all(left_out):
    """{client: command of a database}; the others are added to `left_out`."""
    WORK.mkdir(parents=True, exist_ok=True)
    clients = {}
    for build in (build_python, build_node, build_go, build_rust, build_jdbc):
        try:
            clients.update(build())
        except (OSError, subprocess.CalledProcessError) as error:
            left_out.append(f"{build.__name__[6:]}: {error}")
    return clients


def run_client(words, sql):
    """DuckDB's version, units, seconds."""
    output = subprocess.run([str(word) for word in words], input=sql, check=True, capture_output=True, text=True).stdout
    version, units, seconds = output.split()
    return version.lstrip("v"), int(units), float(seconds)


def keep_right_versions(clients, database, left_out):
    """Those that bring the pinned DuckDB."""
    right = {}
    for client, command in clients.items():
        version = run_client(command(database), "SELECT 1 AS one FROM range(20000)")[0]
        if version == VERSION:
            right[client] = command
        else:
            left_out.append(f"{client}: DuckDB {version}")
    return right


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


def measure(get_query, run_ours, rounds, names, scale):
    """Rounds of all clients and of our cases, in processes of their own, over those of `names` that there are.
    `get_query(workload)` gives database and query, `run_ours(group, case)` the nanoseconds a unit of one run."""
    queries = {workload: get_query(workload) for workload in WORKLOADS if workload in names}
    has_rows = "multi-row-W1" in names
    if not queries and not has_rows:
        sys.exit("--peers: the other clients read " + ", ".join(WORKLOADS) + " only")
    rows_database, rows_query = get_query("W1")
    left_out = []
    clients = keep_right_versions(build_all(left_out), rows_database, left_out)

    def run_theirs(client, workload):
        database, sql = queries[workload]
        _, cells, seconds = run_client(clients[client](database), sql)
        return seconds / cells * 1e9

    def run_executemany():
        words = [venv_python(), HERE / "python" / "executemany.py", rows_database, int(PARAMETER_ROWS * scale)]
        _, rows, seconds = run_client(words, rows_query)
        return seconds / rows * 1e9

    plans = {(case, workload): (functools.partial(run_ours, workload, case), rounds)
             for case in report.OURS for workload in queries}
    plans.update({(client, workload): (functools.partial(run_theirs, client, workload), rounds)
                  for client in clients for workload in queries})
    if has_rows and "Python fetchall" in clients:
        plans["module", "rows"] = (functools.partial(run_ours, "multi-row-W1", "module"), EXECUTEMANY_ROUNDS)
        plans["Python executemany", "rows"] = (run_executemany, EXECUTEMANY_ROUNDS)
    figures, failed = run_rounds(plans, rounds)
    left_out += [f"{client}, {what}: {error}" for (client, what), error in failed.items()]
    for line in left_out:
        print(f"left out: {line}", file=sys.stderr)
    return report.Peers({key: done for key, done in figures.items() if key[1] != "rows"},
                        {client: done for (client, what), done in figures.items() if what == "rows"}, left_out)


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
