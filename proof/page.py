"""Writes docs/reliability.md from proof/page.md.in, the stages and the records; called by proof/prove.py."""

import pathlib

import bites
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
                      "runs": stage.runs}
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


def is_whole(result):
    return bool(result) and result["form"] == "whole"


def summary(records):
    lines = ["| stage | last run | form | commit | duration | outcome |", "|---|---|---|---|---|---|"]
    for stage in stages.STAGES:
        result = records.get(stage.name)
        if not result:
            lines.append(f"| `{stage.name}` | not yet recorded | | | | |")
            continue
        form = result["form"] if is_whole(result) else f"{result['form']}; not yet run whole"
        outcome = "passed" if result["passed"] else "**failed**"
        lines.append(f"| `{stage.name}` | {result['date']} | {form} | {result['commit']} | {duration(result['seconds'])} | {outcome} |")
    return "\n".join(lines)


def details(records):
    lines = []
    for stage in stages.STAGES:
        result = records.get(stage.name)
        if not result:
            continue
        lines += [f"### {stage.name}", "", "| run | seconds | outcome | figures |", "|---|---|---|---|"]
        for step in result["steps"]:
            outcome = "passed" if step["passed"] else "**failed**"
            figures = "<br>".join(cell(line) for line in step["figures"][:20])
            lines.append(f"| `{cell(step['command'])}` | {step['seconds']:g} | {outcome} | {figures} |")
        lines.append("")
    return "\n".join(lines).rstrip()


def text_of(records):
    return TEMPLATE.read_text().format(promises=promises(), forms=forms(), summary=summary(records), details=details(records))


def write(records):
    PAGE.write_text(text_of(records))
    print(f"{PAGE.relative_to(ROOT)} written")
