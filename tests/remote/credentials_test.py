"""Stored secrets: who uses them, what wrong ones give, and where they never appear."""

import os
import unittest

import duckdb

from remote_case import StoreCase

EXPIRED = b"""<?xml version="1.0" encoding="UTF-8"?>
<Error><Code>ExpiredToken</Code><Message>The provided token has expired.</Message></Error>"""


class CredentialsTest(StoreCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        case = cls()
        cls.url, _ = case.put("private.parquet", "SELECT i FROM range(42) r(i)")
        with duckdb.connect(case.path("private.duckdb")) as database:
            database.sql("CREATE TABLE t AS SELECT 42 AS i")
        cls.store.put("private.duckdb", case.path("private.duckdb"))
        cls.database_url = cls.url.replace("parquet", "duckdb")

    def setUp(self):
        super().setUp()
        self.make_secret()
        self.secrets = [self.store.secret]

    def duckdb_error(self):
        """DuckDB's own text for the object."""
        with self.assertRaises(duckdb.Error) as raised:
            self.new_engine().sql(f"SELECT count(*) FROM '{self.url}'").fetchall()
        return str(raised.exception).split("\n\nLINE 1:")[0].rstrip()

    def check_failure(self, *parts):
        """Procedures and SQL give DuckDB's text, which contains the parts, and none contains a secret."""
        of_duckdb = self.duckdb_error()
        of_call = self.error("call", "parquet_count", self.url).rstrip()
        of_sql = self.error("sql", ":memory:", f"SELECT count(*) FROM '{self.url}'").rstrip()
        for error in (of_call, of_sql):
            # The place in the statement may follow.
            self.assertEqual(error.split("\n\nLINE 1:")[0], of_duckdb)
        of_open = self.error("call", "fetch_duckdb", self.database_url, "t")
        self.assertIn("Unable to open DuckDB database.\n", of_open)
        for part in parts:
            self.assertIn(part, of_duckdb)
            self.assertIn(part, of_open)
        for secret in self.secrets:
            self.assertNotIn(secret, of_call + of_sql + of_open)

    def test_a_stored_secret_is_used_by_procedures_and_databases_without_a_further_step(self):
        self.assertEqual(self.call("parquet_count", self.url), [[42]])
        self.assertEqual(self.sql(":memory:", f"SELECT count(*) FROM '{self.url}'"), [[42]])
        self.assertEqual(self.call("fetch_duckdb", self.database_url, "t"), [[42]])

    def test_a_running_process_uses_a_secret_that_another_process_stores(self):
        self.execute(":memory:", "DROP PERSISTENT SECRET store")
        with self.shell() as shell:
            call = f"CALL parquet_count('{self.url}')"
            self.assertIn("Error", shell.run(call))
            self.make_secret()
            self.assertEqual(shell.rows(call), [["42"]])

    def test_without_a_secret_the_text_is_duckdbs(self):
        self.execute(":memory:", "DROP PERSISTENT SECRET store")
        # Without one, DuckDB asks the public store, which no test does.
        self.execute(":memory:", f"CREATE PERSISTENT SECRET store (TYPE s3, ENDPOINT '{self.store.front.endpoint}', "
                     "URL_STYLE 'path', USE_SSL false)")
        self.check_failure("403", "No credentials are provided")

    def test_a_wrong_secret_gives_duckdbs_text(self):
        self.make_secret(secret="wrongly-typed-secret")
        self.secrets.append("wrongly-typed-secret")
        self.check_failure("403")

    def test_an_unknown_key_gives_duckdbs_text(self):
        self.make_secret(key="AKIAUNKNOWN")
        self.check_failure("403")

    def test_an_expired_token_gives_duckdbs_text(self):
        self.make_secret(more=", SESSION_TOKEN 'a-token-of-yesterday'")
        self.secrets.append("a-token-of-yesterday")
        with self.store.front.faulty(400, method="GET|HEAD", text=EXPIRED):
            self.check_failure("400")

    def test_a_secret_for_one_bucket_is_not_used_for_another(self):
        self.execute(":memory:", self.store.make_secret("PERSISTENT SECRET", more=", SCOPE 's3://elsewhere'"))
        self.execute(":memory:", "CREATE PERSISTENT SECRET rest (TYPE s3, SCOPE 's3://lake', "
                     f"ENDPOINT '{self.store.front.endpoint}', URL_STYLE 'path', USE_SSL false)")
        self.addCleanup(self.execute, ":memory:", "DROP PERSISTENT SECRET rest")
        self.check_failure("403")

    def test_no_secret_is_in_the_history_or_in_what_is_open(self):
        script = f" {self.store.make_secret()};\n.open\nSELECT count(*) FROM '{self.url}';\n.open\n"
        done = self.run_host("shell", stdin=script)
        self.assertIn("42", done.stdout.decode())
        self.assertNotIn(self.store.secret, (done.stdout + done.stderr).decode())
        self.assertEqual(self.sql(":memory:", "SELECT count(*) FROM duckdb_secrets() WHERE "
                                  f"contains(secret_string, '{self.store.secret}')"), [[0]])
        for folder, _, names in os.walk(self.home):
            for name in names:
                if folder.endswith("stored_secrets") or name.endswith(".duckdb_extension"):
                    continue
                with open(os.path.join(folder, name), "rb") as file:
                    self.assertNotIn(self.store.secret.encode(), file.read(), name)

    def test_stored_secrets_are_for_their_user_only(self):
        folder = os.path.join(self.home, ".duckdb", "stored_secrets")
        modes = {name: os.stat(os.path.join(folder, name)).st_mode & 0o077 for name in os.listdir(folder)}
        self.assertEqual(modes, {"store.duckdb_secret": 0})


if __name__ == "__main__":
    unittest.main()
