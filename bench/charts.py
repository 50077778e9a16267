"""The plots of docs/figures.md, as SVG."""

import math

BLUE, RED = "#4878a8", "#c0504d"
WIDTH = 860


def frame(height, title, parts):
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" font-family="sans-serif" '
            f'font-size="12">')
    return "\n".join([head, f'<rect width="{WIDTH}" height="{height}" fill="white"/>',
                      f'<text x="8" y="20" font-size="14">{title}</text>', *parts, "</svg>"]) + "\n"


def text(x, y, words, anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{words}</text>'


def line(x1, y1, x2, y2, colour="#333", width=1):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" stroke-width="{width}"/>'


# Headings of the groups of bars, by the words that the workloads' names begin with.
SECTIONS = [
    ("Cells through cursors", ("W",)),
    ("Random cells", ("random-",)),
    ("Procedures", ("fetch_", "go-to-row", "small-")),
    ("Rows in", ("append-", "multi-row-", "binds-")),
    ("Vectors and streams out", ("arrow-", "stream-")),
    ("Statements and children", ("point-", "script-", "release", "progress")),
    ("Files", ("open-close", "backup", "restore")),
]
LEGEND = ["Less is better. At 1.0 (grey line) the time is that of the case after the slash. Black stroke: target; red: beyond it.",
          "W1: numbers and short texts; W2: 16 columns of orders; W3: texts; W4: lists, structs, VARIANTs."]
ROW, HEAD, LEFT, FIRST = 22, 30, 380, 84


def section_of(name):
    return next((title for title, beginnings in SECTIONS if name.startswith(beginnings)), "Others")


def arrange(ratios):
    """[(heading, [ratio])] in the order of the sections."""
    groups = {title: [] for title in [*(title for title, _ in SECTIONS), "Others"]}
    for ratio in ratios:
        groups[section_of(ratio.group)].append(ratio)
    return [(title, members) for title, members in groups.items() if members]


def bar(ratio, y, scale, most_shown):
    """The bar, its name, its number, and a stroke at its target. A bar that is too long is cut, its number is not."""
    colour = BLUE if ratio.most is None or ratio.best <= ratio.most else RED
    length = min(max(ratio.best, 0), most_shown) * scale
    parts = [text(LEFT - 8, y + 13, f"{ratio.group}: {ratio.case} / {ratio.baseline}", "end"),
             f'<rect x="{LEFT}" y="{y}" width="{length:.1f}" height="{ROW - 6}" fill="{colour}"/>']
    if ratio.most:
        x = LEFT + ratio.most * scale
        parts.append(line(x, y - 3, x, y + ROW - 3, width=2))
    at = max(length, ratio.most * scale) if ratio.most and ratio.most * scale < length + 40 else length
    parts.append(text(LEFT + at + 4, y + 13, f"{ratio.best:.2f}"))
    return parts


def ratio_chart(ratios):
    """Bars in groups, with a line at 1.0. A ratio that noise made infinite has no bar."""
    ratios = [r for r in ratios if math.isfinite(r.best)]
    most_shown = max([min(r.best, 4.0) for r in ratios] + [r.most for r in ratios if r.most] + [1.0])
    scale = (WIDTH - LEFT - 60) / most_shown
    parts, y = [], FIRST
    for title, members in arrange(ratios):
        parts.append(f'<text x="8" y="{y + 12}" font-weight="bold">{title}</text>')
        y += HEAD - 8
        for ratio in members:
            parts += bar(ratio, y, scale, most_shown)
            y += ROW
        y += 8
    one = LEFT + scale
    legend = [text(8, 40 + 16 * i, words) for i, words in enumerate(LEGEND)]
    axis = [line(one, FIRST - 4, one, y - 8, "#bbb"), text(one, FIRST - 8, "1.0", "middle")]
    return frame(y + 4, "Time / time of the comparison", [*legend, *axis, *parts])


def size_chart(points):
    """Cost of a cell by number of rows, on a logarithmic axis: [(rows, nanoseconds)]."""
    height, left, right, bottom = 300, 60, 40, 260
    first, last = math.log10(points[0][0]), math.log10(points[-1][0])
    top = max(cost for _, cost in points) * 1.25

    def place(rows, cost):
        share = (math.log10(rows) - first) / ((last - first) or 1)
        return left + share * (WIDTH - left - right), bottom - cost / top * (bottom - 40)

    parts = [line(left, bottom, WIDTH - right, bottom), line(left, 40, left, bottom)]
    for share in (0, 0.25, 0.5, 0.75, 1):
        y = bottom - share * (bottom - 40)
        parts += [line(left - 4, y, left, y), text(left - 8, y + 4, f"{top * share:.0f}", "end")]
    places = [place(rows, cost) for rows, cost in points]
    parts.append(f'<polyline points="{" ".join(f"{x:.1f},{y:.1f}" for x, y in places)}" fill="none" stroke="{BLUE}" '
                 f'stroke-width="2"/>')
    for (rows, cost), (x, y) in zip(points, places):
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4" fill="{BLUE}"/>', text(x, y - 10, f"{cost:.1f}", "middle"),
                  line(x, bottom, x, bottom + 4), text(x, bottom + 18, f"{rows:,}", "middle")]
    parts.append(text(WIDTH / 2, bottom + 36, "rows of the result", "middle"))
    return frame(height, "Server cursor: ns per cell above the drain, by rows of the result", parts)
