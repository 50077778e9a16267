"""`mduckdb-host sql`: results, parameters, errors."""

import json
import os
import re
import signal
import subprocess
import time
import unittest

from host_case import HOST, HostCase


class SqlTest(HostCase):
    def test_every_result_of_a_script_is_printed(self):
        text = self.output("sql", ":memory:", "CREATE TABLE t (i INT); INSERT INTO t VALUES (1), (2), (3);"
                           "SELECT sum(i) AS s FROM t; DELETE FROM t WHERE i > 1")
        self.assertIn("OK\n3 rows changed\n", text)
        self.assertIn("│ s │", text)
        self.assertTrue(text.endswith("1 row\n2 rows changed\n"))

    def test_results_before_a_failing_statement_are_printed(self):
        for bad in ("SELECT * FROM nowhere", "SELECT error('x')", "SELEC 3"):
            done = self.run_host("sql", ":memory:", f"SELECT 1 AS a; {bad}; SELECT 2 AS b", "--format", "csv")
            self.assertEqual(done.returncode, 1)
            self.assertEqual(done.stdout, b"a\n1\n")
            self.assertIn(b"Error", done.stderr)

    def test_an_error_shows_the_line_of_the_script(self):
        error = self.error("sql", ":memory:", "SELECT 1;\n-- comment\n\nSELECT\n2; SELECT 3;\nSELECT 'x'::INT")
        self.assertIn("LINE 6: SELECT 'x'::INT", error)

    def test_an_error_without_a_place_names_its_statement(self):
        script = "SELECT 1;\n\nSELECT\n  error('no place'); SELECT 2"
        self.assertEqual(self.error("sql", ":memory:", script), "Invalid Input Error: no place\n\nLINE 3: SELECT\n")
        self.assertEqual(self.error("sql", ":memory:", "SELECT error('alone')"), "Invalid Input Error: alone\n")

    def test_json_has_an_object_for_each_result(self):
        text = self.output("--format", "json", "sql", ":memory:",
                           "CREATE TABLE t (i INT); INSERT INTO t VALUES (1), (2); SELECT 1 AS a")
        decoder, results = json.JSONDecoder(), []
        while text.strip():
            result, end = decoder.raw_decode(text.lstrip())
            results.append(result)
            text = text.lstrip()[end:]
        self.assertEqual(results[:2], [{"rows_changed": None}, {"rows_changed": 2}])
        self.assertEqual(results[2]["columns"],
                         [{"name": "a", "duckdb_type": 4, "host_type": 7, "host_type_name": "int64"}])

    def test_csv_keeps_changed_rows_off_the_data(self):
        done = self.run_host("--format", "csv", "sql", ":memory:",
                             "CREATE TABLE t (i INT); INSERT INTO t VALUES (1); SELECT * FROM t; SELECT 2 AS j")
        self.assertEqual(done.stdout, b"i\n1\n\nj\n2\n")
        self.assertEqual(done.stderr, b"1 row changed\n")

    def test_both_cursors_return_the_same_rows(self):
        query = "SELECT i, i::VARCHAR || 'é' AS t, CASE WHEN i % 3 = 0 THEN NULL ELSE i / 7 END AS d FROM range(5000) r(i)"
        server = self.sql(":memory:", query, "--cursor", "server")
        self.assertEqual(server, self.sql(":memory:", query, "--cursor", "client"))
        self.assertEqual(len(server), 5000)
        self.assertEqual(server[4], [4, "4é", 4 / 7])

    def test_kinds_of_values(self):
        row = self.sql(":memory:", """SELECT true, (-128)::TINYINT, 18446744073709551615::UBIGINT, 1.5::DECIMAL(5, 2),
            0.1::FLOAT, 'NaN'::DOUBLE, '-inf'::DOUBLE, '\\x00\\xAB'::BLOB, NULL, DATE '2024-03-15', [1, 2],
            'a' || chr(0) || 'b'""")[0]
        self.assertEqual(row, [True, -128, 2**64 - 1, 1.5, 0.1, "NaN", "-Infinity", "\\x00ab", None, "2024-03-15",
                               "[1, 2]", "a\0b"])

    def test_decimals_keep_every_digit(self):
        for width, scale in ((4, 1), (9, 3), (15, 15), (16, 2), (18, 0), (18, 3), (18, 18), (25, 23), (38, 0), (38, 3),
                             (38, 30), (38, 37)):
            most = "9" * (width - scale) + "." + "9" * scale
            digits = "repeat(hash(i)::VARCHAR, 3)"
            query = (f"SELECT v AS d, v::VARCHAR AS t, [v] AS l FROM (SELECT (CASE i WHEN 0 THEN NULL WHEN 1 THEN '-{most}' "
                     f"ELSE left('-', i % 2) || '0' || left({digits}, i % {width - scale + 1}) || '.' || "
                     f"right({digits}, {scale}) END)::DECIMAL({width}, {scale}) AS v FROM range(300) r(i))")
            for cursor in ("server", "client"):
                with self.subTest(width=width, scale=scale, cursor=cursor):
                    lines = self.output("--format", "jsonl", "sql", ":memory:", query, "--cursor", cursor).splitlines()
                    self.assertEqual(len(lines), 300)
                    self.assertEqual(lines[0], '{"d":null,"t":null,"l":"[NULL]"}')
                    for line in lines[1:]:
                        text = json.loads(line)["t"]
                        number = re.sub(r"^(-?)\.", r"\g<1>0.", text)
                        self.assertEqual(line, f'{{"d":{number},"t":"{text}","l":"[{text}]"}}')

    def test_statements_that_change_data_return_exact_decimals_too(self):
        out = self.output("--format", "csv", "sql", ":memory:", "CREATE TABLE t (d DECIMAL(38, 3));"
                          "INSERT INTO t VALUES (123456789012345678.123) RETURNING d; FROM t")
        self.assertEqual(out.splitlines()[1:], ["123456789012345678.123", "", "d", "123456789012345678.123"])

    def test_doubles_have_the_digits_that_read_back_as_the_same_number(self):
        numbers = ["0.1", "1e+22", "123456789012345680.0", "5e-324", "1.7976931348623157e+308", "-0.30000000000000004"]
        rows = self.output("--format", "csv", "sql", ":memory:", "SELECT unnest([%s]::DOUBLE[])" % ", ".join(numbers))
        self.assertEqual(rows.splitlines()[1:], numbers)

    def test_parameters_bind_as_their_json_kinds(self):
        envelope = '{"duckdb_value":true,"value_type":"DATE","value":"2024-01-31"}'
        parameters = ["1", "18446744073709551615", "1.5", '"x"', "true", "null", "[1, 2]", '["a", null]', envelope]
        arguments = [word for parameter in parameters for word in ("--param", parameter)]
        types = ", ".join(f"typeof(${i + 1})" for i in range(len(parameters)))
        row = self.sql(":memory:", f"SELECT {types}, $8[2] IS NULL, $2, $9", *arguments)[0]
        self.assertEqual(row[:5], ["BIGINT", "UBIGINT", "DOUBLE", "VARCHAR", "BOOLEAN"])
        self.assertEqual(row[6:], ["BIGINT[]", "VARCHAR[]", "DATE", True, 2**64 - 1, "2024-01-31"])

    def test_a_parameter_that_is_not_json_is_wrong_usage(self):
        self.assertIn("Not a JSON value: hello", self.error("sql", ":memory:", "SELECT $1", "--param", "hello", status=2))

    def test_a_parameter_file_runs_the_statement_once_a_line(self):
        self.output("create", "p.db")
        self.execute("p.db", "CREATE TABLE t (i INT, s VARCHAR)")
        with open(self.path("rows.jsonl"), "w") as file:
            file.write('[1, "a"]\n\n[2, null]\n[3, "é"]\n')
        done = self.run_host("sql", "p.db", "INSERT INTO t VALUES (?, ?)", "--params-file", "rows.jsonl")
        self.assertEqual((done.returncode, done.stdout), (0, b"1 row changed\n"))
        self.assertIn(b"3 parameter rows", done.stderr)
        self.assertEqual(self.sql("p.db", "FROM t ORDER BY i"), [[1, "a"], [2, None], [3, "é"]])

    def test_a_parameter_row_that_fails_is_named_with_what_was_stored(self):
        self.output("create", "p.db")
        self.execute("p.db", "CREATE TABLE t (i INT)")
        insert = ("sql", "p.db", "INSERT INTO t VALUES (?)", "--params-file", "-")
        reason = self.error("sql", "p.db", "INSERT INTO t VALUES (?)", "--param", '"x"')
        self.assertIn("Could not convert string 'x' to INT32\n", reason)
        for rows, sentence in (('[1]\n\n[2]\n["x"]\n[4]\n', "Line 4 of the parameters did not run. "
                                "The 2 rows before it ran and are stored.\n"),
                               ('[3]\n["x"]\n', "Line 2 of the parameters did not run. "
                                "The row before it ran and is stored.\n"),
                               ('["x"]\n[5]\n', "Line 1 of the parameters did not run. Nothing was stored.\n")):
            done = self.run_host(*insert, stdin=rows)
            self.assertEqual((done.returncode, done.stdout), (1, b""))
            self.assertEqual(done.stderr.decode(), reason + sentence)
        self.assertEqual(self.sql("p.db", "FROM t"), [[1], [2], [3]])

    def test_a_bad_line_of_a_parameter_file_is_named(self):
        error = self.error("sql", ":memory:", "SELECT ?", "--params-file", "-", stdin="[1]\n{}\n", status=2)
        self.assertEqual(error, "Line 2 of the parameters is not a JSON array.\n")
        self.assertIn("Cannot read the parameter file 'nope'.", self.error("sql", ":memory:", "SELECT ?", "--params-file", "nope", status=2))

    def test_nesting_without_end_is_wrong_usage(self):
        deep = "[" * 400_000 + "]" * 400_000
        limit = "lists and objects may be nested 200 levels deep.\n"
        error = self.error("sql", ":memory:", "SELECT ?", "--params-file", "-", stdin=f"[1]\n{deep}\n", status=2)
        self.assertEqual(error, f"Line 2 of the parameters: {limit}")
        deep = "[" * 1_000 + "]" * 1_000
        error = self.error("sql", ":memory:", "SELECT $1", "--param", deep, status=2)
        self.assertEqual(error, f"--param: {limit}")
        error = self.error("call", "parquet_count", deep, status=2)
        self.assertEqual(error, f"Argument 1: {limit}")

    def test_an_error_shows_type_message_and_place(self):
        error = self.error("sql", ":memory:", "SELECT 1;\nSELECT 'é', nope;")
        self.assertEqual(error, 'Binder Error: Referenced column "nope" was not found because the FROM clause is '
                         "missing\n\nLINE 2: SELECT 'é', nope;\n                    ^\n")
        self.assertTrue(self.error("sql", ":memory:", "SELEC 2").startswith("Parser Error: syntax error at or near"))
        self.assertIn("Conversion Error: Could not convert string 'x' to INT32",
                      self.error("sql", ":memory:", "SELECT 'x'::INT"))

    def test_an_error_far_into_a_long_line_is_shown_at_once(self):
        rows = ", ".join(f"({i}, 'naïve {i}')" for i in range(20000))
        statement = f"INSERT INTO t VALUES {rows}, (nonsense, 'x');"
        for arguments in (["sql", ":memory:", "-"], ["shell"]):
            with self.subTest(arguments[0]):
                start = time.monotonic()
                error = self.error(*arguments, stdin="CREATE TABLE t (i INT, s TEXT); " + statement + "\n")
                self.assertLess(time.monotonic() - start, 20)
                place = error.splitlines()[-2].index("nonsense")
                self.assertTrue(error.endswith("\n" + " " * place + "^\n"), error[-300:])

    def test_a_database_that_is_not_there_is_not_made(self):
        self.assertIn("Cannot open nope.db: File does not exist", self.error("sql", "nope.db", "SELECT 1"))
        self.assertFalse(os.path.exists(self.path("nope.db")))

    def test_a_script_comes_from_the_standard_input(self):
        self.assertEqual(self.sql(":memory:", "-", stdin="SELECT 'from stdin'"), [["from stdin"]])

    def test_sql_without_a_statement_is_wrong_usage(self):
        for text in ("", "  ", ";", "-- a comment\n;;/* another */"):
            with self.subTest(text=text):
                self.assertEqual(self.error("sql", ":memory:", "-", stdin=text, status=2), "SQL contains no statement.\n")
        self.assertEqual(self.sql(":memory:", "-- a comment\nSELECT 1"), [[1]])

    def test_ctrl_c_while_rows_are_printed_is_reported(self):
        process = subprocess.Popen([HOST, "--format", "csv", "sql", ":memory:", "SELECT i FROM range(5000000) r(i)"],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdout.read(100000)
        process.send_signal(signal.SIGINT)
        _, error = process.communicate(timeout=30)
        self.assertEqual((process.returncode, error.decode()), (130, "Interrupted.\n"))

    def test_a_result_that_ctrl_c_stops_does_not_count_as_complete(self):
        for format_name, pattern in (("json", r'\],"row_count":\d+,"is_complete":false}\n$'),
                                     ("table", r"\nstopped after [\d,]+ rows(, columns sized for [^\n]*)?\n$")):
            with self.subTest(format_name):
                process = subprocess.Popen([HOST, "--format", format_name, "sql", ":memory:",
                                            "SELECT i FROM range(5000000) r(i)"],
                                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                start = process.stdout.read(300000)
                process.send_signal(signal.SIGINT)
                out, error = process.communicate(timeout=30)
                self.assertEqual((process.returncode, error.decode()), (130, "Interrupted.\n"))
                # `communicate` leaves out what was read ahead, maybe with a part of a character.
                self.assertRegex((start + out).decode(errors="replace")[-200:], pattern)

    def test_read_only_refuses_to_write(self):
        self.output("create", "r.db")
        self.assertIn("read-only", self.error("sql", "r.db", "CREATE TABLE t (i INT)", "--read-only"))

    def test_ctrl_c_interrupts_and_the_database_stays_usable(self):
        self.output("create", "i.db")
        process = subprocess.Popen(
            [HOST, "sql", "i.db", "CREATE TABLE t AS SELECT 1 AS i; "
             "SELECT count(*) FROM range(1000000000) a, range(1000000) b"],
            cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        time.sleep(1.5)
        process.send_signal(signal.SIGINT)
        out, error = process.communicate(timeout=30)
        self.assertEqual((process.returncode, error.decode()), (130, "Interrupted.\n"))
        self.assertEqual(self.sql("i.db", "SELECT 1"), [[1]])


if __name__ == "__main__":
    unittest.main()
