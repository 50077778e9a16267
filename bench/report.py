"""Computes ratios, targets and tables from the figures of scripts/bench."""

import collections
import statistics

# Compared: group, case, baseline, whether the drain is subtracted from both, the maximum of the ratio.
RATIOS = [
    *[(w, "server cursor", "value loop", True, 0.25) for w in ("W1", "W2", "W2-parquet", "W3")],
    ("W4", "server cursor", "value loop", True, None),
    *[(w, "client cursor", "value loop, kept", True, 0.40) for w in ("W1", "W2", "W2-parquet", "W3")],
    ("W4", "client cursor", "value loop, kept", True, None),
    *[(w, "server cursor", "vectors", True, 1.10) for w in ("W1", "W2", "W3")],
    ("W2-parquet", "server cursor", "vectors", True, None),
    *[(w, "client cursor", "vectors, kept", True, None) for w in ("W1", "W2", "W2-parquet", "W3")],
    *[(f"random-{w}", "client cursor", "flat array, virtual call", False, 1.30) for w in ("W1", "W2", "W3")],
    *[(f"random-{w}", "client cursor", "flat array", False, None) for w in ("W1", "W2", "W3")],
    *[(f"fetch_parquet-{w}", "procedure", "vectors", True, 1.25) for w in ("W1", "W2", "W3")],
    *[(f"fetch_duckdb-{w}", "procedure", "vectors", True, 1.25) for w in ("W1", "W2", "W3")],
    # DuckDB's casts of nested cells to text are nearly all of the time, so the drain cannot be subtracted.
    ("fetch_parquet-W4", "procedure", "vectors", False, None),
    ("fetch_duckdb-W4", "procedure", "vectors", False, None),
    ("go-to-row", "procedure", "bare", False, None),
    *[(f"small-{w}", f"procedure{t}", f"bare{t}", False, 1.50) for w in ("count", "fetch") for t in ("", ", 8 threads")],
    *[(f"binds-{w}", "module", "bare", False, 1.10) for w in ("W1", "W2", "W3")],
    ("binds-W3", "module", "bare, text at hand", False, None),
    ("binds-W4", "module", "bare", False, None),
    ("multi-row-W1", "module", "bare", False, 1.15),
    ("multi-row-W2", "module", "bare", False, 1.15),
    ("multi-row-W3", "module", "bare", False, 1.15),
    ("multi-row-W4", "module", "bare", False, None),
    *[(f"append-{w}", "module", "bare", False, 2.00) for w in ("W1", "W2")],
    *[(f"append-{w}", "columns", "bare", False, 1.10) for w in ("W1", "W2")],
    *[(f"arrow-{w}", case, "bare", False, 1.10) for case in ("module", "streaming cursor") for w in ("W1", "W2", "W3", "W4")],
    ("stream-first-row", "module", "bare", False, 2.00),
    ("stream-threads", "two threads", "one thread", False, None),
    ("progress", "asked every 10 ms", "not asked", False, 1.05),
    ("release", "among 100,000", "among 100", False, 1.10),
    ("script-selects", "10,000 statements", "1,000 statements", False, None),
    ("script-selects", "100,000 statements", "1,000 statements", False, 1.10),
    ("point-query", "module", "bare", False, 1.10),
    ("point-read", "module", "bare", False, None),
    ("script-1000", "module", "bare", False, 1.10),
    ("open-close", "module", "bare", False, 1.10),
    ("backup", "module", "bare", False, 1.02),
    ("restore", "module", "bare", False, 1.02),
]
MOST_DELAY_MS = 50
MOST_BYTES_A_CELL = 56
MOST_SERVER_MIB = 10
MOST_FLATNESS = 1.10
MOST_STREAM_MIB = 50
# Of point queries beside a long query of another object, compared with those alone: the 99th percentile.
MOST_BESIDE = 2.0
MOST_LEFT_MIB = 32
# How many times the rows of one thread two threads must read, each its own stream.
LEAST_TIMES_ROWS = 1.8
# How many times faster than Python's executemany the rows must be.
LEAST_TIMES_EXECUTEMANY = 3
# How many times faster than as rows of parameters an appender must store rows of host values.
LEAST_TIMES_PARAMETERS = 30
# A client and a workload whose rounds are compared one by one.
ROUND_BY_ROUND = ("Rust get::<Value>", "W3")
KEEPING_CLIENTS = ("Python fetchall", "Node getRows")
OURS = ("drain", "server cursor", "client cursor")
# What else other clients do, by the beginning of the group's name: our cases with their names, of which the first is compared,
# and the unit. Whole times are compared. The clients' Arrow readers convert the rows while DuckDB computes them, as our streaming
# cursor does.
OTHER_WAYS = {
    "append": ({"module": "rows of host values"}, "row"),
    "arrow": ({"streaming cursor": "Arrow stream of a streaming cursor", "module": "Arrow stream of a server cursor"}, "cell"),
    "multi-row": ({"module": "rows of parameters"}, "row"),
}

