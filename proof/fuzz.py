"""Runs the fuzzers of fuzz/, judges what they found, and minimises their corpora; called by proof/prove.py."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
CORPUS = ROOT / "fuzz" / "corpus"
PROGRAM = ROOT / "build" / "fuzz" / "bin" / "fuzz_targets"
# What the fuzzers collect, and what they found, by target. Not removed by a next run, which goes on from there.
WORK = ROOT / "build" / "fuzz" / "work"
FINDINGS = ROOT / "build" / "fuzz" / "findings"
# Inputs longer than this get nowhere that shorter ones do not.
MOST_BYTES = {"parquet_file": 6000, "database_head": 16384}
COMMON_BYTES = 2000
# Of the processor: other programs may hold up the fuzzer for much longer.
LONGEST_INPUT_SECONDS = 20
# On the clock: nothing goes on any more.
HANGS_AFTER_SECONDS = 300
MOST_MEGABYTES = 2500
# What passes the limit in small parts is looked for by its largest part.
LARGE_PART_MEGABYTES = 100
# A target that fails at once again and again is left.
MOST_FINDINGS = 20
CANNOT_BE_REPEATED = "cannot be repeated"
# As place_of() names it where no stack was printed.
OUT_OF_MEMORY = ("libFuzzer: out-of-memory", False)
# DuckDB's threads hold memory from one input to the next, for which libFuzzer would stop them all and search for leaks after
# most inputs: some of the fuzzers then run one input a second. The search at the end of the program stays.
LEAKS_AT_EXIT = "-detect_leaks=0"
# A frame of a sanitizer's stack, with the function and the file or library that it is in.
FRAME = re.compile(r"^\s+#\d+ 0x[0-9a-f]+ (?:in )?(.*)$", re.MULTILINE)


def targets():
    return sorted(folder.name for folder in CORPUS.iterdir())


def bytes_of(target):
    return MOST_BYTES.get(target, COMMON_BYTES)


def limits(target, memory=(f"-rss_limit_mb={MOST_MEGABYTES}",)):
    return [f"-max_len={bytes_of(target)}", f"-timeout={HANGS_AFTER_SECONDS}", *memory]


def call(target, arguments, environment):
    """One run to its end: (status, output, seconds of the processor). What libFuzzer writes by itself stays in the build's folder."""
    FINDINGS.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen([PROGRAM, *map(str, arguments)], env=dict(environment, MDUCKDB_FUZZ_TARGET=target),
                                   cwd=FINDINGS.parent, stdout=output, stderr=subprocess.STDOUT)
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        return process.returncode, output.read().decode(errors="replace"), used.ru_utime + used.ru_stime


def place_of(output):
    """The first function of a crash that is neither the sanitizer's nor the C or C++ library's, and whether it is DuckDB's."""
    if "fuzz: wrong outcome" in output:
        return re.search(r"fuzz: wrong outcome: (.*)", output)[1], False
    for frame in FRAME.findall(output):
        # The sanitizers and libFuzzer are in the program too, but without lines of a source.
        if f"bin/{PROGRAM.name}+0x" in frame:
            continue
        if "libduckdb" in frame:
            return re.sub(r"\s+\(.*", "", frame), True
        if str(ROOT) in frame or "/fuzz/" in frame:
            return re.sub(r"\s*\(BuildId.*", "", frame).replace(str(ROOT) + "/", ""), False
    for kind in ("libFuzzer: timeout", "libFuzzer: out-of-memory", "LeakSanitizer"):
        if kind in output:
            return kind, False
    return "unknown", False


