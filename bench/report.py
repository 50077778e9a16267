"""What scripts/bench makes of the figures: ratios, tables, plots."""

import statistics

# (group, case, baseline, is the drain taken off both, the most that the ratio may be)
TARGETS = [
    ("W1", "server cursor", "value loop", True, 0.25),
    ("W2", "server cursor", "value loop", True, 0.25),
    ("W3", "server cursor", "value loop", True, 0.25),
    ("W1", "client cursor", "value loop, kept", True, 0.40),
    ("W2", "client cursor", "value loop, kept", True, 0.40),
    ("W3", "client cursor", "value loop, kept", True, 0.40),
    ("W2-parquet", "server cursor", "value loop", True, None),
    ("W4", "server cursor", "value loop", True, None),
    ("W1", "server cursor", "vectors", True, None),
    ("W2", "server cursor", "vectors", True, None),
    ("W3", "server cursor", "vectors", True, None),
    ("random-cell", "client cursor", "flat array", False, 1.30),
    ("fetch_parquet", "procedure", "vectors", True, 1.25),
    ("fetch_duckdb", "procedure", "vectors", True, 1.25),
    ("typed-binds", "module", "bare", False, 1.10),
    ("point-query", "module", "bare", False, 1.10),
    ("multi-row", "module", "bare", False, 1.15),
    ("script-1000", "module", "bare", False, 1.10),
    ("open-close", "module", "bare", False, 1.10),
    ("backup", "module", "bare", False, 1.02),
    ("restore", "module", "bare", False, 1.02),
]


class Figures:
    """The JSON lines of mduckdb-bench, by group and case."""

    def __init__(self, lines):
        self.lines = list(lines)
        self.cases = {(l["group"], l["case"]): l for l in self.lines if "seconds" in l}
        self.delays = next((l for l in self.lines if l["case"] == "delay"), None)

    def has(self, group, case):
        return (group, case) in self.cases

    def nanoseconds(self, group, case, pick=min):
        line = self.cases[group, case]
        return pick(line["seconds"]) / line["units"] * 1e9

    def delivery(self, group, case, pick=min):
        """Nanoseconds a unit less those of the query with its chunks fetched and nothing read."""
        drain = self.nanoseconds(group, "drain", pick) if self.has(group, "drain") else 0.0
        return self.nanoseconds(group, case, pick) - drain

    def ratio(self, group, case, baseline, is_delivery, pick=min):
        measure = self.delivery if is_delivery else self.nanoseconds
        return measure(group, case, pick) / measure(group, baseline, pick)


def ratio_rows(figures):
    """One row a target that was measured: texts for the table, and whether it was reached (None: no target)."""
    rows = []
    for group, case, baseline, is_delivery, most in TARGETS:
        if not (figures.has(group, case) and figures.has(group, baseline)):
            continue
        best = figures.ratio(group, case, baseline, is_delivery)
        middle = figures.ratio(group, case, baseline, is_delivery, statistics.median)
        reached = None if most is None else best <= most
        rows.append((group, case, baseline, best, middle, most, reached))
    return rows


def ratio_table(figures):
    lines = ["| workload | case | compared with | ratio of minima | ratio of medians | target | reached |",
             "|---|---|---|---:|---:|---:|---|"]
    for group, case, baseline, best, middle, most, reached in ratio_rows(figures):
        target = "" if most is None else f"{most:.2f}"
        verdict = {None: "", True: "yes", False: "no"}[reached]
        lines.append(f"| {group} | {case} | {baseline} | {best:.2f} | {middle:.2f} | {target} | {verdict} |")
    return "\n".join(lines)


def case_table(figures):
    lines = ["| workload | case | unit | units | ns a unit, minimum | median | less the drain, minimum |",
             "|---|---|---|---:|---:|---:|---:|"]
    for (group, case), line in figures.cases.items():
        delivery = f"{figures.delivery(group, case):.1f}" if figures.has(group, "drain") and case != "drain" else ""
        lines.append(f"| {group} | {case} | {line['unit']} | {line['units']:,} | {figures.nanoseconds(group, case):.1f} "
                     f"| {figures.nanoseconds(group, case, statistics.median):.1f} | {delivery} |")
    return "\n".join(lines)


def bar_chart(title, bars, limit_of=None):
    """An SVG of horizontal bars: (label, value, limit or None)."""
    width, row, left = 760, 24, 300
    top = max([value for _, value, _ in bars] + [limit for _, _, limit in bars if limit] + [1e-9])
    scale = (width - left - 70) / top
    height = 40 + row * len(bars)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
             f'font-family="sans-serif" font-size="12">', f'<text x="8" y="20" font-size="14">{title}</text>']
    for i, (label, value, limit) in enumerate(bars):
        y = 32 + i * row
        colour = "#4878a8" if limit is None or value <= limit else "#c0504d"
        parts.append(f'<text x="{left - 8}" y="{y + 14}" text-anchor="end">{label}</text>')
        parts.append(f'<rect x="{left}" y="{y}" width="{value * scale:.1f}" height="{row - 6}" fill="{colour}"/>')
        parts.append(f'<text x="{left + value * scale + 4:.1f}" y="{y + 14}">{value:.2f}</text>')
        if limit:
            x = left + limit * scale
            parts.append(f'<line x1="{x:.1f}" x2="{x:.1f}" y1="{y - 3}" y2="{y + row - 3}" stroke="#333" '
                         'stroke-width="2"/>')
    return "\n".join(parts + ["</svg>"]) + "\n"


def ratio_chart(figures):
    bars = [(f"{group}: {case} / {baseline}", best, most)
            for group, case, baseline, best, _, most, _ in ratio_rows(figures)]
    return bar_chart("Our layer beside bare DuckDB calls (line: target)", bars)


def size_chart(points):
    """Cost a cell against the number of rows: [(rows, nanoseconds)]."""
    return bar_chart("Server cursor, ns a cell (query included) by rows of the result",
                     [(f"{rows:,} rows", ns, None) for rows, ns in points])