Ratio = collections.namedtuple("Ratio", "group case baseline best middle most")
# A target: what was measured, as text, and whether it was reached; None where nothing was measured.
Target = collections.namedtuple("Target", "what measured limit reached")


class Figures:
    """The JSON lines of mduckdb-bench, by group and case."""

    def __init__(self, lines):
        lines = list(lines)
        self.cases = {(line["group"], line["case"]): line for line in lines if "seconds" in line}
        # Lines with figures of their own instead of seconds; the last of a case counts.
        self.notes = {(line["group"], line["case"]): line for line in lines if "seconds" not in line}
        self.delays = self.notes.get(("interrupt", "delay"))

    def has(self, group, case):
        return (group, case) in self.cases

    def nanoseconds(self, group, case, pick=min):
        line = self.cases[group, case]
        return pick(line["seconds"]) / line["units"] * 1e9

    def delivery(self, group, case, pick=min):
        """Nanoseconds per unit, minus those of the query with its chunks fetched and nothing read."""
        drain = self.nanoseconds(group, "drain", pick) if self.has(group, "drain") else 0.0
        return self.nanoseconds(group, case, pick) - drain

    def ratio(self, group, case, baseline, is_delivery, pick=min):
        measure = self.delivery if is_delivery else self.nanoseconds
        above, below = measure(group, case, pick), measure(group, baseline, pick)
        # Noise can make a drain longer than the reading; such a ratio means nothing and reaches no target.
        return above / below if above > 0 and below > 0 else float("inf")


def ratios(figures):
    """Those that were measured."""
    return [Ratio(group, case, baseline, figures.ratio(group, case, baseline, is_delivery),
                  figures.ratio(group, case, baseline, is_delivery, statistics.median), most)
            for group, case, baseline, is_delivery, most in RATIOS
            if figures.has(group, case) and figures.has(group, baseline)]


def ratio_targets(figures):
    return [Target(f"{r.group}: {r.case} / {r.baseline}", f"{r.best:.2f}", f"{r.most:.2f}", r.best <= r.most)
            for r in ratios(figures) if r.most is not None]


def size_points(figures, case="server cursor", pick=min):
    """[(rows, nanoseconds per cell)] of the case, minus the drain, minus the fixed cost of a query, which a result of
    one row shows."""
    def seconds(name, rows):
        line = figures.cases["sizes", f"{name} {rows}"]
        return pick(line["seconds"]) / line["units"] * rows

    def above_drain(rows):
        return seconds(case, rows) - seconds("drain", rows)

    sizes = sorted(int(name.split()[-1]) for group, name in figures.cases
                   if group == "sizes" and name.startswith("drain"))
    columns = 5
    return [(rows, (above_drain(rows) - above_drain(1)) * columns / (columns * (rows - 1)) * 1e9)
            for rows in sizes if rows > 1]


