"""Plants one bug of each kind into a copy of the tree and shows what catches it; called by proof/prove.py.

Each bug is a small change of one source file, which the compilers accept. The copy is built in its own folder, only the one test program,
and the source is restored before the next bug."""

import dataclasses
import pathlib
import shutil
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPY = ROOT / "build" / "bites"
# Longer than any of the programs needs; a program that hangs is caught as well.
MOST_SECONDS = 300


@dataclasses.dataclass(frozen=True)
class Bite:
    kind: str
    file: str
    # Occurs once in the file.
    right: str
    wrong: str
    preset: str
    program: str
    tests: str = "*"
    variables: tuple = ()
    # Which stage of .ci/run or of scripts/prove runs the program like this.
    stage: str = ""


BITES = (
    Bite("overflow", "src/values/host_text.h", "if (text.size() <= ascii.size() &&", "if (text.size() <= 64 * ascii.size() &&",
         "asan", "appender_tests", "AppenderTest.StoresTextsOfAnyLength*", stage="asan"),
    Bite("use after free", "src/backup/export_scripts.cpp", "const std::string_view statement = script.substr(0, end);",
         "const auto* const freed = new std::string(script.substr(0, end));\n        const std::string_view statement = *freed;\n"
         "        delete freed;", "asan", "backup_units_test", stage="asan"),
    Bite("leak", "src/backup/export_scripts.cpp", "static const std::regex row_group_size(",
         "const std::regex& row_group_size = *new std::regex(", "asan", "backup_units_test", stage="asan"),
    Bite("undefined behaviour", "src/backup/export_scripts.cpp", "    std::string result;\n    for (std::size_t i = 1;",
         "    std::string result(static_cast<std::size_t>(0 * (1 << (text.size() + 30))), ' ');\n    for (std::size_t i = 1;",
         "asan", "backup_units_test", stage="asan"),
    Bite("race", "src/base/deadline.cpp", "    const std::lock_guard<std::mutex> lock(mutex_);\n    if (!thread_",
         "    if (!thread_", "tsan", "deadline_tests", stage="tsan"),
    Bite("lost row", "src/duckdb_internals/chunk_rows.cpp", "count -= taken;", "count -= std::min(count, taken + 1);", "dev", "appender_tests", "AppenderTest.*",
         stage="release"),
    Bite("swallowed error", "src/engines/file_system.cpp", "errno != ENOENT && error == 0) {", "errno != ENOENT && error == 1) {",
         "dev", "file_faults_test", variables=(("MDUCKDB_TEST_EVERY_FILE_FAULT", "1"), ("MDUCKDB_TEST_FILE_OPERATION", "drop")),
         stage="files"),
    Bite("wrong cell", "src/duckdb_internals/decimal_double.cpp", "int64_t{1} << 53;",
         "int64_t{1} << 54;", "dev", "duckdb_internals_tests", "DecimalDouble*", stage="release"),
    Bite("result that ends early", "src/objects/duckdb_cursor_server.cpp", "row_in_chunk_ + 1 >= cells_.get_RowCount()) {",
         "row_in_chunk_ + 2 >= cells_.get_RowCount()) {", "dev", "cursor_tests", "ServerCursor*:*BothCursors*", stage="release"),
    Bite("dropped lock", "src/engines/file_lock.cpp", "} else if (fcntl(descriptor_.get(), F_OFD_SETLK, &lock) != 0) {",
         "} else if (lock.l_type == F_UNLCK) {", "dev", "database_test", "SecondProcess*:OneFile*", stage="release"),
    Bite("slow path", "src/values/host_value_walk.h", "return repeated_size_ <= kMostRepeated;",
         "return repeated_size_ <= 20 * kMostRepeated;", "dev", "statement_faults_tests", "*RepeatsALongText*", stage="release"),
)


def files():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            capture_output=True, check=True).stdout.decode()
    return [name for name in listed.split("\0") if name and (ROOT / name).is_file()]


def copy_tree():
    """The files of the tree; of a copy of an earlier run only what has changed since is built again."""
    for name in files():
        source, target = ROOT / name, COPY / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)


def build(preset, program):
    """Whether the copy builds, and what was printed."""
    run = subprocess.run([COPY / "scripts" / "prove", "--build", preset, program], capture_output=True, text=True)
    return run.returncode == 0, run.stdout + run.stderr


def last_words(output):
    """The line that says what is wrong, without the folder of the copy."""
    marks = ("ERROR: ", "runtime error: ", "WARNING: ThreadSanitizer", "error: ")
    lines = [line.strip().replace(f"{COPY}/", "") for line in output.splitlines()]
    # A test's name may contain the last word.
    found = [line for line in lines if any(mark in line for mark in marks) or line.endswith(": Failure")]
    return found[0][:160] if found else "it failed"


def run_program(bite, environment):
    program = COPY / "build" / bite.preset / "bin" / bite.program
    variables = dict(environment(bite.preset, dict(bite.variables)))
    if "TSAN_OPTIONS" in variables:
        # What goes on after a race may never end.
        variables["TSAN_OPTIONS"] += ":halt_on_error=1"
    try:
        run = subprocess.run([program, f"--gtest_filter={bite.tests}"], cwd=program.parent, env=variables, timeout=MOST_SECONDS,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")
    except subprocess.TimeoutExpired:
        return False, f"it ran for more than {MOST_SECONDS} s"
    return run.returncode == 0 and "[  PASSED  ] 0 tests" not in run.stdout, last_words(run.stdout)


def bite_once(bite, environment):
    start = time.monotonic()
    place = COPY / bite.file
    text = (ROOT / bite.file).read_text()
    is_caught = False
    try:
        # Without the bug everything passes; a test that always fails would catch nothing.
        is_built, words = build(bite.preset, bite.program)
        passes, words = run_program(bite, environment) if is_built else (False, last_words(words))
        outcome = f"without the bug: {words}"
        if passes:
            place.write_text(text.replace(bite.right, bite.wrong))
            is_built, words = build(bite.preset, bite.program)
            passes, words = run_program(bite, environment) if is_built else (True, last_words(words))
            is_caught = not passes
            outcome = f"caught: {words}" if is_caught else "NOT CAUGHT" + ("" if is_built else f", since it cannot be built: {words}")
    finally:
        place.write_text(text)
    print(f"{bite.kind}: {bite.stage}, {bite.program}: {outcome}", flush=True)
    return {"name": bite.kind, "form": "whole", "command": f"{bite.kind}: {bite.program}, preset {bite.preset}",
            "seconds": round(time.monotonic() - start, 1), "figures": [f"stage {bite.stage}: {outcome}"], "passed": is_caught}
