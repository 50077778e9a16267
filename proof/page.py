"""Writes docs/reliability.md from proof/page.md.in, the stages and the records; called by proof/prove.py."""

import pathlib

import bites
import fuzz
import records
import stages

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "reliability.md"
TEMPLATE = ROOT / "proof" / "page.md.in"


def duration(seconds):
    if seconds < 120:
        return f"{seconds:g} s"
    return f"{seconds / 60:.0f} min" if seconds < 7200 else f"{seconds / 3600:.1f} h"


def cell(text):
    return text.replace("|", "\\|")


def promises():
    return "\n".join(["| stage | promise |", "|---|---|"] + [f"| `{stage.name}` | {stage.promise} |" for stage in stages.STAGES])


def long_form(stage):
    parts = []
    for step in stage.steps:
        if step.variables:
            values = {"minutes": step.minutes or stage.minutes, "seconds": f"{(step.minutes or stage.minutes) * 60:g}",
                      "runs": stage.runs, "seed": "N"}
            parts.append("<br>".join(f"`{name}={text.format(**values)}`" for name, text in step.variables.items()))
        elif stage.kind == "fuzz":
            parts.append(f"libFuzzer, {duration(stage.minutes * 60)} for all targets together")
        else:
            parts.append("the same")
    return parts


def forms():
    lines = ["| stage | program | tests | long form |", "|---|---|---|---|"]
    for stage in stages.STAGES:
        if stage.kind == "bites":
            lines.append(f"| `{stage.name}` | {len(bites.BITES)} bugs, each with its program | | the same; there is no short form |")
        for step, form in zip(stage.steps, long_form(stage)):
            preset = "" if step.preset == "release" else f", preset `{step.preset}`"
            tests = f"`{step.tests}`" if step.tests else "all"
            lines.append(f"| `{stage.name}` | `{step.program}`{preset} | {tests} | {form} |")
    return "\n".join(lines)


def names_of(stage):
    """What a whole run of the stage consists of."""
    of_kind = {"fuzz": fuzz.targets, "bites": lambda: [bite.kind for bite in bites.BITES]}
    return of_kind.get(stage.kind, lambda: [step.name for step in stage.steps])()


def hours(runs):
    """The processor's time that the fuzzers had."""
    return sum(run["seconds of the processor"] for run in runs) / 3600


def in_order(texts):
    return ", ".join(dict.fromkeys(texts))


def form_of(stage, runs):
    if stage.kind == "fuzz":
        wanted = stage.minutes / 60
        return "whole" if hours(runs) >= wanted else f"{hours(runs):.2f} of {wanted:g} core-hours"
    names = names_of(stage)
    if stage.runs:
        counts = [sum(run["runs"] for run in runs if run["name"] == name and run["passed"]) for name in names]
        is_whole = min(counts) >= stage.runs
        return "whole" if is_whole else f"{sum(counts)} of {len(names) * stage.runs} processes killed"
    count = len({run["name"] for run in runs if run["form"] == "whole"} & set(names))
    return "whole" if count == len(names) else f"{count} of {len(names)} runs whole"


def last_of_each(runs):
    return {run["name"]: run for run in runs}.values()


def summary(results):
    lines = ["| stage | runs from | form | commit | duration | outcome |", "|---|---|---|---|---|---|"]
    for stage in stages.STAGES:
        runs = sorted(records.entries(results.get(stage.name, {})), key=lambda run: run["date"])
        if not runs:
            lines.append(f"| `{stage.name}` | not yet recorded | | | | |")
            continue
        outcome = "passed" if all(run["passed"] for run in last_of_each(runs)) else "**failed**"
        seconds = hours(runs) * 3600 if stage.kind == "fuzz" else sum(run["seconds"] for run in runs)
        lines.append(f"| `{stage.name}` | {in_order(run['date'][:10] for run in runs)} | {form_of(stage, runs)}"
                     f" | {in_order(run['commit'] for run in runs)} | {duration(round(seconds))} | {outcome} |")
    return "\n".join(lines)


def outcome_of(run):
    return "passed" if run["passed"] else "**failed**"


def added_up(runs):
    """The runs with those that add up, of one commit and outcome, as one."""
    groups = {}
    for run in runs:
        key = (run["name"], run["commit"], run["passed"], run["date"] if run["form"] != "part" else "")
        groups.setdefault(key, []).append(run)
    for group in groups.values():
        count = len(group)
        form = group[0]["form"] if group[0]["form"] != "part" else f"{count} {'run' if count == 1 else 'runs'}, {sum(run['runs'] for run in group)} processes killed"
        yield {**group[-1], "date": group[0]["date"], "form": form, "seconds": round(sum(run["seconds"] for run in group), 1)}


def program_details(runs):
    lines = ["| run | from | form | commit | seconds | outcome | figures |", "|---|---|---|---|---|---|---|"]
    for run in added_up(runs):
        figures = "<br>".join(cell(line) for line in run["figures"][:20])
        lines.append(f"| `{cell(run['command'])}` | {run['date'][:16]} | {run['form']} | {run['commit']} | {run['seconds']:g}"
                     f" | {outcome_of(run)} | {figures} |")
    return lines


def fuzz_details(runs):
    """Each target with all of its runs."""
    lines = ["| fuzzer | run | commit | core-hours | inputs | branches before | after | outcome | findings |",
             "|---|---|---|---|---|---|---|---|---|"]
    for run in runs:
        lines.append(f"| `{run['name']}` | {run['date'][:16]} | {run['commit']} | {hours([run]):.3f} | {run['inputs']}"
                     f" | {run['branches'][0]} | {run['branches'][1]} | {outcome_of(run)} | {'<br>'.join(map(cell, run['figures']))} |")
    return lines


def details(results):
    lines = []
    for stage in stages.STAGES:
        runs = sorted(records.entries(results.get(stage.name, {})), key=lambda run: (run["name"], run["date"]))
        if runs:
            lines += [f"### {stage.name}", "", *(fuzz_details if stage.kind == "fuzz" else program_details)(runs), ""]
    return "\n".join(lines).rstrip()


def text_of(results):
    return TEMPLATE.read_text().format(promises=promises(), forms=forms(), summary=summary(results), details=details(results))


def write(results):
    PAGE.write_text(text_of(results))
    print(f"{PAGE.relative_to(ROOT)} written")