def flatness(points):
    """The most expensive cell / the cheapest."""
    costs = [cost for _, cost in points]
    return max(costs) / min(costs) if min(costs) > 0 else float("inf")


class Memory:
    """Peaks in KiB of processes that did one case each: the server cursor and the drain over many rows of W1,
    the client cursor over numbers; a streaming cursor over one row of W1 and over many."""

    def __init__(self, server, drain, numbers, idle=None, stream=None):
        self.rows = server["units"] // 5
        self.server_mib = (server["peak_kib"] - drain["peak_kib"]) / 1024
        self.cells = numbers["units"]
        # Everything that the cursor used, including DuckDB's own copy of the result.
        self.bytes_a_cell = (numbers["peak_kib"] - numbers["start_kib"]) * 1024 / numbers["units"]
        self.stream_rows = stream["units"] if stream else 0
        self.stream_mib = (stream["peak_kib"] - idle["peak_kib"]) / 1024 if stream else None


class Peers:
    """Rounds of other clients and of our cases, in processes of their own: by client and workload the nanoseconds per
    cell of each round; in `others`, by client and group, the nanoseconds per unit of the OTHER_WAYS."""

    def __init__(self, cells, others=None, left_out=()):
        self.cells = cells
        self.others = others or {}
        self.left_out = list(left_out)

    def workloads(self):
        return list(dict.fromkeys(workload for _, workload in self.cells))

    def clients(self):
        return [client for client in dict.fromkeys(client for client, _ in self.cells) if client not in OURS]

    def delivery(self, client, workload, pick=min):
        return pick(self.cells[client, workload]) - pick(self.cells["drain", workload])

    def rounds(self, client, workload):
        """The delivery of each round."""
        return [whole - drain for whole, drain in zip(self.cells[client, workload], self.cells["drain", workload])]

    def has(self, client, workload):
        return (client, workload) in self.cells

    def groups(self):
        """Those of `others` in which we and another client were measured, with the other clients by their least."""
        found = {}
        for client, group in self.others:
            ours, _ = way_of(group)
            if client not in ours and (next(iter(ours)), group) in self.others:
                found.setdefault(group, []).append(client)
        return {group: sorted(clients, key=lambda client: min(self.others[client, group]))
                for group, clients in found.items()}

    def ours(self, group):
        """The name of our way that is compared, and the nanoseconds per unit of its rounds."""
        case, name = next(iter(way_of(group)[0].items()))
        return name, self.others[case, group]


def way_of(group):
    return OTHER_WAYS[group.rsplit("-", 1)[0]]


def below(peers, case, client, workload):
    """A target: our case delivers a cell in less time than the client."""
    ours, theirs = peers.delivery(case, workload), peers.delivery(client, workload)
    return Target(f"{workload}: {case} / {client}", f"{ours:.0f} ns / {theirs:.0f} ns", "less", ours < theirs)


def peer_targets(peers):
    targets = []
    for workload in peers.workloads():
        measured = [client for client in peers.clients() if peers.has(client, workload)]
        fastest = min(measured, key=lambda client: peers.delivery(client, workload), default=None)
        if fastest is None:
            targets.append(Target(f"{workload}: server cursor / every other client", "", "less", None))
        else:
            target = below(peers, "server cursor", fastest, workload)
            targets.append(target._replace(what=target.what + ", the fastest of them"))
        for client in KEEPING_CLIENTS:
            targets.append(below(peers, "client cursor", client, workload) if peers.has(client, workload) else
                           Target(f"{workload}: client cursor / {client}", "", "less", None))
    return targets + round_targets(peers) + other_targets(peers)


def round_targets(peers):
    """Texts must be delivered in less time than by Rust in each round, each of which is compared by itself. A round whose
    drain took longer than the reading means nothing."""
    client, workload = ROUND_BY_ROUND
    if workload not in peers.workloads():
        return []
    if not peers.has(client, workload):
        return [Target(f"{workload}: server cursor / {client}, in each round", "", "less", None)]
    pairs = list(zip(peers.rounds("server cursor", workload), peers.rounds(client, workload)))
    worst = max(pairs, key=lambda pair: pair[0] - pair[1])
    return [Target(f"{workload}: server cursor / {client}, in each round",
                   f"{worst[0]:.0f} ns / {worst[1]:.0f} ns in the worst", "less",
                   all(0 < ours < theirs for ours, theirs in pairs))]


