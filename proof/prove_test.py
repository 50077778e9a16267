#!/usr/bin/env python3
"""The stages of scripts/prove against the tree, the records, and docs/reliability.md.

  prove_test.py SOURCE_FOLDER
"""

import argparse
import pathlib
import re
import sys
import tempfile
import unittest
import unittest.mock

import bites
import fuzz
import page
import prove
import records
import stages

ROOT = pathlib.Path()

CRASH_IN_DUCKDB = """==1==ERROR: AddressSanitizer: SEGV on unknown address
    #0 0x55d in __interceptor_memcpy (/b/bin/fuzz_targets+0x1)
    #1 0x7f2 in duckdb::Read(int) (/c/lib/libduckdb.so+0x12) (BuildId: 1)
    #2 0x55d in fuzz::Run() /x/fuzz/targets.cpp:3:1
"""


def invented(name, form="whole", date="2020-01-01 10:00:00", **more):
    return {"name": name, "date": date, "commit": "abc", "form": form, "seconds": 7400, "passed": True, "command": "x | y",
            "figures": ["3 | 4"], **more}


def fuzzed(name, date, seconds):
    return invented(name, "part", date, inputs=7, branches=[5, 6], **{"seconds of the processor": seconds})


def put(*additions):
    found = {}
    for stage, entry in additions:
        records.add(found, stage, entry)
    return found


class Stages(unittest.TestCase):
    def sources(self):
        for folder in ("tests", "fuzz", "src"):
            for file in (ROOT / folder).rglob("*"):
                if file.suffix in (".cpp", ".h", ".txt"):
                    yield file.read_text()

    def test_every_program_is_built_and_every_variable_is_read(self):
        text = "\n".join(self.sources())
        for stage in stages.STAGES:
            for step in stage.steps:
                self.assertRegex(text, rf"(mduckdb_test|fuzz_program)\({step.program}\b")
                for name in step.variables:
                    self.assertIn(f'"{name}"', text, step.program)

    def test_every_variable_that_the_tests_read_belongs_to_a_stage(self):
        known = {name for stage in stages.STAGES for step in stage.steps for name in step.variables}
        # These do not make a test longer.
        known |= {"MDUCKDB_TEST_SEED", "MDUCKDB_TEST_FILE_OPERATION"}
        read = set(re.findall(r'"(MDUCKDB_TEST_\w+)"', "\n".join(self.sources())))
        self.assertEqual(read - known, set())

    def test_a_filter_names_tests_that_exist(self):
        text = "\n".join(self.sources())
        tests = [f"{suite}.{name}" for suite, name in re.findall(r"TEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)", text)]
        for stage in stages.STAGES:
            for step in stage.steps:
                for part in filter(None, step.tests.split(":")):
                    pattern = re.compile(part.replace(".", r"\.").replace("*", ".*") + "$")
                    self.assertTrue(any(pattern.match(test) for test in tests), part)

    def test_the_short_form_sets_no_variable_and_the_options_set_the_length(self):
        stress = next(stage for stage in stages.STAGES if stage.name == "stress")
        step = stress.steps[0]
        short = argparse.Namespace(short=True, minutes=0, runs=0)
        self.assertEqual(prove.variables_of(stress, step, short), {})
        long = argparse.Namespace(short=False, minutes=0.5, runs=0)
        self.assertEqual(prove.variables_of(stress, step, long), {"MDUCKDB_TEST_STRESS_SECONDS": "30"})
        self.assertEqual(prove.form_of(stress, step, long), "--minutes 0.5")
        self.assertEqual(prove.form_of(stress, step, argparse.Namespace(short=False, minutes=0, runs=0)), "whole")
        untimed = next(step for step in stress.steps if "{seconds}" not in str(step.variables))
        self.assertEqual(prove.form_of(stress, untimed, long), "whole")

    def test_the_runs_of_a_stage_have_names_of_their_own(self):
        for stage in stages.STAGES:
            names = page.names_of(stage)
            self.assertEqual(len(names), len(set(names)), stage.name)

    def test_tests_and_figures_are_read_from_what_a_program_prints(self):
        output = "Note: Google Test filter = x1\n[==========] Running 2 tests\n8 kills, 3 snapshots\n[  PASSED  ] 2 tests.\nno number\n"
        self.assertEqual(prove.read_output(output), (2, ["8 kills, 3 snapshots"]))

    def test_records_hold_no_folder_of_this_machine(self):
        self.assertEqual(prove.read_output(f"{prove.ROOT}/tests/a.cpp:7: Failure\n")[1], ["tests/a.cpp:7: Failure"])
        self.assertEqual(bites.last_words(f"{bites.COPY}/tests/a.cpp:7: Failure\n"), "tests/a.cpp:7: Failure")


