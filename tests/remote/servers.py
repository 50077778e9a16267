"""The servers of the tests with remote files, each on a free port of the loopback interface and with a folder of its own."""

import contextlib
import json
import os
import pathlib
import pwd
import secrets
import shutil
import socket
import subprocess
import sys
import tempfile
import time

import boto3

import http_servers

GUARD = pathlib.Path(__file__).with_name("guard.py")
LONGEST_START = 60
MOTO = """
import logging, time
from moto.server import ThreadedMotoServer
logging.getLogger("werkzeug").setLevel(logging.ERROR)
server = ThreadedMotoServer(ip_address="127.0.0.1", port=0, verbose=False)
server.start()
print(server.get_host_and_port()[1], flush=True)
time.sleep(1e9)
"""


@contextlib.contextmanager
def guarded(command, user=None, **more):
    """A server's process, which ends with the context or with this process."""
    with subprocess.Popen([sys.executable, GUARD, "-" if user is None else str(user), *command], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True, **more) as process:
        try:
            yield process
        finally:
            process.stdin.close()
            process.wait()


class ObjectStore:
    """An S3 server that checks signatures, with one user and one bucket, behind a front that counts the requests."""

    bucket = "lake"
    region = "us-east-1"

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            # The first four actions, below, need no signature.
            process = stack.enter_context(guarded([sys.executable, "-c", MOTO], stderr=subprocess.DEVNULL,
                                                  env={**os.environ, "INITIAL_NO_AUTH_ACTION_COUNT": "4"}))
            port = int(process.stdout.readline())
            self.key, self.secret = self._make_user(f"http://127.0.0.1:{port}")
            self.client = boto3.client("s3", endpoint_url=f"http://127.0.0.1:{port}", region_name=self.region,
                                       aws_access_key_id=self.key, aws_secret_access_key=self.secret)
            self.front = stack.enter_context(http_servers.Front(port))
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *_):
        self.client.close()
        self._stack.close()

    def _make_user(self, url):
        access = {"endpoint_url": url, "region_name": self.region, "aws_access_key_id": "nobody",
                  "aws_secret_access_key": "nothing"}
        with contextlib.closing(boto3.client("iam", **access)) as users:
            users.create_user(UserName="reader")
            everything = {"Effect": "Allow", "Action": "s3:*", "Resource": "*"}
            users.put_user_policy(UserName="reader", PolicyName="all",
                                  PolicyDocument=json.dumps({"Version": "2012-10-17", "Statement": [everything]}))
            made = users.create_access_key(UserName="reader")["AccessKey"]
        with contextlib.closing(boto3.client("s3", **access)) as store:
            store.create_bucket(Bucket=self.bucket)
        return made["AccessKeyId"], made["SecretAccessKey"]

    def put(self, name, path):
        with open(path, "rb") as file:
            self.client.put_object(Bucket=self.bucket, Key=name, Body=file)

    def make_secret(self, kind="SECRET", key=None, secret=None, more=""):
        """The statement that makes the store known to DuckDB."""
        return (f"CREATE OR REPLACE {kind} store (TYPE s3, KEY_ID '{key or self.key}', SECRET '{secret or self.secret}', "
                f"ENDPOINT '{self.front.endpoint}', REGION '{self.region}', URL_STYLE 'path', USE_SSL false{more})")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class PostgreSQL:
    """A database server in a folder of its own, run by an ordinary user: PostgreSQL refuses root."""

    user = "lake"

    def __enter__(self):
        self.password = secrets.token_hex(8)
        self._user = pwd.getpwnam("nobody").pw_uid if os.geteuid() == 0 else None
        with contextlib.ExitStack() as stack:
            self._folder = tempfile.mkdtemp(prefix="mduckdb-postgres-")
            stack.callback(shutil.rmtree, self._folder, ignore_errors=True)
            self._initialise()
            stack.enter_context(self._start())
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *_):
        self._stack.close()

    def _program(self, name):
        return os.path.join(os.environ["MDUCKDB_POSTGRES"], name)

    def _initialise(self):
        password = os.path.join(self._folder, "password")
        with open(password, "w", encoding="utf-8") as file:
            file.write(self.password)
        if self._user is not None:
            for path in (self._folder, password):
                os.chown(path, self._user, self._user)
        self.data = os.path.join(self._folder, "data")
        subprocess.run([self._program("initdb"), "-D", self.data, "-U", self.user, "--pwfile", password, "-A",
                        "scram-sha-256", "-E", "UTF8", "--locale", "C", "--no-sync"], check=True, cwd=self._folder,
                       stdout=subprocess.DEVNULL, user=self._user)

    @contextlib.contextmanager
    def _start(self):
        """A free port can be taken by somebody else before the server takes it; then another one is tried."""
        for _ in range(10):
            self.port = free_port()
            command = [self._program("postgres"), "-D", self.data, "-c", f"port={self.port}", "-c",
                       "listen_addresses=127.0.0.1", "-c", "unix_socket_directories=", "-c", "fsync=off"]
            with open(os.path.join(self._folder, "log"), "w", encoding="utf-8") as log, \
                    guarded(command, self._user, cwd=self._folder, stderr=log) as process:
                if self._wait(process):
                    yield
                    return
        with open(os.path.join(self._folder, "log"), encoding="utf-8") as log:
            raise RuntimeError(f"PostgreSQL does not start: {log.read()}")

    def _wait(self, process):
        end = time.monotonic() + LONGEST_START
        ready = [self._program("pg_isready"), "-q", "-h", "127.0.0.1", "-p", str(self.port)]
        while time.monotonic() < end and process.poll() is None:
            if subprocess.run(ready, check=False).returncode == 0:
                return process.poll() is None
            time.sleep(0.05)
        return False

    def query(self, sql):
        """What psql prints, without ornaments."""
        return subprocess.run([self._program("psql"), "-h", "127.0.0.1", "-p", str(self.port), "-U", self.user, "-d", "postgres",
                               "-XAtc", sql], check=True, capture_output=True, text=True,
                              env={**os.environ, "PGPASSWORD": self.password}).stdout

    def make_secret(self, kind="SECRET"):
        """The statement that makes the server known to DuckDB."""
        return (f"CREATE OR REPLACE {kind} catalog (TYPE postgres, HOST '127.0.0.1', PORT {self.port}, "
                f"DATABASE 'postgres', USER '{self.user}', PASSWORD '{self.password}')")
