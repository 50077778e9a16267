"""What the tests with remote files share: a home with the extensions, and mduckdb-host in it."""

import glob
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import duckdb
import duckdb_extension_httpfs

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "host"))

import host_case
import servers

HOST = host_case.HOST
PACKAGES = pathlib.Path(duckdb_extension_httpfs.__file__).parent.parent
END = "the end of the answer"
LARGE = "MDUCKDB_REMOTE_GB" in os.environ


def extension_file(name):
    return glob.glob(str(PACKAGES / f"duckdb_extension_{name}" / "extensions" / "*" / f"{name}.duckdb_extension"))[0]


class Shell:
    """A process that answers statements, with a database of its own."""

    def __init__(self, database, environment, folder):
        self.process = subprocess.Popen([HOST, "--format", "csv", "shell", database], stdin=subprocess.PIPE, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=environment, cwd=folder)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()

    def send(self, sql):
        """Begins a statement; its answer must be awaited before the next."""
        self.process.stdin.write(f"{sql};\nSELECT '{END}' AS e;\n")
        self.process.stdin.flush()

    def wait(self):
        """What the statement printed, errors too. Raises EOFError when the process has ended."""
        lines = []
        for line in self.process.stdout:
            if line.strip() == END:
                return "".join(lines).removesuffix("e\n").strip("\n")
            lines.append(line)
        raise EOFError("".join(lines))

    def run(self, sql):
        self.send(sql)
        return self.wait()

    def rows(self, sql):
        """The rows of a query, as texts."""
        return [line.split(",") for line in self.run(sql).splitlines()[1:]]


class RemoteCase(host_case.HostCase):
    """A new home for each class, with the extensions installed as somebody without a network would."""

    # A server that is late costs DuckDB half a minute, after which it asks again.
    longest_run = 300

    @classmethod
    def setUpClass(cls):
        cls.home = tempfile.mkdtemp(prefix="mduckdb-home-")
        cls.addClassCleanup(shutil.rmtree, cls.home, ignore_errors=True)
        # No variable of this machine decides how DuckDB reaches a server.
        cls.environment = {name: value for name, value in os.environ.items()
                           if not name.startswith("AWS_") and not name.upper().endswith("_PROXY")}
        cls.environment["HOME"] = cls.home
        for name in ("httpfs", "ducklake", "postgres_scanner"):
            cls().execute(":memory:", f"INSTALL '{extension_file(name)}'")

    @classmethod
    def enter(cls, context):
        """Enters a context until the class ends; newer versions of unittest have one."""
        entered = context.__enter__()
        cls.addClassCleanup(context.__exit__, None, None, None)
        return entered

    def __init__(self, method="runTest"):
        super().__init__(method)
        # For the case without a test that prepares a class.
        self.folder = getattr(type(self), "home", None)

    def run_host(self, *arguments, **more):
        return super().run_host(*arguments, **{"env": self.environment, **more})

    def new_engine(self):
        """DuckDB itself, as somebody with the same home would start it."""
        engine = duckdb.connect(config={"extension_directory": f"{self.home}/.duckdb/extensions",
                                        "secret_directory": f"{self.home}/.duckdb/stored_secrets"})
        self.addCleanup(engine.close)
        return engine

    def call(self, *arguments, **more):
        return self.rows("call", *arguments, **more)

    def shell(self, database=":memory:"):
        return Shell(database, self.environment, self.folder)

    def last_rows(self, script):
        """The rows of the last statement of a script."""
        printed = self.output("--format", "json", "sql", ":memory:", script)
        return json.loads(printed[printed.rindex('{"columns"'):])["rows"]


class StoreCase(RemoteCase):
    """With an object store that every engine with this home knows."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.store = cls.enter(servers.ObjectStore())
        cls().make_secret()

    def make_secret(self, **more):
        self.execute(":memory:", self.store.make_secret("PERSISTENT SECRET", **more))

    def put(self, name, query, options=""):
        """An object with the rows of a query, and its local file."""
        path = self.path(name.replace("/", "-"))
        duckdb.sql(f"COPY ({query}) TO '{path}' (FORMAT parquet{options})")
        self.store.put(name, path)
        return f"s3://{self.store.bucket}/{name}", path