def judge(target, finding, environment):
    """Runs a finding again, by itself."""
    status, output, processor = call(target, [*limits(target), finding], environment)
    if status != 0:
        place = place_of(output)
        if place != OUT_OF_MEMORY:
            return place
        # The limit of the whole process tells nothing about who passed it.
        _, output, _ = call(target, [*limits(target, ("-rss_limit_mb=0", f"-malloc_limit_mb={LARGE_PART_MEGABYTES}")), finding], environment)
        return place_of(output) if "libFuzzer: out-of-memory" in output else place
    return (f"takes more than {LONGEST_INPUT_SECONDS} s" if processor > LONGEST_INPUT_SECONDS else CANNOT_BE_REPEATED, False)


def coverage(target, folders, environment):
    """Branches that the inputs reach."""
    _, output, _ = call(target, ["-runs=0", LEAKS_AT_EXIT, *limits(target), *folders], environment)
    found = re.findall(r"INITED cov: (\d+)", output)
    return int(found[-1]) if found else 0


def run_target(target, seconds, environment):
    work, findings = WORK / target, FINDINGS / target
    for folder in (work, findings):
        folder.mkdir(parents=True, exist_ok=True)
    before = coverage(target, [CORPUS / target, work], environment)
    start = time.monotonic()
    executions, used = 0, 0.0
    places = {}
    for _ in range(MOST_FINDINGS):
        left = round(seconds - (time.monotonic() - start))
        if left <= 0:
            break
        # A finding ends the program; the next one goes on from what the earlier ones collected.
        _, output, processor = call(target, [*limits(target), LEAKS_AT_EXIT, f"-max_total_time={left}", "-print_final_stats=1",
                                             f"-artifact_prefix={findings}/", work, CORPUS / target], environment)
        executions += sum(map(int, re.findall(r"^stat::number_of_executed_units: (\d+)", output, re.MULTILINE)))
        used += processor
        # What cannot be repeated can be told only from what it printed.
        if "Test unit written to" in output or "ERROR: " in output:
            log = findings.parent / f"{target}.{time.time_ns()}.log"
            log.write_text(output)
            if "ERROR: LeakSanitizer" in output:
                # Any of the inputs may have left it, and what DuckDB allocated may have been ours to release.
                places.setdefault((f"leak: {place_of(output)[0]}", False), []).append(log.name)
    spent = round(time.monotonic() - start, 1)
    after = coverage(target, [CORPUS / target, work], environment)
    for finding in sorted(findings.iterdir()):
        places.setdefault(judge(target, finding, environment), []).append(finding.name)
    own = [place for (place, is_duckdb) in places if not is_duckdb and place != CANNOT_BE_REPEATED]
    figures = [f"{'in DuckDB' if is_duckdb else 'finding'}: {place}: {names[0]}" + (f" and {len(names) - 1} more" if len(names) > 1 else "")
               for (place, is_duckdb), names in sorted(places.items())]
    print(f"{target}: {executions} inputs, {before} branches before, {after} after", *figures, sep="\n    ", flush=True)
    # The processor's seconds are what counts: a fuzzer may have had to wait for others.
    return {"name": target, "form": "part", "command": target, "seconds": spent, "seconds of the processor": round(used, 1),
            "inputs": executions, "branches": [before, after], "figures": figures, "passed": not own and executions > 0}


def minimise(chosen, environment):
    """Replaces each target's corpus by the smallest set of its inputs and of those found that reaches the same."""
    for target in chosen:
        small = WORK.parent / "small" / target
        shutil.rmtree(small, ignore_errors=True)
        small.mkdir(parents=True)
        sources = [folder for folder in (CORPUS / target, WORK / target) if folder.exists()]
        status, output, _ = call(target, ["-merge=1", LEAKS_AT_EXIT, *limits(target), small, *sources], environment)
        if status != 0 or not any(small.iterdir()):
            print(f"{target}: left as it was: {output[-300:]}")
            continue
        shutil.rmtree(CORPUS / target)
        shutil.copytree(small, CORPUS / target)
        size = sum(file.stat().st_size for file in small.iterdir())
        print(f"{target}: {len(list(small.iterdir()))} inputs, {size} bytes", flush=True)
