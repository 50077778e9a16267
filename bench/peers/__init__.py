"""The clients that a user would take instead, each reading the same queries cell by cell in its usual manner.

Each is one small program under this folder that takes the database as its argument and the query from standard
input, and prints the cells that it read and the seconds from handing in the query to the last cell. Those that
cannot be built here are left out, and said so."""

import os
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "mduckdb"
WORK = CACHE / "peers"
PIN = dict(line.strip().split("=", 1) for line in open(HERE.parents[1] / "scripts" / "duckdb.pin") if "=" in line)
VERSION = PIN["DUCKDB_VERSION"]
DUCKDB = CACHE / f"duckdb-{VERSION}"
WORKLOADS = ("W1", "W2", "W3")


def call(*words, cwd=None, **environment):
    subprocess.run([str(word) for word in words], cwd=cwd, check=True, stdout=sys.stderr,
                   env={**os.environ, **environment})


def copy(name):
    shutil.copytree(HERE / name, WORK / name, dirs_exist_ok=True)
    return WORK / name


def build_python():
    venv = WORK / "python" / "venv"
    if not venv.exists():
        call(sys.executable, "-m", "venv", venv)
        call(venv / "bin" / "pip", "install", "-q", f"duckdb=={VERSION}")
    script = HERE / "python" / "read.py"
    return {f"Python {mode}": lambda db, mode=mode: [venv / "bin" / "python", script, db, mode]
            for mode in ("fetchall", "fetchmany")}


def build_node():
    folder = copy("node")
    if not (folder / "node_modules").exists():
        call("npm", "install", "--silent", "--no-save", "--prefix", folder, f"@duckdb/node-api@{PIN['DUCKDB_NPM_VERSION']}")
    return {"Node getRows": lambda db: ["node", "--max-old-space-size=14000", folder / "read.mjs", db]}


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
    jar = folder / "duckdb_jdbc.jar"
    if not jar.exists():
        call("mvn", "-q", "dependency:copy", f"-Dartifact=org.duckdb:duckdb_jdbc:{VERSION}.0",
             f"-DoutputDirectory={folder}", "-Dmdep.stripVersion=true")
    call("javac", "-d", folder, folder / "Read.java")
    return {"JDBC getObject": lambda db: ["java", "-cp", f"{folder}:{jar}", "Read", db]}


def build_all():
    WORK.mkdir(parents=True, exist_ok=True)
    clients = {}
    for build in (build_python, build_node, build_go, build_rust, build_jdbc):
        try:
            clients.update(build())
        except (OSError, subprocess.CalledProcessError) as error:
            print(f"left out: {build.__name__[6:]}: {error}", file=sys.stderr)
    return clients


def sql_of(workload, scale):
    if workload == "W1":
        return ("SELECT i::INTEGER AS a, i * 1.5::DOUBLE AS b, i::BIGINT AS c, 'str' || i AS d, "
                f"(i % 100)::SMALLINT AS e FROM range({int(2_000_000 * scale)}) t(i)")
    return {"W2": "SELECT * FROM orders", "W3": "SELECT * FROM texts"}[workload]


def measure(folder, rounds, scale):
    """[(client, workload, [nanoseconds a cell of each round])], rounds interleaved."""
    database = next(pathlib.Path(folder).glob("data-*.duckdb"))
    clients = build_all()
    figures = {(client, workload): [] for client in clients for workload in WORKLOADS}
    for _ in range(rounds):
        for (client, workload), rounds_done in figures.items():
            output = subprocess.run([str(word) for word in clients[client](str(database))],
                                    input=sql_of(workload, scale), check=True, capture_output=True, text=True).stdout
            cells, seconds = output.split()
            rounds_done.append(float(seconds) / int(cells) * 1e9)
    return [(client, workload, done) for (client, workload), done in figures.items()]


def table(rows, figures):
    """Delivery: total less the bare drain of the same workload, minima, beside our cursors'."""
    lines = ["| client | " + " | ".join(f"{w}, ns a cell" for w in WORKLOADS) + " |",
             "|---|" + "---:|" * len(WORKLOADS)]
    ours = {case: [f"{figures.delivery(w, case):.0f}" if figures.has(w, case) else "" for w in WORKLOADS]
            for case in ("server cursor", "client cursor", "vectors", "value loop")}
    for case, cells in ours.items():
        lines.append(f"| {case} | " + " | ".join(cells) + " |")
    for client in dict.fromkeys(client for client, _, _ in rows):
        cells = [min(done) - figures.nanoseconds(w, "drain") for w in WORKLOADS
                 for c, workload, done in rows if c == client and workload == w]
        lines.append(f"| {client} | " + " | ".join(f"{cell:.0f}" for cell in cells) + " |")
    return "\n".join(lines)
