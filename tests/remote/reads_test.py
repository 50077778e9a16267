"""Procedures and SQL over s3://, http:// and https://: the rows, the requests, and objects that change."""

import os
import pathlib
import subprocess
import sys
import unittest
import urllib.parse

import duckdb

import http_servers
from remote_case import LARGE, RemoteCase, StoreCase

ROWS = "SELECT i AS id, 'né' || i AS name, (i * 1.5)::DECIMAL(10, 2) AS price, DATE '2024-03-15' + (i % 7)::INT AS day FROM range(3000) t(i)"
# Texts that cannot be compressed, so that a column has a known size.
NOISE = "hash(i * {n})::VARCHAR || hash(i * {n} + 1)::VARCHAR AS c{n}"


def wide_rows(rows):
    return "SELECT i AS id, " + ", ".join(NOISE.format(n=n) for n in range(1, 9)) + f" FROM range({rows}) t(i)"


class Answers:
    """What every kind of remote file must give: the rows and the requests. Subclasses say where `url(name)` is."""

    def check_rows(self, *arguments):
        """A call returns the rows that it returns for the local file; its requests are DuckDB's own for the query."""
        procedure, name, *others = arguments
        local = self.call(procedure, str(self.files / name), *others)
        self.assertEqual(self.call(procedure, self.url(name), *others), local)
        return local

    def count_requests(self, work):
        self.server.take_requests()
        work()
        return len(self.server.take_requests())

    def check_requests(self, statement, *arguments):
        engine = self.new_engine()
        of_duckdb = self.count_requests(lambda: engine.sql(statement).fetchall())
        of_call = self.count_requests(lambda: self.call(*arguments))
        of_sql = self.count_requests(lambda: self.execute(":memory:", statement))
        self.assertGreater(of_duckdb, 1)
        self.assertLessEqual(of_call, of_duckdb)
        self.assertLessEqual(of_sql, of_duckdb)

    def test_every_procedure_returns_the_rows_of_the_local_file(self):
        self.assertEqual(len(self.check_rows("fetch_parquet", "a.parquet")), 3000)
        self.check_rows("fetch_parquet", "a.parquet", '["name", "price"]', "id % 100 = 7", "20")
        self.check_rows("parquet_schema", "a.parquet")
        self.assertEqual(self.check_rows("parquet_count", "a.parquet", "id < 10"), [[10]])
        local = self.call("parquet_metadata", str(self.files / "a.parquet"))
        remote = self.call("parquet_metadata", self.url("a.parquet"))
        self.assertEqual([row[1:] for row in remote], [row[1:] for row in local])
        self.assertEqual({row[0] for row in remote}, {self.url("a.parquet")})

    def test_sql_of_a_database_returns_the_rows_of_the_local_file(self):
        query = "SELECT day, count(*), sum(price) FROM '{}' GROUP BY day ORDER BY day"
        self.assertEqual(self.last_rows(query.format(self.url("a.parquet"))),
                         self.sql(":memory:", query.format(self.files / "a.parquet")))

    def test_a_remote_database_can_be_attached(self):
        attached = f"ATTACH '{self.url('d.duckdb')}' AS d (READ_ONLY); SELECT sum(i)::INT FROM d.t"
        self.assertEqual(self.last_rows(attached), [[4950]])

    def test_a_call_makes_no_more_requests_than_duckdb_itself(self):
        url = self.url("a.parquet")
        self.check_requests(f"SELECT * FROM read_parquet('{url}')", "fetch_parquet", url)
        self.check_requests(f"SELECT name FROM read_parquet('{url}') WHERE id > 10 LIMIT 2",
                            "fetch_parquet", url, "name", "id > 10", "2")
        self.check_requests(f"SELECT count(*) FROM read_parquet('{url}')", "parquet_count", url)
        self.check_requests(f"SELECT * FROM read_parquet('{url}') LIMIT 0", "parquet_schema", url)
        self.check_requests(f"SELECT * FROM parquet_metadata('{url}')", "parquet_metadata", url)

    def test_of_a_large_file_only_the_named_column_is_read(self):
        size = (self.files / "wide.parquet").stat().st_size
        counted = "SELECT count(*) FROM '{}' WHERE c3 LIKE '%77%'"
        wanted = self.sql(":memory:", counted.format(self.files / "wide.parquet"))
        remote = counted.format(self.url("wide.parquet"))
        engine = self.new_engine()
        figures = {}
        for name, run in (("DuckDB", lambda: [list(row) for row in engine.sql(remote).fetchall()]),
                          ("call", lambda: self.call("parquet_count", self.url("wide.parquet"), "c3 LIKE '%77%'")),
                          ("sql", lambda: self.last_rows(remote))):
            self.server.take_requests()
            self.assertEqual(run(), wanted)
            requests = self.server.take_requests()
            figures[name] = (len(requests), sum(request.size for request in requests))
            self.assertLess(figures[name][1], size / 6)
        for name in ("call", "sql"):
            for figure, of_duckdb in zip(figures[name], figures["DuckDB"]):
                self.assertLessEqual(figure, of_duckdb, figures)
        return size, figures

    def test_an_object_that_changed_is_seen_by_the_next_statement(self):
        """One process, so that an engine that was kept would be found out."""
        for statement in ("SELECT count(*) FROM '{}'", "CALL parquet_count('{}')"):
            self.put_file("changing.parquet", "SELECT 1 AS i")
            with self.shell() as shell:
                seen = []
                for rows in (1, 5, 7):
                    # Another modification time for servers that have nothing but whole seconds.
                    self.put_file("changing.parquet", f"SELECT * FROM range({rows})", seconds=rows)
                    printed = shell.run(statement.format(self.url("changing.parquet")))
                    seen.append(int(printed.split()[-1]))
                self.assertEqual(seen, [1, 5, 7])


