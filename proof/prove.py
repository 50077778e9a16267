"""Runs the stages of scripts/prove and records what they showed; called by scripts/prove."""

import argparse
import concurrent.futures
import os
import pathlib
import random
import re
import subprocess
import sys
import time

import bites
import fuzz
import page
import records
import stages

ROOT = pathlib.Path(__file__).resolve().parent.parent
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
    values = {"minutes": minutes, "seconds": int(minutes * 60), "runs": options.runs or stage.runs, "seed": random.randint(1, 1000000)}
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
    """Passed tests, and the lines with figures, without the folder of the tree."""
    passed = re.findall(r"^\[  PASSED  \] (\d+) test", output, re.MULTILINE)
    figures = [line.strip().replace(f"{ROOT}/", "") for line in output.splitlines() if FIGURE.match(line)]
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


def form_of(stage, step, options):
    """Whole: the long form without options. Part: one of the runs that add up. Otherwise what the options made of it."""
    if stage.runs:
        return "part"
    is_shorter = options.minutes and "{seconds}" in " ".join(step.variables.values()) and options.minutes < (step.minutes or stage.minutes)
    return f"--minutes {options.minutes:g}" if is_shorter else "whole"


def run_step(stage, step, options):
    variables = variables_of(stage, step, options)
    program = ROOT / "build" / step.preset / "bin" / step.program
    arguments = [f"--gtest_filter={step.tests}"] if step.tests else []
    shown = " ".join([f"{name}={text}" for name, text in variables.items()] + [step.program] + arguments)
    print(f"--- {step.preset}: {shown}", flush=True)
    status, output, seconds = run_program(program, arguments, environment(step.preset, variables))
    passed, figures = read_output(output)
    return {"name": step.name, "form": form_of(stage, step, options), "command": shown, "seconds": seconds, "tests": passed,
            "figures": figures, "runs": options.runs or stage.runs,
            # A filter that matches nothing passes too.
            "passed": status == 0 and passed > 0}


def run_steps(stage, options, each):
    steps = [step for step in stage.steps if is_wanted(step.name, options)]
    for preset in sorted({step.preset for step in steps}):
        build(preset, sorted({step.program for step in steps if step.preset == preset}))
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        return list(pool.map(lambda step: each(lambda: run_step(stage, step, options)), steps))


def run_replay():
    """The stored inputs of the fuzzers, whose program does not use the framework of the others."""
    build("release", ["fuzz_replay"])
    status, output, seconds = run_program(ROOT / "build/release/bin/fuzz_replay", [ROOT / "fuzz/corpus"], dict(os.environ))
    counts = re.findall(r"^(\d+) inputs of (\w+) replayed$", output, re.MULTILINE)
    inputs = sum(int(count) for count, _ in counts)
    return {"name": "fuzz_replay", "command": "fuzz_replay", "seconds": seconds,
            "figures": [f"{inputs} inputs of {len(counts)} targets"], "passed": status == 0 and inputs > 0}


def run_fuzz(stage, options, each):
    if options.short:
        return [each(run_replay)]
    build("fuzz", ["fuzz_targets"])
    targets = [target for target in fuzz.targets() if is_wanted(target, options)]
    seconds = (options.minutes or stage.minutes) * 60 / max(len(targets), 1)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        return list(pool.map(lambda target: each(lambda: fuzz.run_target(target, seconds, environment("fuzz", {}))), targets))


def run_bites(stage, options, each):
    bites.copy_tree()
    wanted = [bite for bite in bites.BITES if is_wanted(bite.kind, options)]
    return [each(lambda: bites.bite_once(bite, environment)) for bite in wanted]


RUNNERS = {"programs": run_steps, "fuzz": run_fuzz, "bites": run_bites}


def is_wanted(name, options):
    return not options.only or any(part in name for part in options.only)


def run_stage(stage, options):
    print(f"=== {stage.name}", flush=True)
    tree = records.commit()

    def each(run):
        """What ran is recorded when it ends, since the whole stage may take hours."""
        date = records.now()
        entry = dict(run(), date=date, commit=tree)
        if options.record:
            records.change([(stage.name, entry)])
        return entry

    return RUNNERS[stage.kind](stage, options, each)


def parse(arguments):
    known = {stage.name: stage for stage in stages.STAGES}
    parser = argparse.ArgumentParser(prog="scripts/prove", description="The long proofs. Without a stage: all of them.")
    parser.add_argument("stages", nargs="*", metavar="STAGE", help=", ".join(known))
    parser.add_argument("--short", action="store_true", help="the forms that the gate runs: seconds for each program")
    parser.add_argument("--minutes", type=float, default=0, help="how long the programs run that run for a time, and all fuzzers together")
    parser.add_argument("--runs", type=int, default=0, help="how many processes each program of `kills` kills; recorded runs add up")
    parser.add_argument("--jobs", type=int, default=1, help="how many programs of a stage run at once")
    parser.add_argument("--only", action="append", metavar="TEXT",
                        help="of the programs, fuzzers and bugs only those whose name contains the text; may be repeated")
    parser.add_argument("--minimise", action="store_true",
                        help="do nothing else: put the inputs that the fuzzers found into fuzz/corpus, the fewest and smallest")
    parser.add_argument("--page", action="store_true", help="do nothing else: write docs/reliability.md from the records")
    parser.add_argument("--merge", type=pathlib.Path, metavar="FILE",
                        help="do nothing else: add the records of another tree, its proof/results.json, and write the page")
    parser.add_argument("--record", action="store_true", help="record the results and write docs/reliability.md")
    options = parser.parse_args(arguments)
    for name in options.stages:
        if name not in known:
            parser.error(f"unknown stage '{name}'; use one of: {', '.join(known)}")
    if options.short and options.record:
        parser.error("only long forms are recorded; the gate runs the short ones")
    return options, [known[name] for name in options.stages] or list(stages.STAGES)


def run_stages(options, wanted):
    results = {stage.name: run_stage(stage, options) for stage in wanted}
    print("\n=== results")
    for name, entries in results.items():
        print(name)
        for entry in entries:
            print(f"    {'passed' if entry['passed'] else 'FAILED'} {entry['seconds']:8.1f} s  {entry['command']}")
    return all(entry["passed"] for entries in results.values() for entry in entries) and any(results.values())


def main():
    options, wanted = parse(sys.argv[1:])
    if options.minimise:
        build("fuzz", ["fuzz_targets"])
        fuzz.minimise([target for target in fuzz.targets() if is_wanted(target, options)], environment("fuzz", {}))
        return
    if options.merge:
        records.merge(options.merge)
    if options.merge or options.page:
        page.write(records.load())
        return
    has_passed = run_stages(options, wanted)
    if options.record:
        page.write(records.load())
    sys.exit(0 if has_passed else 1)


if __name__ == "__main__":
    main()
