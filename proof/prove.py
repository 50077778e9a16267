"""Runs the stages of scripts/prove and records what they showed; called by scripts/prove."""

import argparse
import datetime
import json
import os
import pathlib
import re
import subprocess
import sys
import time

import bites
import fuzz
import page
import stages

ROOT = pathlib.Path(__file__).resolve().parent.parent
RECORDS = ROOT / "proof" / "results.json"
# What a program prints for people beside its framework's lines.
FIGURE = re.compile(r"^(?!\[|Note: |Running main|\s*$|Repeating).*\d")
MOST_FIGURES = 40


def fill(text, values):
    return text.format(**values)


def variables_of(stage, step, options):
    """The environment of the step; nothing for the short form."""
    if options.short:
        return {}
    minutes = options.minutes or step.minutes or stage.minutes
    values = {"minutes": minutes, "seconds": int(minutes * 60), "runs": options.runs or stage.runs}
    return {name: fill(text, values) for name, text in step.variables.items()}


def environment(preset, variables):
    found = dict(os.environ, GTEST_BRIEF="0", GTEST_COLOR="no", **variables)
    if preset in ("asan", "fuzz"):
        found.setdefault("ASAN_OPTIONS", "detect_stack_use_after_return=1:strict_string_checks=1")
        found.setdefault("LSAN_OPTIONS", f"suppressions={ROOT}/tests/lsan.supp:print_suppressions=0")
    if preset == "tsan":
        found.setdefault("TSAN_OPTIONS", f"suppressions={ROOT}/tests/tsan.supp:ignore_noninstrumented_modules=1"
                                         ":second_deadlock_stack=1:print_suppressions=0")
    return found


def read_output(output):
    """Passed tests, and the lines with figures."""
    passed = re.findall(r"^\[  PASSED  \] (\d+) test", output, re.MULTILINE)
    figures = [line.strip() for line in output.splitlines() if FIGURE.match(line)]
    return sum(map(int, passed)), figures[:MOST_FIGURES]


