"""The plots of docs/figures.md, as SVG."""

import math

BLUE, RED = "#4878a8", "#c0504d"
WIDTH = 760


def frame(height, title, parts):
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" font-family="sans-serif" '
            f'font-size="12">')
    return "\n".join([head, f'<rect width="{WIDTH}" height="{height}" fill="white"/>',
                      f'<text x="8" y="20" font-size="14">{title}</text>', *parts, "</svg>"]) + "\n"


def text(x, y, words, anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{words}</text>'


def line(x1, y1, x2, y2, colour="#333", width=1):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" stroke-width="{width}"/>'


def ratio_chart(ratios):
    """Bars, each with a stroke at its target. A ratio that noise made infinite has no bar."""
    ratios = [r for r in ratios if math.isfinite(r.best)]
    row, left = 24, 330
    top = max([r.best for r in ratios] + [r.most for r in ratios if r.most] + [1e-9])
    scale = (WIDTH - left - 70) / top
    parts = []
    for i, r in enumerate(ratios):
        y = 32 + i * row
        colour = BLUE if r.most is None or r.best <= r.most else RED
        parts.append(text(left - 8, y + 14, f"{r.group}: {r.case} / {r.baseline}", "end"))
        parts.append(f'<rect x="{left}" y="{y}" width="{max(r.best, 0) * scale:.1f}" height="{row - 6}" fill="{colour}"/>')
        parts.append(text(left + max(r.best, r.most or 0) * scale + 4, y + 14, f"{r.best:.2f}"))
        if r.most:
            x = left + r.most * scale
            parts.append(line(x, y - 3, x, y + row - 3, width=2))
    return frame(44 + row * len(ratios), "Time / time of the same work in bare DuckDB calls (stroke: target)", parts)


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
