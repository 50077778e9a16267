"""`mduckdb-host shell` and tables on a pseudo-terminal."""

import os
import re
import time
import unittest

from host_case import HOST
from pseudo_terminal import Terminal
from terminal_case import TerminalCase


class TerminalTest(TerminalCase):
    def test_a_statement_over_several_lines(self):
        shell = self.start()
        shell.send("SELECT 40\n")
        shell.expect("...> ")
        shell.send("+ 2 AS answer;\n")
        self.assertIn("│     42 │", shell.expect("1 row"))
        self.leave(shell)

    def test_end_of_input_leaves_the_shell(self):
        shell = self.start()
        shell.send("\x04")
        self.assertEqual(shell.finish(), 0)

    def test_ctrl_c_interrupts_the_statement_and_the_shell_continues(self):
        shell = self.start()
        shell.send("SELECT count(*) FROM range(1000000000) a, range(1000000) b;\n")
        shell.expect("(Ctrl-C interrupts)")
        start = time.monotonic()
        shell.send("\x03")
        shell.expect("Interrupted: SELECT count(*) FROM range(1000000000) a, range(1000000) b;")
        self.assertLess(time.monotonic() - start, 5)
        shell.send("SELECT 'still here' AS t;\n")
        shell.expect("│ still here │")
        self.leave(shell)

    def test_ctrl_c_ends_a_watch_and_the_shell_continues(self):
        shell = self.start()
        shell.send("CREATE SEQUENCE s;\nSELECT 'run ' || nextval('s') AS n;\n.watch 0.2\n")
        shell.expect("│ run 4 │")
        shell.send("\x03")
        shell.expect("> ")
        shell.send("SELECT 'still here' AS t;\n")
        shell.expect("│ still here │")
        self.leave(shell)

    def test_ctrl_c_ends_the_files_that_are_being_read(self):
        with open(self.path("inner.sql"), "w") as file:
            file.write("SELECT count(*) FROM range(1000000000) a, range(1000000) b;\nSELECT 'not run' AS t;\n")
        with open(self.path("outer.sql"), "w") as file:
            file.write(".read inner.sql\nSELECT 'not run' AS t;\n")
        shell = self.start()
        shell.send(".read outer.sql\n")
        shell.expect("(Ctrl-C interrupts)")
        shell.send("\x03")
        shell.expect("Interrupted: SELECT count(*)")
        shell.send("SELECT 'still here' AS t;\n")
        self.assertNotIn("not run", shell.expect("│ still here │"))
        # The next file is read whole.
        with open(self.path("inner.sql"), "w") as file:
            file.write("SELECT 'inner' AS t;\n")
        shell.send(".read outer.sql\n")
        self.assertIn("│ inner │", shell.expect("│ not run │"))
        self.leave(shell)

    def test_edit_runs_the_last_statement_as_the_editor_leaves_it(self):
        shell = self.start(more={"VISUAL": "sed -i s/40/41/"})
        shell.send("SELECT 40\n + 1 AS answer;\n")
        shell.expect("│     41 │")
        shell.send(".edit\n")
        self.assertIn("SELECT 41\n + 1 AS answer;", shell.expect("│     42 │"))
        # It is the last statement now, which the editor leaves as it is, and the history has it.
        shell.send(".edit\n")
        shell.expect("Not run: the statement is unchanged.")
        self.leave(shell)
        with open(self.path("state/mduckdb/history")) as file:
            self.assertIn("SELECT 41\n + 1 AS answer;", file.read())

    def test_edit_reports_an_editor_that_fails(self):
        shell = self.start(more={"EDITOR": "false", "VISUAL": ""})
        shell.send(".edit\n")
        shell.expect("'false' failed with status 1. Set EDITOR to the editor to use.")

    def test_the_progress_line_shows_how_far_a_statement_is(self):
        shell = self.start()
        shell.send("CREATE TABLE t (i BIGINT); INSERT INTO t FROM range(60000000);\n")
        shell.expect("60,000,000 rows changed")
        shell.send("SELECT sum(length(sha256(repeat(i::VARCHAR, 20)))) FROM t;\n")
        text = shell.expect("%  (Ctrl-C interrupts)")
        self.assertRegex(text, "[█░]{20} [0-9]+%")
        shell.send("\x03")
        shell.expect("Interrupted")
        self.leave(shell)

    def test_a_restore_does_not_promise_that_ctrl_c_interrupts(self):
        self.output("create", "a.db")
        self.execute("a.db", "CREATE TABLE t AS SELECT 1 AS n")
        folder = self.output("backup", "a.db").splitlines()[0].removeprefix("Backup folder: ")
        with open(os.path.join(folder, "schema.sql"), "a") as schema:
            schema.write("CREATE TABLE slow AS SELECT count(*) AS n FROM range(1000000000) a, range(1000000) b;\n")
        terminal = self.open("restore", "again.db", folder)
        progress = terminal.expect("(cannot be interrupted)")
        self.assertNotIn("Ctrl-C", progress)
        terminal.send("\x03")
        terminal.expect("A restore cannot be interrupted.")

    def test_ctrl_c_at_the_prompt_drops_the_line_and_the_statement(self):
        shell = self.start()
        shell.send("SELECT 1,\n")
        shell.expect("...> ")
        shell.send("2, nonsense\x03")
        shell.expect("^C")
        shell.expect("memory> ")
        shell.send("SELECT 7 AS seven;\n")
        shell.expect("│     7 │")

    def test_the_history_lasts_until_the_next_start(self):
        shell = self.start()
        shell.send("SELECT 'of\n")
        shell.expect("...> ")
        shell.send("yore' AS t;\n")
        shell.expect("1 row")
        shell.send(" SELECT 'secret' AS t;\n")
        shell.expect("1 row")
        self.leave(shell)
        history = self.path("state/mduckdb/history")
        self.assertEqual(os.stat(history).st_mode & 0o777, 0o600)
        with open(history) as file:
            text = file.read()
        self.assertIn("SELECT 'of\nyore' AS t;", text)
        again = self.start()
        again.send("\x1b[A\x1b[A\n")
        again.expect("│ of   │")
        again.expect("│ yore │")

    def test_completion_of_keywords_tables_columns_procedures_and_commands(self):
        self.output("create", "c.db")
        self.execute("c.db", "CREATE TABLE zebras (stripe_count INT); INSERT INTO zebras VALUES (99)")
        shell = self.start("shell", "c.db")
        shell.send("sel\tstri\t fr\tzeb\t;\n")
        self.assertIn("select stripe_count  from zebras ;", shell.expect("│           99 │"))
        shell.send(".data\t\n")
        shell.expect("read and write")
        self.execute(":memory:", "COPY (SELECT 1 AS i) TO '%s'" % self.path("only_one.parquet"))
        shell.send("call parquet_co\t('only\t);\n")
        shell.expect("│     1 │")

    def test_completion_of_functions_and_of_the_arguments_of_dot_commands(self):
        shell = self.start()
        shell.send("SELECT regexp_full\t('abc', 'a.c') AS t;\n")
        self.assertIn("│ true │", shell.expect("1 row"))
        shell.send(".mode ma\t\nSELECT 1 AS a;\n")
        shell.expect("| ---: |")
        shell.send(".open x.db other\n")
        for line in (".mode ta", ".timer of", ".use mem", ".cursor se", ".close oth", ".help .proc"):
            shell.send(line + "\t\n")
        written = shell.expect("list the procedures for CALL")
        # A word that is not completed is an error.
        for error in ("Unknown", "No open database"):
            self.assertNotIn(error, written)
        self.leave(shell)

    def test_an_interactive_shell_runs_its_start_up_file_first(self):
        os.mkdir(self.path("mduckdb"))
        with open(self.path("mduckdb/shellrc"), "w") as file:
            file.write("-- settings\n.mode line\nSELECT nope;\nCREATE TABLE started AS SELECT 42 AS answer;\n")
        environment = {"XDG_CONFIG_HOME": self.folder}
        shell = self.open("shell", more=environment)
        shell.expect('"nope" was not found')
        shell.expect("memory> ")
        shell.send("FROM started;\n")
        shell.expect("answer = 42")
        shell.send("exit\n")
        self.assertEqual(shell.finish(), 0)
        shell = self.open("shell", "--no-init", more=environment)
        shell.expect("memory> ")
        shell.send("FROM started;\n")
        shell.expect("Table with name started does not exist")
        # A shell that reads from a pipe does not run it.
        done = self.run_host("shell", stdin="SELECT 1 AS a;", env={**os.environ, **environment})
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertIn("│ a │", done.stdout.decode())

    def test_the_start_up_file_is_in_the_home_folder_unless_an_absolute_path_says_otherwise(self):
        for folder, text in ((".config", "home"), ("named", "named")):
            os.makedirs(self.path(folder + "/mduckdb"))
            with open(self.path(folder + "/mduckdb/shellrc"), "w") as file:
                file.write(f"SELECT 'from {text}' AS t;\n")
        for named, text in ((self.path("named"), "named"), ("", "home"), ("named", "home")):
            with self.subTest(named):
                shell = self.open("shell", more={"HOME": self.folder, "XDG_CONFIG_HOME": named})
                self.assertIn(f"│ from {text} │", shell.expect("memory> "))
                self.leave(shell)

    def test_a_start_up_file_that_cannot_be_read_is_reported(self):
        os.makedirs(self.path("mduckdb/shellrc"))
        shell = self.open("shell", more={"XDG_CONFIG_HOME": self.folder})
        self.assertIn("mduckdb/shellrc': Is a directory.", shell.expect("memory> "))
        shell.send("SELECT 'still here' AS t;\n")
        shell.expect("│ still here │")
        self.leave(shell)

    def test_a_dumb_terminal_gets_no_escapes_from_the_shell(self):
        shell = self.open("shell", term="dumb")
        shell.expect("memory> ")
        shell.send("SELECT NULL AS n;\n.quit\n")
        self.assertEqual(shell.finish(), 0)
        self.assertIn("│ NULL │", shell.text)
        self.assertNotIn("\x1b", shell.text)

    def test_keys_edit_the_line(self):
        shell = self.start()
        shell.send("ELECT 'b日x' AS t;\x01S\x05\x1b[D\x1b[D\x1b[D\x1b[D\x1b[D\x1b[D\x1b[D\x7fé\n")
        shell.expect("│ b日é │")
        shell.send("SELECT 1 AS wrong nonsense\x17\x17 right;\n")
        shell.expect("│ right │")
        # Keys that are pressed before the prompt are not the editor's.
        shell.expect("memory> ")
        shell.send("\x12b日\n")
        shell.expect("│ b日é │")
        shell.expect("memory> ")
        shell.send("\x04")
        self.assertEqual(shell.finish(), 0)

    def test_ambiguous_completions_are_listed(self):
        for name in ("part_one.sql", "part_two.sql"):
            with open(self.path(name), "w") as file:
                file.write(f"SELECT '{name} ran' AS t;")
        shell = self.start()
        shell.send(".read pa\t\t")
        shell.expect("part_one.sql  part_two.sql")
        shell.send("tw\t\n")
        shell.expect("│ part_two.sql ran │")
        self.leave(shell)

    def test_the_history_of_earlier_versions_is_read_and_shortened(self):
        os.makedirs(self.path("state/mduckdb"))
        history = self.path("state/mduckdb/history")
        with open(history, "w") as file:
            file.write("".join(f"#{1700000000 + i}\nSELECT {i} AS n,\n  'old' AS t;\n" for i in range(10100)))
        os.chmod(history, 0o600)
        shell = self.start()
        shell.send("\x1b[A\n")
        shell.expect("│ 10099 │ old │")
        self.leave(shell)
        with open(history) as file:
            text = file.read()
        self.assertEqual(text.count("\n#") + 1, 10000)
        self.assertTrue(text.endswith("\n.quit\n"))
        self.assertEqual(os.stat(history).st_mode & 0o777, 0o600)

    def test_a_paste_of_ten_statements_runs_them_all(self):
        shell = self.start()
        paste = "\n".join(f"SELECT {i} * 1000 AS n;" for i in range(1, 11))
        shell.send("\x1b[200~" + paste + "\x1b[201~\n")
        for i in range(1, 11):
            shell.expect(f"{i}000 │")
        self.leave(shell)

    def test_a_long_result_is_cut_in_the_middle(self):
        shell = self.start()
        shell.send("SELECT i FROM range(1000) r(i);\n")
        text = shell.expect("hidden (--all or .all on)")
        self.assertIn("│ 999 │", text)
        self.assertIn("│   … │", text)
        hidden = int(re.search(r"1,000 rows, (\d+) rows hidden", text).group(1))
        self.assertEqual(len(re.findall(r"│ +\d+ │", text)), 1000 - hidden)
        self.assertLess(1000 - hidden, 30)
        shell.send(".pager off\n.all on\nSELECT i FROM range(1000) r(i);\n")
        self.assertIn("│ 500 │", shell.expect("1,000 rows\n"))

    def test_a_wide_result_fits_the_screen(self):
        shell = self.start()
        names = ", ".join(f"repeat('日', 40) AS column_number_{i}" for i in range(20))
        shell.send(f".all off\nSELECT {names};\n")
        shell.expect("┌")
        text = "┌" + shell.expect("hidden (--all or .all on)")
        self.assertRegex(text, r"1 row, \d+ columns hidden")
        for line in text.splitlines():
            if line.startswith(("│", "┌", "├", "└")):
                width = sum(2 if c == "日" else 1 for c in line)
                self.assertLessEqual(width, 100, line)
        self.assertEqual(len({sum(2 if c == "日" else 1 for c in line) for line in text.splitlines()
                              if line.startswith(("│", "┌"))}), 1)

    def test_bail_does_not_end_what_a_person_enters(self):
        with open(self.path("s.sql"), "w") as file:
            file.write("SELECT nope;\nSELECT 'not run' AS t;\n")
        shell = self.start("shell", "--bail")
        shell.send("SELECT nope;\n.read s.sql\n")
        shell.expect("Stopped at s.sql, line 1: SELECT nope;")
        shell.send("SELECT 'here' AS t;\n")
        self.assertNotIn("│ not run │", shell.expect("│ here │"))
        shell.send(".read s.sql\n")
        shell.expect("Stopped at s.sql, line 1: SELECT nope;")
        self.leave(shell)

    def test_a_dumb_terminal_gets_no_escapes(self):
        for term, has_escapes in (("xterm", True), ("dumb", False)):
            with self.subTest(term):
                terminal = Terminal([HOST, "sql", ":memory:", "SELECT NULL AS n, count(*) FROM range(1000000000) a, "
                                     "range(1000000) b"], self.folder, os.environ, term=term)
                self.addCleanup(terminal.kill)
                if has_escapes:
                    terminal.expect("(Ctrl-C interrupts)")
                else:
                    time.sleep(3)
                terminal.send("\x03")
                self.assertEqual(terminal.finish(), 130)
                self.assertIn("Interrupted.", terminal.text)
                if not has_escapes:
                    self.assertEqual(terminal.text, "^CInterrupted.\r\n")
                terminal = Terminal([HOST, "sql", ":memory:", "SELECT NULL AS n"], self.folder,
                                    os.environ, term=term)
                self.assertEqual(terminal.finish(), 0)
                self.assertIn("NULL", terminal.text)
                self.assertEqual("\x1b" in terminal.text, has_escapes)

    def test_the_greeting_fits_80_columns(self):
        shell = self.open("shell")
        greeting = shell.expect("to leave.\n").splitlines()[-1]
        self.assertIn("mduckdb_casts", greeting)
        self.assertLessEqual(len(greeting), 80)

    def test_all_prints_everything_on_a_terminal(self):
        terminal = self.start("--all", "sql", ":memory:", "SELECT i FROM range(1000) r(i)")
        self.assertIn("│ 500 │", terminal.expect("1,000 rows"))
        self.assertEqual(terminal.finish(), 0)

    def test_a_null_is_told_from_the_text_null(self):
        terminal = self.open("sql", ":memory:", "SELECT NULL AS a, 'NULL' AS b")
        self.assertEqual(terminal.finish(), 0)
        self.assertIn("│ \x1b[2mNULL\x1b[22m │ NULL │", terminal.text)


if __name__ == "__main__":
    unittest.main()