def other_targets(peers):
    targets = []
    for group, clients in peers.groups().items():
        name, rounds = peers.ours(group)
        ours, theirs = min(rounds), min(peers.others[clients[0], group])
        what = f"{group}: {name} / {clients[0]}"
        if group.startswith("multi-row"):
            times = theirs / ours
            targets.append(Target(what, f"{times:.1f} times faster", f"{LEAST_TIMES_EXECUTEMANY} times",
                                  times >= LEAST_TIMES_EXECUTEMANY))
        else:
            targets.append(Target(what + (", the fastest of them" if len(clients) > 1 else ""), f"{ours:.1f} ns / {theirs:.1f} ns",
                                  "not more", ours <= theirs))
    return targets


def append_targets(figures):
    groups = [f"append-{w}" for w in ("W1", "W2") if figures.has(f"append-{w}", "parameters")]
    times = {group: 1 / figures.ratio(group, "module", "parameters", False) for group in groups}
    return [Target(f"{group}: rows of host values / rows of parameters", f"{times[group]:.0f} times faster",
                   f"{LEAST_TIMES_PARAMETERS} times", times[group] >= LEAST_TIMES_PARAMETERS) for group in groups]


def side_targets(figures):
    """What is no ratio of two cases."""
    targets = []
    if figures.has("stream-threads", "two threads") and figures.has("stream-threads", "one thread"):
        times = 1 / figures.ratio("stream-threads", "two threads", "one thread", False)
        targets.append(Target("stream-threads: rows a second of two threads / of one", f"{times:.2f}",
                              f"{LEAST_TIMES_ROWS:.2f} or more", times >= LEAST_TIMES_ROWS))
    if beside := figures.notes.get(("point-beside", "p99")):
        times = beside["beside_ms"] / beside["alone_ms"]
        targets.append(Target("point-beside: 99th percentile of point queries beside a long query / alone",
                              f"{times:.2f}", f"{MOST_BESIDE:.2f}", times <= MOST_BESIDE))
    if mapped := figures.notes.get(("value-threads", "mapped")):
        targets.append(Target(f"value-threads: of {mapped['full_mib']:.0f} MiB of values that 16 threads released in any "
                              "order, still mapped", f"{mapped['left_mib']:.1f} MiB", f"{MOST_LEFT_MIB} MiB",
                              mapped["left_mib"] <= MOST_LEFT_MIB))
    return targets


def memory_targets(memory):
    targets = [
        Target(f"client cursor over {memory.cells:,} numbers: total memory per cell at the peak",
               f"{memory.bytes_a_cell:.1f} bytes", f"{MOST_BYTES_A_CELL} bytes", memory.bytes_a_cell <= MOST_BYTES_A_CELL),
        Target(f"server cursor over {memory.rows:,} rows: memory above DuckDB's", f"{memory.server_mib:.1f} MiB",
               f"{MOST_SERVER_MIB} MiB", memory.server_mib <= MOST_SERVER_MIB)]
    if memory.stream_mib is not None:
        targets.append(Target(f"streaming cursor over {memory.stream_rows:,} rows: memory above an idle engine",
                              f"{memory.stream_mib:.1f} MiB", f"{MOST_STREAM_MIB} MiB",
                              memory.stream_mib <= MOST_STREAM_MIB))
    return targets


