"""`mduckdb-host call`: arguments, formats, errors, with the sample module and with the real ones."""

import csv
import io
import json
import os
import signal
import subprocess
import time
import unittest

from host_case import HOST, PLAIN_MODULE, SAMPLE_MODULE, HostCase

SAMPLE = ("--module", SAMPLE_MODULE)


class SampleModuleTest(HostCase):
    def values(self, *formats):
        return self.output(*SAMPLE, *formats, "call", "values")

    def test_json_has_columns_rows_and_count(self):
        result = json.loads(self.values("--format", "json"))
        self.assertEqual(list(result), ["columns", "rows", "row_count"])
        self.assertEqual(result["columns"][1],
                         {"name": "int", "duckdb_type": 5, "host_type": 7, "host_type_name": "int64"})
        self.assertEqual([c["host_type_name"] for c in result["columns"]],
                         ["bool", "int64", "uint64", "double", "text", "binary", "date", "datetime", "time", "text"])
        self.assertEqual(result["rows"],
                         [[True, -2**63, 2**64 - 1, 0.1, "täxt \ufffd", "\\x00ab", "2024-03-15",
                           "2024-03-15 12:34:56.789", "23:59:01.007", None]])
        self.assertEqual(result["row_count"], 1)

    def test_every_line_of_jsonl_is_an_object_of_one_row(self):
        lines = self.output(*SAMPLE, "--format", "jsonl", "call", "values", "3").splitlines()
        self.assertEqual(len(lines), 3)
        self.assertEqual(json.loads(lines[2])["uint"], 2**64 - 1)

    def test_csv_quotes_only_where_needed_and_distinguishes_null_from_empty_text(self):
        text = self.output(*SAMPLE, "--format", "csv", "call", "arguments", '"a,b"', '"q\\"q"', "", "null", '" x"')
        self.assertEqual(text.splitlines()[1:], ['10,"a,b",false,0,0', '10,"q""q",false,0,0', '10,"",false,0,0',
                                                 "9,,true,0,0", '10," x",false,0,0'])
        self.assertEqual([row[1] for row in csv.reader(io.StringIO(text))], ["text", "a,b", 'q"q', "", "", " x"])

    def test_markdown_aligns_numbers_right_and_escapes_bars(self):
        lines = self.output(*SAMPLE, "call", "arguments", '"a|b"', "--format", "markdown").splitlines()
        self.assertEqual(lines[1], "| ---: | --- | --- | ---: | ---: |")
        self.assertEqual(lines[2], "| 10 | a\\|b | false | 0 | 0 |")

    def test_table_in_a_pipe_is_printed_whole(self):
        lines = self.output(*SAMPLE, "call", "values", "20000").splitlines()
        self.assertEqual(len(lines), 20000 + 5)
        self.assertEqual(len({len(line) for line in lines[:-1]}), 1)
        self.assertEqual(lines[-1], "20,000 rows")

    def test_arguments_that_read_as_json_are_that_value(self):
        rows = self.rows(*SAMPLE, "call", "arguments", "null", "12", "-5", "1.5", '"12"', "18446744073709551615")
        self.assertEqual([row[:2] for row in rows],
                         [[9, None], [7, "12"], [7, "-5"], [6, "1.5"], [10, "12"], [12, "18446744073709551615"]])

    def test_an_array_keeps_its_elements(self):
        rows = self.rows(*SAMPLE, "call", "arguments", '["a, b", null, "]"]')
        self.assertEqual([row[:2] for row in rows],
                         [[1, '["a, b", null, "]"]'], [10, "a, b"], [9, None], [10, "]"]])

    def test_an_argument_that_is_not_json_is_text(self):
        words = ["true", '{"a":1}', "[1", "1a", "99999999999999999999", "path with blanks", "é", ""]
        rows = self.rows(*SAMPLE, "call", "arguments", *words)
        self.assertEqual([row[:2] for row in rows], [[10, word] for word in words])

    def test_words_after_two_dashes_are_arguments(self):
        rows = self.rows(*SAMPLE, "call", "arguments", "a", "--", "--format", "-x", "[]")
        self.assertEqual([row[1] for row in rows], ["a", "--format", "-x", "[]"])

    def test_a_reported_error_is_written_to_stderr_unchanged(self):
        done = self.run_host(*SAMPLE, "call", "fail")
        self.assertEqual((done.returncode, done.stdout, done.stderr.decode()), (1, b"", "It did not work: ä\n"))

    def test_a_procedure_that_returns_nothing_at_all_is_an_error(self):
        self.assertIn("neither a cursor nor an error", self.error(*SAMPLE, "call", "fail_silently"))

    def test_an_unused_position_of_the_table_reports_its_number(self):
        done = self.run_host(*SAMPLE, "call", "call_unused")
        self.assertEqual(done.stderr.decode(),
                         "The module called position 39 of the function table, which is not used.\n")

    def test_an_error_during_initialisation_is_shown(self):
        done = self.run_host(*SAMPLE, "call", "values", env={"SAMPLE_MODULE_INIT_ERROR": "1"})
        self.assertEqual(done.stderr.decode(), "Cannot register something.\n")

    def test_wrong_usage_exits_with_status_2(self):
        for arguments in (["call"], [], ["nonsense"], ["call", "values", "--frmat", "x"],
                          ["--format", "xml", "call", "values"], [*SAMPLE, "call", "values", "1", "2"],
                          [*SAMPLE, "call", "nope"]):
            with self.subTest(arguments=arguments):
                self.assertNotEqual(self.error(*arguments, status=2), "")

    def test_mistyped_commands_and_options_are_named_in_their_order_with_a_suggestion(self):
        for words, text in ((["sqll", "x"], "Unknown command 'sqll'. Did you mean sql?\nSee mduckdb-host --help.\n"),
                            (["rstore", "--frce"], "Unknown command 'rstore'. Did you mean restore?\n"
                             "Unknown option --frce. Did you mean --force?\nSee mduckdb-host --help.\n"),
                            (["--modul", "x", "sql", ":memory:", "SELECT 1", "--parm=1", "--zzzzzz"],
                             "Unknown option --modul. Did you mean --module?\nUnknown option --parm. Did you mean --param?\n"
                             "Unknown option --zzzzzz.\nSee mduckdb-host --help.\n"),
                            (["sql", ":memory:", "SELECT 1", "--parm=1", "--curser", "client"],
                             "Unknown option --parm. Did you mean --param?\nUnknown option --curser. Did you mean --cursor?\n"
                             "See mduckdb-host sql --help.\n"),
                            (["xyzxyz"], "Unknown command 'xyzxyz'.\nSee mduckdb-host --help.\n"),
                            (["help", "creat"], "Unknown command 'creat'. Did you mean create?\nSee mduckdb-host --help.\n")):
            with self.subTest(words=words):
                self.assertEqual(self.error(*words, status=2), text)

    def test_version_and_help_in_their_short_forms(self):
        for word in ("--version", "-V"):
            self.assertEqual(self.output(word), f"mduckdb-host {os.environ['MDUCKDB_VERSION']}\n")
        self.assertEqual(self.output("help", "sql"), self.output("sql", "--help"))
        self.assertEqual(self.output("help"), self.output("--help"))

    def test_a_file_may_have_the_name_of_a_command_or_of_a_list(self):
        for words, files in ((["call", "--", "a.db", "--all"], ["call", "a.db", "--all"]), (["call", "[b]"], ["call", "[b]"])):
            lines = self.output("--format", "csv", "probe", *words, status=1).splitlines()
            self.assertEqual(lines[1:], [file + ",false" for file in files])
        self.assertEqual(self.sql(":memory:", "SELECT $1", "--param", "[1, 2]"), [["[1, 2]"]])

    def test_ctrl_c_ends_a_call_with_the_status_of_every_command(self):
        self.execute(":memory:", "COPY (SELECT 1 AS i) TO '%s'" % self.path("a.parquet"))
        process = subprocess.Popen([HOST, "call", "parquet_count", self.path("a.parquet"),
                                    "(SELECT count(*) FROM range(100000000000) r(x)) > 0"],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        time.sleep(1.5)
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=30)
        self.assertEqual(process.returncode, 130)

    def test_an_unknown_procedure_lists_the_existing_ones(self):
        self.assertIn("values([rows])", self.error(*SAMPLE, "call", "nope", status=2))

    def test_a_reader_that_goes_away_ends_the_program_quietly(self):
        for name in ("table", "csv", "json", "jsonl", "markdown"):
            with self.subTest(format=name):
                process = subprocess.Popen([HOST, *SAMPLE, "--format", name, "call", "values", "1000000"],
                                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                process.stdout.read(10)
                process.stdout.close()
                self.assertEqual((process.stderr.read(), process.wait(timeout=60)), (b"", 0))
                process.stderr.close()

    def test_a_full_disk_is_an_error(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([HOST, *SAMPLE, "call", "values"], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"No space left", done.stderr)

    def test_a_file_that_is_not_a_module_is_refused(self):
        with open(self.path("no.so"), "w") as file:
            file.write("nothing")
        self.assertIn("Cannot load the module", self.error("--module", "no.so", "call", "values"))
        self.assertIn("Cannot find the module 'nope'", self.error("--module", "nope", "call", "values"))

    def test_a_library_without_the_two_functions_is_refused(self):
        library = os.environ["MDUCKDB_MSHARED"]
        self.assertIn("is not an extension module", self.error("--module", library, "call", "values"))


class ParquetTest(HostCase):
    def setUp(self):
        super().setUp()
        self.execute(":memory:", """COPY (SELECT i AS id, 'né' || i AS name, (i * 1.5)::DECIMAL(10, 2) AS price,
            [i, i + 1] AS list, 0.1::FLOAT AS f, DATE '2024-03-15' AS day FROM range(3000) t(i))
            TO '%s'""" % self.path("a.parquet"))

    def test_fetch_parquet_returns_every_value(self):
        rows = self.rows("call", "fetch_parquet", "a.parquet")
        self.assertEqual(rows, [[i, f"né{i}", i * 1.5, f"[{i}, {i + 1}]", 0.1, "2024-03-15"] for i in range(3000)])

    def test_columns_condition_and_limit(self):
        self.assertEqual(self.rows("call", "fetch_parquet", "a.parquet", '["name", "id"]', "id > 10", "2"),
                         [["né11", 11], ["né12", 12]])
        self.assertEqual(self.rows("call", "fetch_parquet", "a.parquet", "null", "null", "1")[0][0], 0)

    def test_the_other_procedures_answer(self):
        self.assertEqual(self.rows("call", "parquet_count", "a.parquet", "id % 2 = 0"), [[1500]])
        self.assertEqual(self.rows("call", "parquet_schema", "a.parquet")[2],
                         [3, "price", "DECIMAL", "DOUBLE", 6, "double"])
        self.assertEqual([row[8] for row in self.rows("call", "parquet_metadata", "a.parquet")],
                         ["id", "name", "price", "list, list, element", "f", "day"])

    def test_fetch_duckdb_reads_a_table(self):
        self.execute_new("d.db", "CREATE TABLE t AS SELECT 7 AS seven")
        self.assertEqual(self.rows("call", "fetch_duckdb", "d.db", "t"), [[7]])

    def execute_new(self, name, text):
        self.output("create", name)
        self.execute(name, text)

    def test_errors_are_duckdbs_own_texts(self):
        self.assertTrue(self.error("call", "fetch_parquet", "nope.parquet").startswith(
            'IO Error: No files found that match the pattern "nope.parquet"'))
        self.assertIn('"nope" not found', self.error("call", "fetch_parquet", "a.parquet", "nope"))
        self.assertEqual(self.error("call", "fetch_parquet", "null"), "fetch_parquet requires a text argument.\n")
        self.assertEqual(self.error("call", "fetch_parquet", "a.parquet", "null", "null", "-1"),
                         "limit must not be negative\n")

    def test_a_huge_argument_is_one_clear_error(self):
        error = self.error("call", "fetch_parquet", "x" * 100000)
        self.assertNotEqual(error.strip(), "")

    def test_the_plain_module_reads_the_plain_types(self):
        rows = self.rows("--module", PLAIN_MODULE, "call", "fetch_parquet", "a.parquet", '["id", "name"]')
        self.assertEqual(rows, [[i, f"né{i}"] for i in range(3000)])
        self.assertEqual(rows, self.rows("--module", "mduckdb", "call", "fetch_parquet", "a.parquet", "id, name"))


if __name__ == "__main__":
    unittest.main()