class FileCase(RemoteCase):
    """Files in a folder with a server."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.files = pathlib.Path(cls.home, "files")
        cls.files.mkdir()
        make_files(cls.files)

    def url(self, name):
        return f"{self.server.url}/{name}"

    def put_file(self, name, query, seconds=0):
        path = self.files / name
        duckdb.sql(f"COPY ({query}) TO '{path}.new' (FORMAT parquet)")
        os.utime(f"{path}.new", (1e9 + seconds, 1e9 + seconds))
        os.replace(f"{path}.new", path)


def make_files(folder):
    duckdb.sql(f"COPY ({ROWS}) TO '{folder}/a.parquet'")
    duckdb.sql(f"COPY ({wide_rows(60000)}) TO '{folder}/wide.parquet'")
    with duckdb.connect(f"{folder}/d.duckdb") as database:
        database.sql("CREATE TABLE t AS SELECT i::INT AS i FROM range(100) r(i)")
        # More than the test's limit of memory; the row number needs all of it.
        database.sql("CREATE VIEW sorted AS SELECT '0' AS first FROM (SELECT row_number() OVER (ORDER BY hash(i)) AS n, "
                     "repeat(hash(i)::VARCHAR, 5) AS t FROM range(1000000) r(i)) WHERE n = 1 AND t <> ''")


class HttpTest(FileCase, Answers):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server = cls.enter(http_servers.FileServer(cls.files))

    @unittest.skipUnless(LARGE, "MDUCKDB_REMOTE_GB=1 reads a file of 1 GB")
    def test_of_a_file_of_1_gb_one_column_is_read(self):
        # 8 columns of about 33 bytes
        duckdb.sql(f"COPY ({wide_rows(4000000)}) TO '{self.files}/wide.parquet'")
        size = (self.files / "wide.parquet").stat().st_size
        self.assertGreater(size, 1e9)
        print(self.test_of_a_large_file_only_the_named_column_is_read())


class HttpsTest(FileCase, Answers):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        tls, certificate = http_servers.make_certificate(cls.home)
        cls.server = cls.enter(http_servers.FileServer(cls.files, tls))
        # Procedures run no SET, and a secret names no certificate.
        cls().execute(":memory:", f"CREATE PERSISTENT SECRET own (TYPE http, SCOPE '{cls.server.url}/', VERIFY_SSL false)")
        cls.other = cls.enter(http_servers.FileServer(cls.files, tls))
        cls.trust = f"SET GLOBAL ca_cert_file = '{certificate}'; "

    def test_fetch_duckdb_reads_a_database_from_the_server(self):
        self.check_rows("fetch_duckdb", "d.duckdb", "t")
        self.assertEqual(self.call("fetch_duckdb", self.url("d.duckdb"), "t", "3", "--seconds", "100"), [[0], [1], [2]])

    def test_a_server_without_a_known_certificate_is_refused(self):
        self.other.take_requests()
        for arguments in (["call", "parquet_count", f"{self.other.url}/a.parquet"],
                          ["call", "fetch_duckdb", f"{self.other.url}/d.duckdb", "t"],
                          ["sql", ":memory:", f"FROM '{self.other.url}/a.parquet'"]):
            with self.subTest(arguments=arguments):
                self.assertIn("SSL peer certificate", self.error(*arguments))
        self.assertEqual(self.other.take_requests(), [])

    def test_a_database_trusts_the_certificate_that_it_is_told(self):
        count = f"SELECT count(*) FROM '{self.other.url}/a.parquet'"
        self.assertEqual(self.last_rows(self.trust + count), [[3000]])
        attach = f"ATTACH '{self.other.url}/d.duckdb' AS d (READ_ONLY); SELECT count(*) FROM d.t"
        self.assertEqual(self.last_rows(self.trust + attach), [[100]])


class S3Test(StoreCase, Answers):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server = cls.store.front
        cls.files = pathlib.Path(cls.home, "files")
        cls.files.mkdir()
        make_files(cls.files)
        for i in range(200):
            path = cls.files / f"year={2000 + i % 4}" / f"part-{i:03}.parquet"
            path.parent.mkdir(exist_ok=True)
            duckdb.sql(f"COPY (SELECT {i} AS part, i FROM range(10) r(i)) TO '{path}'")
        for path in cls.files.rglob("*.*"):
            cls.store.put(str(path.relative_to(cls.files)), path)

    def url(self, name):
        return f"s3://{self.store.bucket}/{name}"

    def put_file(self, name, query, seconds=0):
        del seconds
        self.put(name, query)

    def test_fetch_duckdb_reads_a_database_in_the_store(self):
        self.check_rows("fetch_duckdb", "d.duckdb", "t")
        url = self.url("d.duckdb")
        # The Python client takes the address for a path.
        command = [sys.executable, pathlib.Path(__file__).with_name("open_with_duckdb.py"), os.environ["MDUCKDB_DUCKDB_LIBRARY"],
                   url, f"{self.home}/.duckdb/extensions", f"{self.home}/.duckdb/stored_secrets", "SELECT * FROM t"]
        of_duckdb = self.count_requests(lambda: subprocess.run(command, check=True))
        self.assertGreater(of_duckdb, 1)
        self.assertLessEqual(self.count_requests(lambda: self.call("fetch_duckdb", url, "t")), of_duckdb)

    def test_what_fetch_duckdb_cannot_keep_in_memory_is_written_to_this_machine(self):
        rows = self.call("fetch_duckdb", self.url("d.duckdb"), "sorted", "1", "--memory-mb", "60", "--threads", "1")
        self.assertEqual(rows, [["0"]])

    def test_globs_and_partitions_have_the_rows_of_the_local_files(self):
        for condition in ("null", "year > 2001 AND part % 10 = 3"):
            rows = [self.call("fetch_parquet", place, "year, part, i", condition)
                    for place in (str(self.files / "year=*/*.parquet"), self.url("year=*/*.parquet"))]
            self.assertEqual(sorted(rows[0]), sorted(rows[1]))
        self.check_rows("parquet_count", "year=200*/part-0[0-4]*.parquet")

    def test_of_200_small_files_only_those_of_the_wanted_partition_are_read(self):
        self.server.take_requests()
        self.assertEqual(self.call("parquet_count", self.url("*/*.parquet"), "year = 2003"), [[500]])
        data = {urllib.parse.unquote(r.path) for r in self.server.take_requests() if r.range}
        others = {path for path in data if "/year=2003/" not in path}
        # The first file of all says which columns there are.
        self.assertEqual((len(data - others), len(others)), (50, 1))

    def test_200_small_files_need_no_more_requests_than_with_duckdb_itself(self):
        url = self.url("*/*.parquet")
        self.check_requests(f"SELECT * FROM read_parquet('{url}')", "fetch_parquet", url)

    def test_a_call_that_is_confined_to_folders_sends_no_request(self):
        self.server.take_requests()
        error = self.error("--allow-directory", self.folder, "call", "parquet_count", self.url("a.parquet"))
        self.assertIn("Error", error)
        self.assertEqual(self.server.take_requests(), [])

    def test_the_engine_of_a_database_keeps_what_it_has_read(self):
        query = f"SELECT sum(id) FROM '{self.url('a.parquet')}'"
        once = self.count_requests(lambda: self.execute(":memory:", query))
        thrice = self.count_requests(lambda: self.execute(":memory:", f"{query}; {query}; {query}"))
        self.assertLess(thrice, 2 * once)


if __name__ == "__main__":
    unittest.main()