class Fuzzing(unittest.TestCase):
    def test_a_crash_belongs_to_the_first_frame_that_is_no_library_of_the_system(self):
        self.assertEqual(fuzz.place_of(CRASH_IN_DUCKDB), ("duckdb::Read(int)", True))
        own = CRASH_IN_DUCKDB.replace("/c/lib/libduckdb.so", "/x/fuzz/a.cpp")
        self.assertFalse(fuzz.place_of(own)[1])

    def test_the_allocator_of_a_sanitizer_is_not_where_memory_ran_out(self):
        output = ("==1== ERROR: libFuzzer: out-of-memory\n    #0 0x5 in operator new(unsigned long) (/x/build/fuzz/bin/fuzz_targets+0x3ff)\n"
                  "    #1 0x7 in duckdb::Copy() (/c/lib/libduckdb.so+0x1)\n    #2 0x5 in fuzz::Run() /x/fuzz/targets.cpp:3:1\n")
        self.assertEqual(fuzz.place_of(output), ("duckdb::Copy()", True))

    def test_an_input_that_takes_too_long_is_named_by_that_and_not_by_the_place_of_the_alarm(self):
        output = "    #0 0x1 in __sanitizer_print_stack_trace (/x/build/fuzz/bin/fuzz_targets+0x3)\nSUMMARY: libFuzzer: timeout\n"
        self.assertEqual(fuzz.place_of(output), ("libFuzzer: timeout", False))

    def test_a_finding_is_slow_by_the_processors_time_and_not_by_the_clocks(self):
        for seconds, place in ((fuzz.LONGEST_INPUT_SECONDS - 1, fuzz.CANNOT_BE_REPEATED), (fuzz.LONGEST_INPUT_SECONDS + 1, "takes more than 20 s")):
            with unittest.mock.patch.object(fuzz, "call", return_value=(0, "", seconds)):
                self.assertEqual(fuzz.judge("a", "finding", {}), (place, False))

    def test_memory_without_a_place_is_that_of_its_largest_part(self):
        over = "SUMMARY: libFuzzer: out-of-memory\n"
        part = "    #0 0x7 in duckdb::Copy() (/c/lib/libduckdb.so+0x1)\n" + over
        for second, place in ((part, ("duckdb::Copy()", True)), ("", fuzz.OUT_OF_MEMORY), (over, fuzz.OUT_OF_MEMORY)):
            with unittest.mock.patch.object(fuzz, "call", side_effect=[(71, over, 1), (0, second, 1)]):
                self.assertEqual(fuzz.judge("a", "finding", {}), place)

    def test_memory_that_is_lost_when_a_fuzzer_ends_is_a_finding_wherever_it_was_allocated(self):
        leak = "==1==ERROR: LeakSanitizer: detected memory leaks\n" + CRASH_IN_DUCKDB + "stat::number_of_executed_units: 9\n"
        with tempfile.TemporaryDirectory() as folder, \
                unittest.mock.patch.multiple(fuzz, WORK=pathlib.Path(folder, "work"), FINDINGS=pathlib.Path(folder, "findings"), MOST_FINDINGS=1), \
                unittest.mock.patch.object(fuzz, "call", return_value=(1, leak, 1)):
            entry = fuzz.run_target("a", 10, {})
        self.assertFalse(entry["passed"])
        self.assertRegex(entry["figures"][0], r"^finding: leak: duckdb::Read\(int\): a\.\d+\.log$")

    def test_a_wrong_outcome_is_never_duckdbs(self):
        self.assertEqual(fuzz.place_of("fuzz: wrong outcome: rows\n" + CRASH_IN_DUCKDB), ("rows", False))

    def test_every_target_has_inputs_and_all_stay_under_two_mebibytes(self):
        names = set(re.findall(r'^    \{"(\w+)", \w+\},$', (ROOT / "fuzz/targets.cpp").read_text(), re.MULTILINE))
        self.assertGreaterEqual(len(names), 10)
        self.assertEqual({folder.name for folder in (ROOT / "fuzz/corpus").iterdir()}, names)
        sizes = [file.stat().st_size for file in (ROOT / "fuzz/corpus").rglob("*") if file.is_file()]
        self.assertLess(sum(sizes), 2 << 20)


class Bites(unittest.TestCase):
    def test_every_bug_can_be_planted_at_one_place(self):
        for bite in bites.BITES:
            self.assertEqual((ROOT / bite.file).read_text().count(bite.right), 1, bite.kind)
            self.assertNotEqual(bite.right, bite.wrong)

    def test_there_is_a_bug_of_each_kind(self):
        kinds = {"overflow", "use after free", "leak", "race", "undefined behaviour", "lost row", "swallowed error", "wrong cell",
                 "result that ends early", "dropped lock", "slow path"}
        self.assertEqual({bite.kind for bite in bites.BITES}, kinds)

    def test_what_is_wrong_is_shown(self):
        self.assertEqual(bites.last_words("a\n  ERROR: LeakSanitizer: b\nc"), "ERROR: LeakSanitizer: b")
        self.assertEqual(bites.last_words("[ RUN ] KeepsRowsBeforeAFailure\na.cpp:7: Failure\n"), "a.cpp:7: Failure")


