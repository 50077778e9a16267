"""What the figures say, in the five sentences that docs/figures.md begins with."""

import report

NOT_MEASURED = "not measured"


def span(numbers, form="{:.2f}"):
    """One number, or the least and the greatest, as text."""
    texts = list(dict.fromkeys(form.format(number) for number in (min(numbers), max(numbers)))) if numbers else []
    return " to ".join(texts) or NOT_MEASURED


def ratios_of(figures, groups, case, baseline):
    return [r.best for r in report.ratios(figures) if (r.case, r.baseline) == (case, baseline) and r.group in groups]


def reading(figures):
    texts = [w for w in ("W1", "W2", "W3") if figures.has(w, "server cursor") and figures.has(w, "drain")]
    cells = span([figures.delivery(w, "server cursor") for w in texts], "{:.0f}")
    vectors = span(ratios_of(figures, texts, "server cursor", "vectors"))
    loop = span(ratios_of(figures, texts, "server cursor", "value loop"))
    return (f"**Cells**: a server cursor delivers a cell of W1 to W3 in {cells} ns above the bare drain, which is {vectors} "
            f"times the cost of the same values made straight from DuckDB's vectors and {loop} times that of DuckDB's values.")


def other_clients(peers):
    if peers is None or not peers.clients():
        return "**Other clients**: none was measured in this run."
    targets = [target for target in report.peer_targets(peers)
               if "server cursor / " in target.what and "the fastest of them" in target.what]
    won = [target.what.split(":")[0] for target in targets if target.reached]
    return (f"**Other clients**: of {len(peers.clients())} ways to read with other clients the fastest takes more time than the "
            f"server cursor on {len(won)} of {len(targets)} workloads" + (f" ({', '.join(won)})" if won else "")
            + f"{beside(peers, 'append', 'appender')}{beside(peers, 'arrow', 'Arrow reader')}.")


def beside(peers, way, what):
    """The fastest of the other clients, compared with ours."""
    times = [min(peers.others[clients[0], group]) / min(peers.ours(group)[1])
             for group, clients in peers.groups().items() if group.startswith(way)]
    return f"; the fastest other {what} takes {span(times)} times as long as ours" if times else ""


def appending(figures):
    groups = [f"append-{w}" for w in ("W1", "W2")]
    times = [1 / figures.ratio(group, "module", "parameters", False) for group in groups
             if figures.has(group, "parameters") and figures.has(group, "module")]
    return (f"**Rows in**: an appender takes {span(ratios_of(figures, groups, 'module', 'bare'))} times DuckDB's own chunk append "
            f"for rows of host values and {span(ratios_of(figures, groups, 'columns', 'bare'))} times for C arrays, and is "
            f"{span(times, '{:.0f}')} times faster than rows of parameters.")


def streaming(figures, memory):
    groups = [f"arrow-{w}" for w in ("W1", "W2", "W3", "W4")]
    kept, streamed = (span(ratios_of(figures, groups, case, "bare")) for case in ("module", "streaming cursor"))
    first = span(ratios_of(figures, ["stream-first-row"], "module", "bare"))
    room = NOT_MEASURED if memory is None or memory.stream_mib is None else f"{memory.stream_mib:.1f} MiB"
    return (f"**Vectors and streams out**: an Arrow stream of a server cursor takes {kept} times DuckDB's own export, one of a "
            f"streaming cursor {streamed} times, and the latter {first} times DuckDB's own time to the first row; memory above an idle engine: {room}.")


def verdict(targets):
    judged = [target for target in targets if target.reached is not None]
    missed = [f"{target.what} ({target.measured}, limit {target.limit})" for target in judged if not target.reached]
    return (f"**Targets**: {len(judged) - len(missed)} of {len(judged)} were reached"
            + (f"; not reached: {'; '.join(missed)}." if missed else "."))


def sentences(figures, memory, peers):
    lines = [reading(figures), other_clients(peers), appending(figures), streaming(figures, memory),
             verdict(report.all_targets(figures, memory, peers))]
    return "\n".join(f"{number}. {line}" for number, line in enumerate(lines, 1))
