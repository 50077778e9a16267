"""The stages of scripts/prove: which programs each of them runs, and how long in the long and in the short form.

The short form of a program is what it does without variables: the gate runs it. `{minutes}`, `{seconds}` and `{runs}` in a variable
stand for the options of scripts/prove; a stage's own values are beside it. `{seed}` is another number in each run.
"""

import dataclasses
import typing


@dataclasses.dataclass(frozen=True)
class Step:
    """One run of a test program."""

    program: str
    # The tests of the program; empty for all.
    tests: str = ""
    # What makes the form long. Empty: the short form is the whole.
    variables: typing.Mapping[str, str] = dataclasses.field(default_factory=dict)
    preset: str = "release"
    # Where the length of this step differs from that of the stage.
    minutes: float = 0

    @property
    def name(self):
        return f"{self.preset}: {self.program} {self.tests}".rstrip()


@dataclasses.dataclass(frozen=True)
class Stage:
    name: str
    promise: str
    steps: tuple
    # Of the long form, without options. `runs` is for each step, `minutes` for each step or for all fuzzers together.
    minutes: float = 0
    runs: int = 0
    # "programs" runs the steps; the others have a file of their own.
    kind: str = "programs"


STAGES = (
    Stage(
        "allocations",
        "Each allocation of the module and of `mshared` fails, once and for ever: the operation reports it or returns its exact"
        " result, and everything can be used afterwards.",
        (
            Step("out_of_memory_tests", variables={"MDUCKDB_TEST_EVERY_ALLOCATION": "1"}),
            Step("database_out_of_memory_test"),
        ),
    ),
    Stage(
        "calls",
        "Calls of DuckDB and callbacks of the host fail: the error is reported, and no handle is left.",
        (
            Step("database_every_call_test", variables={"MDUCKDB_TEST_EVERY_CALL": "1"}),
            Step("statement_faults_tests"),
            Step("database_test", "*Failure*:*Interrupt*:*BackReference*:BackupHook*"),
            Step("procedures_tests", "HostCalls*"),
            Step("statement_tests", "HostValueCalls*"),
            Step("database_deadline_test", "*Interrupt*"),
            Step("database_stream_test"),
            Step("database_error_facts_test"),
            Step("handed_on_tests"),
        ),
    ),
    Stage(
        "files",
        "Each operation of the system on a file fails: open, read, write, sync, rename, unlink. Afterwards every file is whole,"
        " and what was not reported as an error is there.",
        (Step("file_faults_test", variables={"MDUCKDB_TEST_EVERY_FILE_FAULT": "1"}),),
    ),
    Stage(
        "fuzz",
        "Values, texts and files of unknown origin are read or refused.",
        (Step("fuzz_replay"),),
        minutes=360,
        kind="fuzz",
    ),
    Stage(
        "bounds",
        "Memory stays within its limits however many rows there are; large files are backed up, copied and restored.",
        (
            Step("procedure_limits_tests", variables={"MDUCKDB_TEST_BOUND": "full"}),
            Step("cursor_tests", variables={"MDUCKDB_TEST_BOUND": "full"}),
            Step("arrow_tests", variables={"MDUCKDB_TEST_BOUND": "full"}),
            Step("backup_test", "*HoldsThousandsOfTables*", {"MDUCKDB_TEST_SNAPSHOT_TABLES": "10000"}),
            Step("backup_test", "SnapshotSpeed*", {"MDUCKDB_TEST_SNAPSHOT_SPEED_ROWS": "35000000"}),
            Step("database_test", "DatabaseBackup*", {"MDUCKDB_TEST_BACKUP_ROWS": "5000000"}),
        ),
    ),
    Stage(
        "stress",
        "Threads that do everything at once lose no row, never block one another for ever, and race nowhere.",
        (
            Step("modules_stress_test", variables={"MDUCKDB_TEST_STRESS_SECONDS": "{seconds}"}),
            Step("modules_stress_test", variables={"MDUCKDB_TEST_STRESS_SECONDS": "{seconds}"}, preset="tsan", minutes=10),
            Step("database_threads_test", variables={"MDUCKDB_TEST_SECONDS": "{seconds}"}, minutes=2),
            Step("database_test", "DatabaseModel*", {"MDUCKDB_TEST_MODEL_STEPS": "100000"}),
            Step("backup_test", "SnapshotStress*", {"MDUCKDB_TEST_SNAPSHOTS": "100", "MDUCKDB_TEST_SNAPSHOT_ROWS": "2000000"}),
        ),
        minutes=60,
    ),
    Stage(
        "kills",
        "A process that is killed leaves every committed row, no other row, and a whole file.",
        (
            Step("backup_test", "SnapshotKill*", {"MDUCKDB_TEST_KILL_RUNS": "{runs}", "MDUCKDB_TEST_SEED": "{seed}"}),
            Step("database_test", "DatabaseKill*", {"MDUCKDB_TEST_KILL_RUNS": "{runs}", "MDUCKDB_TEST_SEED": "{seed}"}),
            Step("database_test", "LifeKill*", {"MDUCKDB_TEST_KILL_RUNS": "{runs}", "MDUCKDB_TEST_SEED": "{seed}"}),
            Step("database_test", "RestoreKill*", {"MDUCKDB_TEST_RESTORE_KILL_RUNS": "{runs}", "MDUCKDB_TEST_SEED": "{seed}"}),
        ),
        runs=2500,
    ),
    Stage(
        "soak",
        "The same work for hours holds no more memory, handles, threads and descriptors than after its first minutes.",
        (Step("soak_test", variables={"MDUCKDB_TEST_SOAK_SECONDS": "{seconds}"}),),
        minutes=60,
    ),
    Stage(
        "bites",
        "These tests fail when they must: a bug of each kind, planted into a copy of the tree, is caught.",
        (),
        kind="bites",
    ),
)
