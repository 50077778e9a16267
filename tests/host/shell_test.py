"""`mduckdb-host shell` reading from a pipe."""

import os
import pathlib
import signal
import subprocess
import time
import unittest

from host_case import HOST, HostCase


class PipeShellTest(HostCase):
    def shell(self, text, *arguments, status=0):
        """What the shell prints and says on stderr for the lines."""
        done = self.run_host("--format", "csv", "shell", *arguments, stdin=text)
        self.assertEqual(done.returncode, status, done.stderr.decode())
        return done.stdout.decode(), done.stderr.decode()

    def test_statements_run_in_order_and_nothing_else_is_printed(self):
        out, error = self.shell("SELECT 1 AS a;\nSELECT\n 2 AS b\n;SELECT 3 AS c; SELECT 4 AS d\n")
        self.assertEqual(out, "a\n1\n\nb\n2\n\nc\n3\n\nd\n4\n")
        self.assertEqual(error, "")

    def test_a_statement_that_is_not_utf_8_is_refused_instead_of_changed(self):
        out, error = self.shell(b"CREATE TABLE t (s VARCHAR);\n\nINSERT INTO t VALUES ('\xfc');\n"
                                b"SELECT count(*) AS n FROM t;\n.tables '\xfc'\n", status=1)
        self.assertEqual(out, "n\n0\n")
        self.assertIn("The statement is not valid UTF-8.\n\nLINE 3: INSERT INTO t VALUES ('\ufffd');\n" + " " * 31 + "^\n",
                      error)
        self.assertEqual(error.count("not valid UTF-8"), 2)

    def test_semicolons_in_quotes_and_comments_end_nothing(self):
        out, _ = self.shell("-- a; comment\nSELECT 'a;\nb' AS t, $$c;$$ AS d /* ; */;\n")
        self.assertEqual(out, 't,d\n"a;\nb",c;\n')

    def test_an_error_ends_its_statement_only_with_status_1(self):
        out, error = self.shell("SELECT * FROM nope;\nSELECT 1 AS a;\n", status=1)
        self.assertEqual(out, "a\n1\n")
        self.assertIn("LINE 1: SELECT * FROM nope;\n                      ^\n", error)

    def test_a_database_file_is_made_and_kept(self):
        self.shell("CREATE TABLE t AS SELECT 42 AS i;\n", "new.db")
        self.assertEqual(self.shell("FROM t;\n", "new.db")[0], "i\n42\n")

    def test_a_failed_statement_leaves_the_transaction_rolled_back(self):
        out, _ = self.shell("CREATE TABLE t (i INT);\nBEGIN;\nINSERT INTO t VALUES (1);\n"
                            "SELECT error('x');\nFROM t;\n", status=1)
        self.assertTrue(out.endswith("i\n"), out)

    def test_several_databases_are_open_at_once(self):
        out, error = self.shell("CREATE TABLE t AS SELECT 1 AS i;\n.open b.db\nCREATE TABLE t AS SELECT 2 AS i;\n"
                                ".use a\nFROM t;\n.use b\nFROM t;\n.databases\n.close\nFROM t;\n.close a\nFROM t;\n",
                                "a.db", status=1)
        self.assertEqual(out.split("\n\n"), ["i\n1", "i\n2", "current,name,path,access\n"
                                             '"",a,a.db,read and write\n*,b,b.db,read and write', "i\n1\n"])
        self.assertTrue(error.endswith("No database is open. Use .open FILE to open one.\n"), error)

    def test_open_alone_lists_what_is_open(self):
        out, _ = self.shell("BEGIN;\n.open\n", "a.db")
        lines = [line.split(",") for line in out.splitlines()]
        self.assertEqual(lines[0][:6], ["kind", "number", "of", "name", "state", "users"])
        self.assertEqual([lines[1][0], *lines[1][3:6]], ["engine", self.path("a.db"), "exclusive lock", "1"])
        self.assertEqual([lines[2][0], *lines[2][2:5]], ["database", lines[1][1], self.path("a.db"), "in transaction"])
        self.assertEqual(len(lines), 3)

    def test_one_name_for_two_databases_gets_a_number(self):
        os.mkdir(self.path("x"))
        out, _ = self.shell(".open x/a.db\n.databases\n", "a.db")
        self.assertIn("a_2,x/a.db", out)

    def test_call_accepts_literals(self):
        self.execute(":memory:", "COPY (SELECT i, 'n''' || i AS name FROM range(10) r(i)) TO '%s'" % self.path("a.parquet"))
        out, error = self.shell("CALL parquet_count('a.parquet');\n"
                                "call fetch_parquet('a.parquet', ['name', 'i'], 'name = ''n''''7''', NULL);\n"
                                "CALL fetch_parquet('a.parquet', NULL, NULL, 1);\n")
        self.assertEqual(out, "count\n10\n\nname,i\nn'7,7\n\ni,name\n0,n'0\n")
        self.assertEqual(error, "")

    def test_call_of_an_unknown_procedure_is_sql(self):
        out, _ = self.shell("CREATE TABLE t (i INT);\nCALL pragma_table_info('t');\n")
        self.assertIn("0,i,INTEGER", out)

    def test_call_points_at_text_that_is_not_a_literal(self):
        _, error = self.shell("CALL parquet_count(1 + 1);\n", status=1)
        self.assertIn("LINE 1: CALL parquet_count(1 + 1);\n" + " " * 29 + "^", error)
        _, error = self.shell("CALL parquet_count();\n", status=1)
        self.assertIn("parquet_count accepts 1 to 2 arguments, not 0", error)

    def test_tables_and_schema(self):
        out, _ = self.shell("CREATE TABLE t (i INT PRIMARY KEY);CREATE VIEW v AS FROM t;CREATE INDEX x ON t (i);\n"
                            ".tables\n.tables v%\n.schema\n.schema v\n")
        self.assertIn("main,t,base table\nmain,v,view\n", out)
        self.assertIn("\nschema,name,type\nmain,v,view\n", out)
        self.assertIn("CREATE TABLE t(i INTEGER PRIMARY KEY);", out)
        self.assertEqual(out.count("CREATE VIEW v"), 2)
        self.assertIn("CREATE INDEX x", out)

    def test_ctrl_c_ends_a_script_from_a_pipe(self):
        query = "SELECT count(*) FROM range(1000000000) a, range(1000000) b"
        process = subprocess.Popen([HOST, "shell"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdin.write(f"SELECT 'first' AS t;\n{query} WHERE a.range::VARCHAR <> '{'9' * 100}';\nSELECT 'last' AS t;\n".encode())
        process.stdin.flush()
        time.sleep(1.5)
        process.send_signal(signal.SIGINT)
        out, error = process.communicate(timeout=30)
        self.assertEqual(process.returncode, 130, error)
        self.assertIn(b"first", out)
        self.assertNotIn(b"last", out)
        self.assertEqual(error.decode(), f"Interrupted: {query} WHERE a…\n")

    def test_mode_changes_the_format(self):
        out, _ = self.shell(".mode jsonl\nSELECT 1 AS a;\n.mode markdown\nSELECT 1 AS a;\n")
        self.assertEqual(out, '{"a":1}\n| a |\n| ---: |\n| 1 |\n')

    def test_timer_prints_a_time(self):
        self.assertRegex(self.shell(".timer on\nSELECT 1 AS a;\n")[0], r"^a\n1\nTime: \d+\.\d{3} s\n$")

    def test_cursor_chooses_the_kind(self):
        out, _ = self.shell(".cursor client\nSELECT count(*) AS n FROM range(3000);\n.cursor server\nSELECT 1 AS a;\n")
        self.assertEqual(out, "n\n3000\n\na\n1\n")

    def test_line_mode_shows_each_field_on_its_own_line(self):
        out, _ = self.shell(".mode line\nSELECT 1 AS id, 'a' || chr(10) || 'b' AS text, NULL AS n FROM range(2);\n"
                            "SELECT 1 AS a WHERE false;\n")
        row = "  id = 1\ntext = a\n       b\n   n = NULL\n"
        self.assertEqual(out, row + "\n" + row + "0 rows\n")
        out, _ = self.shell("\\x\nSELECT 1 AS a;\n\\x\nSELECT 2 AS b;\n")
        self.assertEqual(out, "a = 1\nb\n2\n")

    def test_nullvalue_separator_and_headers_shape_csv(self):
        query = "SELECT NULL AS a, '-' AS b, '' AS c, 'x;y' AS d, 'x,y' AS e;\n"
        out, _ = self.shell(f".nullvalue -\n.separator ';'\n{query}.headers off\n.nullvalue\n.separator \\t\n{query}")
        self.assertEqual(out, 'a;b;c;d;e\n-;"-";"";"x;y";x,y\n\t-\t""\tx;y\tx,y\n')
        self.assertIn("A separator is", self.shell(".separator ''\n", status=1)[1])
        out, _ = self.shell(".mode table\n.nullvalue ∅\n.headers off\nSELECT NULL AS long_name;\n")
        self.assertEqual(out, "┌───┐\n│ ∅ │\n└───┘\n1 row\n")

    def test_types_appear_under_the_names(self):
        out, _ = self.shell(".mode table\n.types on\nSELECT 1.5 AS price, 'x' AS t;\n.databases\n")
        self.assertIn("│        price │ t       │\n│ DECIMAL(2,1) │ VARCHAR │\n├", out)
        self.assertIn("│ current │ name   │ path     │ access         │\n├", out)

    def test_output_and_once_write_results_into_a_file(self):
        out, error = self.shell(".once one.csv\nSELECT 1 AS a;\nSELECT 2 AS b;\n.output more.csv\nSELECT 3 AS c;\n"
                                "SELECT 4 AS d;\nSELECT nope;\n.output\nSELECT 5 AS e;\n.once /nowhere/x\n", status=1)
        self.assertEqual(out, "b\n2\ne\n5\n")
        for name, text in (("one.csv", "a\n1\n"), ("more.csv", "c\n3\n\nd\n4\n")):
            with open(self.path(name)) as file:
                self.assertEqual(file.read(), text)
        self.assertIn("Cannot write '/nowhere/x': No such file or directory.\n", error)

    def test_import_creates_a_table_and_appends_to_it(self):
        with open(self.path("it's.csv"), "w") as file:
            file.write("i,s\n1,a\n2,\n")
        out, _ = self.shell(".import \"it's.csv\" \"Odd Name\"\n.import \"it's.csv\" \"Odd Name\"\n"
                            "SELECT count(*) AS n, sum(i) AS s FROM \"Odd Name\";\n"
                            "COPY \"Odd Name\" TO 'o.parquet';\nCREATE SCHEMA s;\n.import o.parquet s.t\n"
                            "SELECT count(*) AS n FROM s.t;\n")
        self.assertEqual(out, "2 rows imported\n2 rows imported\nn,s\n4,6\n4 rows imported\n\nn\n4\n")
        self.assertIn("nope.csv", self.shell(".import nope.csv t\n", status=1)[1])

    def test_import_reads_each_format_by_the_end_of_the_file_name(self):
        with open(self.path("a.jsonl"), "w") as file:
            file.write('{"i": 1, "s": "a,b"}\n{"i": 2, "s": null}\n')
        rows = "SELECT i, s FROM 'a.jsonl'"
        files = {"b.JSON": "(FORMAT json, ARRAY true)", "c.ndjson": "(FORMAT json)", "d.parquet": "(FORMAT parquet)",
                 "e.csv.gz": "(FORMAT csv, COMPRESSION gzip)", "f.tsv": "(FORMAT csv, DELIMITER '\t')",
                 "g.json.gz": "(FORMAT json, COMPRESSION gzip)"}
        for name, options in files.items():
            self.execute(":memory:", f"COPY ({rows}) TO '{self.path(name)}' {options}")
        for name in ("a.jsonl", *files):
            with self.subTest(name):
                # The second time it appends to the table in the schema, however the names are written.
                out, error = self.shell(f"CREATE SCHEMA s;\n.import {name} s.t\n.import {name} S.T\n"
                                        f"SELECT count(*) AS n FROM (FROM s.t EXCEPT ALL ({rows} UNION ALL {rows}));\n"
                                        "SELECT count(*) AS n FROM s.t;\n")
                self.assertEqual((out, error), ("2 rows imported\n2 rows imported\nn\n0\n\nn\n4\n", ""))

    def test_dump_is_sql_that_creates_the_same_database(self):
        make = r"""
            CREATE SCHEMA "we ird"; CREATE SEQUENCE s START 5; CREATE TYPE mood AS ENUM ('ok', 'sad');
            CREATE TABLE p (id INTEGER PRIMARY KEY, twice INTEGER GENERATED ALWAYS AS (id * 2), m mood DEFAULT 'ok',
                st STRUCT(a INTEGER, b VARCHAR), l VARCHAR[], mp MAP(VARCHAR, INTEGER), b BLOB, bits BIT, iv INTERVAL,
                tz TIMESTAMPTZ, ttz TIMETZ, d DOUBLE, f FLOAT, e DECIMAL(38,5), u UUID, h HUGEINT, bn BIGNUM,
                ns TIMESTAMP_NS, tn TIME_NS, j JSON, a INTEGER[3], day DATE, yes BOOLEAN);
            INSERT INTO p (id, m, st, l, mp, b, bits, iv, tz, ttz, d, f, e, u, h, bn, ns, tn, j, a, day, yes) VALUES
                (1, 'sad', {'a': 1, 'b': 'x, ''y'' "z" \'}, ['a, b', NULL, 'NULL', '', '[', ' sp '],
                 MAP {'k=v': 1}, '\x00a'::BLOB, '0101', '1 year 2 days 3.5 s', '2024-01-02 03:04:05.678+02',
                 '03:04:05+02', 0.1, 1e-20, -1.5, 'a1b2c3d4-0000-4000-8000-00000000ffff',
                 -170141183460469231731687303715884105728, '-123456789012345678901234567890',
                 '2024-01-02 03:04:05.123456789', '03:04:05.123456789', '{"a": [1, null]}', [1, 2, 3], 'infinity', true),
                (2, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, 'nan', '-inf', NULL, NULL, NULL, NULL, NULL,
                 NULL, NULL, NULL, NULL, NULL);
            CREATE TABLE "we ird"."a ""quote. d" (i INTEGER, "a, b" VARCHAR);
            INSERT INTO "we ird"."a ""quote. d" SELECT range, CASE range % 3 WHEN 0 THEN 'it''s' || chr(0) || 'x'
                WHEN 1 THEN NULL ELSE 'two' || chr(10) || 'lines; Größe' END FROM range(1201);
            CREATE TABLE child (i INTEGER REFERENCES p(id)); INSERT INTO child VALUES (1);
            CREATE VIEW v AS SELECT id FROM p; CREATE MACRO m(x) AS x + 1; CREATE INDEX ix ON child(i);
            CREATE TABLE empty (i INTEGER); SELECT nextval('s');"""
        self.output("create", "a.db")
        self.execute("a.db", make)
        # Neither another schema nor a temporary table of the same name gets in the way.
        out, _ = self.shell("CREATE TEMP TABLE child (i INTEGER);\nUSE \"we ird\";\n.output dump.sql\n.dump\n", "a.db")
        self.assertEqual(out, "")
        with open(self.path("dump.sql")) as file:
            script = file.read()
        self.assertEqual(script.count("INSERT INTO"), 5)
        self.shell(script, "b.db", "--bail")
        tables = ("p", '"we ird"."a ""quote. d"', "child", "empty")
        for table in tables:
            self.assertEqual(self.sql("b.db", f"FROM {table}"), self.sql("a.db", f"FROM {table}"))
        self.assertEqual(self.shell(".schema\n", "b.db"), self.shell(".schema\n", "a.db"))
        self.assertEqual(self.sql("b.db", "SELECT nextval('s'), m(1)"), [[6, 2]])
        # DuckDB itself finds no difference.
        names = [table if table.startswith('"') else "main." + table for table in tables]
        different = " UNION ALL ".join(f"(SELECT '{name}' FROM (FROM {one}.{name} EXCEPT ALL FROM {other}.{name}))"
                                       for name in names for one, other in ("ab", "ba"))
        self.assertEqual(self.shell("ATTACH 'a.db' AS a (READ_ONLY);\nATTACH 'b.db' AS b (READ_ONLY);\n"
                                    f"SELECT count(*) AS n FROM ({different});\n")[0], "n\n0\n")

    def test_dump_refuses_what_would_not_survive_it(self):
        for column, value in (("UNION(n INTEGER, t VARCHAR)", "5"), ("VARIANT", "42::VARIANT")):
            out, error = self.shell(f"CREATE TABLE t (c {column});\nINSERT INTO t VALUES ({value});\n.dump\n", status=1)
            self.assertNotIn("INSERT", out)
            self.assertRegex(error, r"Values of t\.\"c\", type .*, cannot be written as text\. Use \.backup\.")
        # Only some versions of DuckDB quote the quote.
        odd = "CREATE TYPE odd AS ENUM ('it''s');"
        self.shell(f"{odd}\nEXPORT DATABASE 'exported';\n")
        if "'it''s'" in pathlib.Path(self.path("exported/schema.sql")).read_text():
            self.assertIn("CREATE TYPE odd AS ENUM ( 'it''s' );", self.shell(f"{odd}\n.dump\n")[0])
        else:
            out, error = self.shell(f"{odd}\n.dump\n", status=1)
            self.assertNotIn("CREATE", out)
            self.assertIn("DuckDB cannot read its own schema of this database. Use .backup.", error)

    def test_dump_is_of_one_moment_and_leaves_a_transaction_open(self):
        out, _ = self.shell("CREATE TABLE t (i INTEGER);\nBEGIN;\nINSERT INTO t VALUES (7);\n.dump\nROLLBACK;\n"
                            "SELECT count(*) AS n FROM t;\n")
        self.assertIn('INSERT INTO t ("i") VALUES\n(7);\nCOMMIT;\n', out)
        self.assertTrue(out.endswith("n\n0\n"), out)

    def test_watch_repeats_the_last_statement(self):
        out, _ = self.shell("CREATE SEQUENCE s;\nSELECT nextval('s') AS n;\n.watch 0.1 3\n")
        self.assertEqual(out, "n\n1\n\nn\n2\n\nn\n3\n\nn\n4\n")
        _, error = self.shell("CREATE TABLE t (i INTEGER);\n.watch 0.1 5\n", status=1)
        self.assertEqual(error.count("already exists"), 1)
        self.assertIn("There is no statement to repeat yet.", self.shell(".watch\n", status=1)[1])
        for arguments in ("0", "x", "1s", "-1", "1 0", "1 1.5", "1e9", "nan"):
            self.assertIn("Usage: .watch [SECONDS [TIMES]]", self.shell(f"SELECT 1;\n.watch {arguments}\n", status=1)[1])

    def test_edit_needs_a_terminal(self):
        self.assertIn(".edit needs a terminal.", self.shell("SELECT 1;\n.edit\n", status=1)[1])

    def test_exit_quit_and_help_need_no_dot(self):
        for word in ("exit", "quit", "exit;", "quit ; "):
            self.assertEqual(self.shell(f"SELECT 1 AS a;\n{word}\nSELECT 2 AS b;\n")[0], "a\n1\n")
        self.assertIn(".help [COMMAND]", self.shell("help\n")[0])
        self.assertEqual(self.shell("SELECT 1 AS\nhelp;\n")[0], "help\n1\n")

    def test_wrong_dot_commands_explain_the_right_ones(self):
        for line, text in ((".nope", "Unknown command '.nope'"),
                           (".mode xml", "Unknown format 'xml'. Use one of: table, csv, json, jsonl, markdown, line."),
                           (".cursor", "Usage: .cursor server|client"),
                           (".timer maybe", "Unknown setting 'maybe'. Use on or off."),
                           (".use nope", "No open database is named 'nope'"), (".close nope", "'nope'"),
                           (".", "Ambiguous command"),
                           (".read nope", "Cannot read 'nope': No such file or directory."),
                           (".read .", "Cannot read '.': Is a directory.")):
            with self.subTest(line=line):
                self.assertIn(text, self.shell(line + "\n", status=1)[1])

    def test_help_and_procedures_list_everything(self):
        text = self.shell(".help\n")[0]
        for command in (".open .close .databases .tables .schema .mode .timer .cursor .backup .restore .procedures "
                        ".help .quit").split():
            self.assertIn("\n" + command + " ", "\n" + text)
        self.assertIn("CALL fetch_duckdb(uri, table_or_view [, limit])", self.shell(".procedures\n")[0])

    def test_quit_leaves_the_rest_unread(self):
        self.assertEqual(self.shell("SELECT 1 AS a;\n.quit\nSELECT 2 AS b;\n")[0], "a\n1\n")

    def test_read_runs_a_file(self):
        with open(self.path("s.sql"), "w") as file:
            file.write("CREATE TABLE t AS SELECT 5 AS i;\nFROM t")
        self.assertEqual(self.shell(".read s.sql\nSELECT 1 AS a;\n")[0], "i\n5\n\na\n1\n")
        with open(self.path("self.sql"), "w") as file:
            file.write(".read self.sql\n")
        self.assertIn("Too many nested .read commands.", self.shell(".read self.sql\n", status=1)[1])

    def test_bail_ends_a_script_at_its_first_error_and_names_it(self):
        script = "SELECT 1 AS a;\n\nSELECT\n  2 AS b; SELECT nope;\nSELECT 3 AS c;\n"
        done = self.run_host("--format", "csv", "shell", "--bail", stdin=script)
        self.assertEqual((done.returncode, done.stdout), (1, b"a\n1\n\nb\n2\n"))
        error = done.stderr.decode()
        self.assertIn("LINE 4: SELECT nope;\n", error)
        self.assertTrue(error.endswith("\nStopped at line 4: SELECT nope;\n"), error)
        out, error = self.shell(".bail on\n.nope\nSELECT 1 AS a;\n", status=1)
        self.assertEqual((out, error.splitlines()[-1]), ("", "Stopped at line 2: .nope"))
        out, error = self.shell(".bail on\n.bail off\n.nope\nSELECT 1 AS a;\n", status=1)
        self.assertEqual((out, error.count("\n")), ("a\n1\n", 1))

    def test_bail_names_the_file_of_the_error(self):
        with open(self.path("s.sql"), "w") as file:
            file.write("SELECT 1 AS a;\nSELECT error('x');\nSELECT 2 AS b;\n")
        out, error = self.shell(".bail on\n.read s.sql\nSELECT 3 AS c;\n", status=1)
        self.assertEqual(out, "a\n1\n")
        self.assertTrue(error.endswith("Stopped at s.sql, line 2: SELECT error('x');\n"), error)
        self.assertEqual(error.count("Stopped"), 1)

    def test_an_error_of_a_script_shows_the_line_of_the_script(self):
        _, error = self.shell("-- a comment\n.timer off\n\n/* two\nlines */ SELECT 1;\nSELECT 1,\n nope;\n", status=1)
        self.assertIn("LINE 7:  nope;\n", error)

    def test_a_result_that_fails_half_way_leaves_the_next_one_complete(self):
        out, _ = self.shell("SELECT CASE WHEN i < 5000 THEN i ELSE error('x') END AS i FROM range(9000) r(i);\n"
                            "SELECT 1 AS a;\n", status=1)
        self.assertTrue(out.endswith("a\n1\n"))

    def test_a_reader_that_goes_away_ends_the_shell_quietly(self):
        process = subprocess.Popen([HOST, "shell"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        process.stdin.write(b"SELECT * FROM range(1000000);\n" * 3)
        process.stdin.close()
        process.stdout.read(10)
        process.stdout.close()
        self.assertEqual((process.stderr.read(), process.wait(timeout=60)), (b"", 0))
        process.stderr.close()

    def test_a_database_that_cannot_be_opened_is_one_clear_error(self):
        with open(self.path("text"), "w") as file:
            file.write("this is no database, and it is long enough to be read as one")
        self.assertIn("Cannot open text: ", self.error("shell", "text"))


if __name__ == "__main__":
    unittest.main()