class Records(unittest.TestCase):
    def test_a_part_that_passed_does_not_replace_a_whole_run_and_a_later_run_replaces_an_earlier_one(self):
        whole, part = invented("a", date="1"), invented("a", "--runs 10", "2")
        self.assertEqual(put(("stress", whole), ("stress", part)), {"stress": {"a": whole}})
        self.assertEqual(put(("stress", part), ("stress", whole)), {"stress": {"a": whole}})
        failed = invented("a", "--runs 10", "2", passed=False)
        self.assertEqual(put(("stress", whole), ("stress", failed)), {"stress": {"a": failed}})
        later = invented("a", date="3", passed=False)
        self.assertEqual(put(("stress", later), ("stress", whole)), {"stress": {"a": later}})

    def test_every_run_of_a_fuzzer_counts_once(self):
        first, second = fuzzed("a", "1", 1800), fuzzed("a", "2", 3600)
        found = put(("fuzz", second), ("fuzz", first), ("fuzz", second))
        self.assertEqual(found, {"fuzz": {"a": [first, second]}})
        self.assertEqual(page.hours(records.entries(found["fuzz"])), 1.5)

    def test_the_records_of_another_tree_are_added(self):
        with tempfile.TemporaryDirectory() as folder:
            here, there = pathlib.Path(folder, "here"), pathlib.Path(folder, "there")
            with unittest.mock.patch.object(records, "FILE", there):
                records.change([("kills", invented("a")), ("fuzz", fuzzed("b", "1", 1))])
            with unittest.mock.patch.object(records, "FILE", here):
                records.change([("kills", invented("c")), ("fuzz", fuzzed("b", "2", 1))])
                records.merge(there)
                found = records.load()
        self.assertEqual(sorted(found["kills"]), ["a", "c"])
        self.assertEqual([run["date"] for run in found["fuzz"]["b"]], ["1", "2"])


class Page(unittest.TestCase):
    def test_the_page_is_what_the_records_say(self):
        self.assertEqual((ROOT / "docs/reliability.md").read_text(), page.text_of(records.load()),
                         "write it by scripts/prove --page")

    def test_a_stage_whose_programs_did_not_all_run_whole_says_so(self):
        names = [step.name for stage in stages.STAGES for step in stage.steps if stage.name == "stress"]
        part = put(("stress", invented(names[0])),
                   ("stress", invented(names[1], "--minutes 1", "2020-01-02 10:00:00", commit="def")))
        self.assertIn(f"| `stress` | 2020-01-01, 2020-01-02 | 1 of {len(names)} runs whole | abc, def | 4.1 h | passed |",
                      page.summary(part))
        whole = put(*(("stress", invented(name)) for name in names))
        self.assertIn("| `stress` | 2020-01-01 | whole | abc |", page.summary(whole))
        self.assertIn("| `soak` | not yet recorded |", page.summary(whole))

    def test_the_kills_of_several_runs_add_up(self):
        stage = next(stage for stage in stages.STAGES if stage.name == "kills")
        runs = [("kills", invented(step.name, "part", date, runs=stage.runs // 2)) for step in stage.steps for date in ("1", "2")]
        self.assertIn("| whole |", page.summary(put(*runs)))
        self.assertIn(f"| {sum(entry['runs'] for _, entry in runs[1:])} of {stage.runs * len(stage.steps)} processes killed |",
                      page.summary(put(*runs[1:])))
        self.assertEqual(page.details(put(*runs)).count(f"| 2 runs, {stage.runs} processes killed |"), len(stage.steps))

    def test_a_run_that_failed_is_shown(self):
        self.assertIn("| **failed** |", page.summary(put(("soak", invented("release: soak_test", passed=False)))))

    def test_the_hours_of_the_fuzzers_add_up(self):
        found = put(("fuzz", fuzzed("a", "1", 1800)), ("fuzz", fuzzed("b", "2", 3600)), ("fuzz", fuzzed("a", "3", 3600)))
        self.assertIn("| 2.50 of 6 core-hours |", page.summary(found))

    def test_figures_do_not_break_the_table(self):
        self.assertIn("3 \\| 4", page.details({"files": {"a": invented("a")}}))


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=[sys.argv[0]] + sys.argv[2:], verbosity=1)