def run_program(program, arguments, variables):
    """One test program to its end, its output copied to ours: (status, output, seconds)."""
    start = time.monotonic()
    process = subprocess.Popen([program, *arguments], env=variables, cwd=program.parent, text=True, errors="replace",
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    lines = []
    for line in process.stdout:
        print(line, end="", flush=True)
        lines.append(line)
    return process.wait(), "".join(lines), round(time.monotonic() - start, 1)


def build(preset, targets):
    subprocess.run([ROOT / "scripts" / "prove", "--build", preset, *targets], check=True)


def run_step(stage, step, options):
    variables = variables_of(stage, step, options)
    program = ROOT / "build" / step.preset / "bin" / step.program
    arguments = [f"--gtest_filter={step.tests}"] if step.tests else []
    shown = " ".join([f"{name}={text}" for name, text in variables.items()] + [step.program] + arguments)
    print(f"--- {step.preset}: {shown}", flush=True)
    status, output, seconds = run_program(program, arguments, environment(step.preset, variables))
    passed, figures = read_output(output)
    return {"preset": step.preset, "command": shown, "seconds": seconds, "tests": passed, "figures": figures,
            # A filter that matches nothing passes too.
            "passed": status == 0 and passed > 0}


def run_steps(stage, options):
    for preset in sorted({step.preset for step in stage.steps}):
        build(preset, sorted({step.program for step in stage.steps if step.preset == preset}))
    return [run_step(stage, step, options) for step in stage.steps]


def commit():
    answer = subprocess.run(["git", "-C", ROOT, "describe", "--always", "--dirty"], capture_output=True, text=True)
    return answer.stdout.strip() or "unknown"


def form_of(stage, options):
    """Short, whole (the long form without options), or what the options made of it."""
    if options.short:
        return "short"
    if options.kind:
        return "only " + ", ".join(options.kind)
    changed = [f"--{name} {value:g}" for name, value, default in
               (("minutes", options.minutes, stage.minutes), ("runs", options.runs, stage.runs))
               if default and value and value < default]
    return " ".join(changed) or "whole"


def run_replay(stage, options):
    """The stored inputs of the fuzzers, whose program does not use the framework of the others."""
    build("release", ["fuzz_replay"])
    status, output, seconds = run_program(ROOT / "build/release/bin/fuzz_replay", [ROOT / "fuzz/corpus"], dict(os.environ))
    counts = re.findall(r"^(\d+) inputs of (\w+) replayed$", output, re.MULTILINE)
    inputs = sum(int(count) for count, _ in counts)
    return [{"preset": "release", "command": "fuzz_replay", "seconds": seconds, "tests": inputs,
             "figures": [f"{inputs} inputs of {len(counts)} targets"], "passed": status == 0 and inputs > 0}]


def run_fuzz(stage, options):
    if options.short:
        return run_replay(stage, options)
    build("fuzz", ["fuzz_targets"])
    return fuzz.run((options.minutes or stage.minutes) * 60, options.jobs, environment("fuzz", {}))


def run_bites(stage, options):
    return bites.run(environment, options.kind)


RUNNERS = {"programs": run_steps, "fuzz": run_fuzz, "bites": run_bites}


def run_stage(stage, options):
    print(f"=== {stage.name}", flush=True)
    start = time.monotonic()
    steps = RUNNERS[stage.kind](stage, options)
    return {
        "date": datetime.date.today().isoformat(),
        "commit": commit(),
        "form": form_of(stage, options),
        "seconds": round(time.monotonic() - start),
        "passed": all(step["passed"] for step in steps),
        "steps": steps,
    }


def load_records():
    return json.loads(RECORDS.read_text()) if RECORDS.exists() else {}


def record(results):
    """A short form does not replace a longer one, nor does a part replace a whole run that passed."""
    records = load_records()
    rank = {"short": 0, "whole": 2}
    for name, result in results.items():
        old = records.get(name)
        if old and rank.get(old["form"], 1) > rank.get(result["form"], 1):
            print(f"{name}: the record of {old['date']} ({old['form']}) stays")
            continue
        records[name] = result
    RECORDS.write_text(json.dumps(records, indent=1, sort_keys=True) + "\n")


def parse(arguments):
    known = {stage.name: stage for stage in stages.STAGES}
    parser = argparse.ArgumentParser(prog="scripts/prove", description="The long proofs. Without a stage: all of them.")
    parser.add_argument("stages", nargs="*", metavar="STAGE", help=", ".join(known))
    parser.add_argument("--short", action="store_true", help="the forms that the gate runs: seconds for each program")
    parser.add_argument("--minutes", type=float, default=0, help="how long the programs run that run for a time")
    parser.add_argument("--runs", type=int, default=0, help="how many processes each program of `kills` kills")
    parser.add_argument("--jobs", type=int, default=1, help="how many fuzzers run at once")
    parser.add_argument("--kind", action="append", help="of the bugs of `bites`: only this one; may be repeated")
    parser.add_argument("--minimise", action="store_true",
                        help="do nothing else: put the inputs that the fuzzers found into fuzz/corpus, the fewest and smallest")
    parser.add_argument("--page", action="store_true", help="do nothing else: write docs/reliability.md from the records")
    parser.add_argument("--record", action="store_true", help="record the results and write docs/reliability.md")
    options = parser.parse_args(arguments)
    for name in options.stages:
        if name not in known:
            parser.error(f"unknown stage '{name}'; use one of: {', '.join(known)}")
    return options, [known[name] for name in options.stages] or list(stages.STAGES)


def main():
    options, wanted = parse(sys.argv[1:])
    if options.minimise:
        build("fuzz", ["fuzz_targets"])
        fuzz.minimise(environment("fuzz", {}))
        return
    if options.page:
        page.write(load_records())
        return
    results = {stage.name: run_stage(stage, options) for stage in wanted}
    print("\n=== results")
    for name, result in results.items():
        print(f"{name:12} {result['seconds']:6} s  {result['form']:16} {'passed' if result['passed'] else 'FAILED'}")
        for step in result["steps"]:
            print(f"    {'passed' if step['passed'] else 'FAILED'} {step['seconds']:8.1f} s  {step['command']}")
    if options.record:
        record(results)
        page.write(load_records())
    sys.exit(0 if all(result["passed"] for result in results.values()) else 1)


if __name__ == "__main__":
    main()