def all_targets(figures, memory=None, peers=None):
    targets = ratio_targets(figures) + append_targets(figures) + side_targets(figures)
    if peers:
        targets += peer_targets(peers)
    else:
        targets.append(Target("other clients", "", "", None))
    if memory:
        targets += memory_targets(memory)
    if figures.delays:
        delay = figures.delays["p99_ms"]
        targets.append(Target("interrupt to exception, 99th percentile of 200", f"{delay:.1f} ms", f"{MOST_DELAY_MS} ms",
                              delay <= MOST_DELAY_MS))
    if figures.has("sizes", "drain 1"):
        points = size_points(figures)
        flat = flatness(points)
        targets.append(Target(f"server cursor, {points[0][0]:,} to {points[-1][0]:,} rows: most expensive cell / cheapest",
                              f"{flat:.2f}", f"{MOST_FLATNESS:.2f}", flat <= MOST_FLATNESS))
    return targets


def table(head, rows):
    """A markdown table; a column whose head starts with > is set to the right."""
    names = [name.lstrip(">") for name in head]
    rules = ["---:" if name.startswith(">") else "---" for name in head]
    lines = ["| " + " | ".join(names) + " |", "|" + "|".join(rules) + "|"]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows])


def target_table(targets):
    verdicts = {None: "not measured", True: "yes", False: "**no**"}
    return table(["target", ">measured", ">limit", "reached"],
                 [(t.what, t.measured, t.limit, verdicts[t.reached]) for t in targets])


def ratio_table(figures):
    return table(["workload", "case", "compared with", ">ratio of minima", ">ratio of medians", ">target"],
                 [(r.group, r.case, r.baseline, f"{r.best:.2f}", f"{r.middle:.2f}",
                   "" if r.most is None else f"{r.most:.2f}") for r in ratios(figures)])


def case_table(figures):
    def delivery(group, case):
        has_drain = figures.has(group, "drain") and case != "drain"
        return f"{figures.delivery(group, case):.1f}" if has_drain else ""

    return table(["workload", "case", "unit", ">units", ">ns per unit, minimum", ">median", ">minimum minus the drain"],
                 [(group, case, line["unit"], f"{line['units']:,}", f"{figures.nanoseconds(group, case):.1f}",
                   f"{figures.nanoseconds(group, case, statistics.median):.1f}", delivery(group, case))
                  for (group, case), line in figures.cases.items() if group != "sizes"])


def size_table(figures):
    columns = [dict(size_points(figures, case, pick)) for case in ("server cursor", "vectors")
               for pick in (min, statistics.median)]
    return table([">rows", ">server cursor, ns per cell, of minima", ">of medians", ">vectors, of minima", ">of medians"],
                 [(f"{rows:,}", *[f"{column[rows]:.1f}" for column in columns]) for rows in columns[0]])


def peer_table(peers):
    workloads = peers.workloads()
    names = [case for case in OURS if case != "drain"] + peers.clients()

    def cell(client, workload):
        if not peers.has(client, workload):
            return ""
        return f"{peers.delivery(client, workload):.0f} / {peers.delivery(client, workload, statistics.median):.0f}"

    return table(["client"] + [f">{workload}, ns per cell" for workload in workloads],
                 [(name, *[cell(name, workload) for workload in workloads]) for name in names])


def other_way_table(peers):
    """Each of our ways, and what other clients take for the same."""
    def row(group, client, name):
        done, ours = peers.others[client, group], peers.ours(group)[1]
        times = statistics.median(done) / statistics.median(ours)
        best = min(done) / min(ours)
        return (group, name, way_of(group)[1], f"{min(done):.1f} / {statistics.median(done):.1f}", f"{best:.2f} / {times:.2f}")

    rows = []
    for group, clients in peers.groups().items():
        rows += [row(group, case, name) for case, name in way_of(group)[0].items() if (case, group) in peers.others]
        rows += [row(group, client, client) for client in clients]
    return table(["workload", "client", "unit", ">ns per unit", ">times ours"], rows)


def peer_tables(peers):
    """Those that have rows."""
    return "\n\n".join(([peer_table(peers)] if peers.cells else []) + ([other_way_table(peers)] if peers.groups() else []))
