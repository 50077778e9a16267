"""A lake whose catalog is in PostgreSQL and whose files are in an object store, and processes that work on it."""

import contextlib
import threading

import servers
from remote_case import StoreCase

ATTACH = "ATTACH 'ducklake:postgres:' AS lake (DATA_PATH 's3://lake/tables/', META_SECRET 'catalog')"


class LakeCase(StoreCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.catalog = cls.enter(servers.PostgreSQL())
        case = cls()
        case.execute(":memory:", cls.catalog.make_secret("PERSISTENT SECRET"))

    def setUp(self):
        super().setUp()
        with self.open("owner") as owner:
            owner.run("DROP TABLE IF EXISTS lake.t")
            owner.run("CREATE TABLE lake.t (writer VARCHAR, batch INTEGER, i BIGINT)")

    @contextlib.contextmanager
    def open(self, name):
        """A process of its own with the lake."""
        with self.shell(self.path(f"{name}.duckdb")) as shell:
            printed = shell.run(ATTACH)
            self.assertNotIn("Error", printed)
            yield shell

    def insert(self, shell, writer, batch, rows):
        """The answer."""
        return shell.run(f"INSERT INTO lake.t SELECT '{writer}', {batch}, i FROM range({rows}) r(i)")


def at_once(*functions):
    """Runs them in threads, and raises what any of them raised."""
    failures = []

    def run(function):
        try:
            function()
        except BaseException as failure:  # pylint: disable=broad-except
            failures.append(failure)

    threads = [threading.Thread(target=run, args=(function,)) for function in functions]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if failures:
        raise failures[0]
