"""Measured figures, the tables and charts made of them, and the loops that measure."""

import html
import math
import statistics
import time

ROUNDS = 5


class Figure:
    """One quantity, measured several times: its median, and how far the runs differ from it."""

    def __init__(self, runs):
        self.runs = list(runs)
        self.median = statistics.median(self.runs)

    @property
    def deviation(self):
        """The largest deviation of a run from the median, in percent of it."""
        return max(abs(run - self.median) for run in self.runs) / abs(self.median) * 100 if self.median else 0.0

    def __truediv__(self, other):
        """The ratio, taken of each pair of runs, which were measured one after the other."""
        return Figure(mine / theirs for mine, theirs in zip(self.runs, other.runs))

    def __sub__(self, other):
        return Figure(mine - theirs for mine, theirs in zip(self.runs, other.runs))

    def rate(self, rows=1):
        """Of seconds for so many rows, the rows a second."""
        return Figure(rows / run for run in self.runs)


def number(value, digits=3):
    """A number with so many significant digits and separators of thousands."""
    if value == 0:
        return "0"
    decimals = max(0, digits - 1 - math.floor(math.log10(abs(value))))
    return f"{round(value, digits - 1 - math.floor(math.log10(abs(value)))):,.{decimals}f}"


def with_deviation(text, figure):
    return f"{text} ±{figure.deviation:.0f} %" if len(figure.runs) > 1 else text


def as_time(figure):
    for unit, seconds in (("s", 1), ("ms", 1e-3), ("µs", 1e-6), ("ns", 1e-9)):
        if abs(figure.median) >= seconds or unit == "ns":
            return with_deviation(f"{number(figure.median / seconds)} {unit}", figure)
    return ""


def as_number(figure):
    return with_deviation(number(figure.median), figure)


def as_ratio(figure):
    return with_deviation(f"{figure.median:.2f}", figure)


def as_size(size):
    for unit, factor in (("MB", 1000000), ("MiB", 1 << 20), ("KiB", 1 << 10)):
        if size >= factor and size % factor == 0:
            return f"{size // factor} {unit}"
    return f"{size} B"


def table(head, rows):
    """A Markdown table."""
    lines = [head, ["---"] * len(head), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def in_turn(rounds, measurements):
    """Runs every measurement once to warm up and then all of them in turn, `rounds` times. Returns Figures by name."""
    runs = {name: [] for name in measurements}
    for measure in measurements.values():
        measure()
    for _ in range(rounds):
        for name, measure in measurements.items():
            runs[name].append(measure())
    return {name: Figure(values) for name, values in runs.items()}


def timed(action):
    """The seconds that an action takes."""
    begin = time.perf_counter()
    action()
    return time.perf_counter() - begin


def rows_that_take(seconds, run, limit=10**9):
    """How many rows run(rows), which returns seconds, does in about the given time; at most `limit`."""
    rows = 1
    while True:
        taken = run(rows)
        if taken >= seconds / 4 or rows >= limit:
            return min(limit, max(1, round(rows * seconds / taken)))
        rows = min(limit, rows * 4)


COLOURS = ("#4878a8", "#e1974c", "#6aa56a", "#b4534f")


def bar_chart(title, groups, series):
    """Groups of horizontal bars on a linear scale, as SVG. `series` maps a name to the values of the groups."""
    label_width, bar_width, bar_height = 215, 420, 14
    group_height = bar_height * len(series) + 14
    height = 64 + group_height * len(groups)
    longest = max(value for values in series.values() for value in values)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 740 {height}" font-family="sans-serif" font-size="12">',
             f'<rect width="740" height="{height}" fill="white"/>',
             f'<text x="10" y="20" font-size="14">{html.escape(title)}</text>']
    for index, name in enumerate(series):
        x = label_width + index * 130
        parts.append(f'<rect x="{x}" y="32" width="12" height="12" fill="{COLOURS[index]}"/>'
                     f'<text x="{x + 16}" y="42">{html.escape(name)}</text>')
    for row, group in enumerate(groups):
        top = 58 + row * group_height
        parts.append(f'<text x="{label_width - 8}" y="{top + group_height / 2 - 3}" text-anchor="end">'
                     f'{html.escape(group)}</text>')
        for index, values in enumerate(series.values()):
            y, width = top + index * bar_height, max(1, values[row] / longest * bar_width)
            parts.append(f'<rect x="{label_width}" y="{y}" width="{width:.1f}" height="{bar_height - 2}" '
                         f'fill="{COLOURS[index]}"/><text x="{label_width + width + 5:.1f}" y="{y + 10}" '
                         f'font-size="10">{number(values[row])}</text>')
    return "\n".join([*parts, "</svg>"]) + "\n"
