#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the table and the plots of docs/performance.md from what the benchmarks have measured: report.py PAGE JSON..."""

import json
import math
import pathlib
import re
import statistics
import sys

GOALS = pathlib.Path(__file__).with_name("goals.json")
BEGIN = "<!-- measured: scripts/bench -->"
END = "<!-- end of what was measured -->"
SUFFIX = re.compile(r"/(real_time|process_time|manual_time|threads:\d+|iterations:\d+|repeats:\d+|min_time:[\d.]+)$")
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
COLOURS = ["#1f77b4", "#444444", "#d62728", "#2ca02c", "#9467bd", "#ff7f0e", "#8c564b", "#17becf"]


class Figure:
    """The repetitions of one measurement."""

    def __init__(self, values, is_memory):
        self.median = statistics.median(values)
        quartiles = statistics.quantiles(values, n=4) if len(values) > 1 else [self.median] * 3
        self.spread = (quartiles[2] - quartiles[0]) / 2
        self.is_memory = is_memory

    def text(self):
        unit = spell_bytes if self.is_memory else spell_time
        percent = 100 * self.spread / self.median if self.median else 0
        return f"{unit(self.median)} ± {percent:.0f} %"


def spell_time(nanoseconds):
    for unit in ("ns", "us", "ms"):
        if nanoseconds < 999.5:
            break
        nanoseconds /= 1000
    else:
        unit = "s"
    digits = 2 if nanoseconds < 10 else 1 if nanoseconds < 100 else 0
    return f"{nanoseconds:.{digits}f} {unit}"


def spell_bytes(number):
    return f"{number:.0f} B" if number < 10240 else f"{number / 1024:.0f} KiB"


def read(files):
    """{operation: {argument: {what: Figure}}} of all that was measured."""
    values = {}
    for file in files:
        for run in json.loads(pathlib.Path(file).read_text())["benchmarks"]:
            if run["run_type"] != "iteration" or run.get("error_occurred"):
                continue
            name = run["name"]
            # A name says so where the clock on the wall counts; else time given to other programs does not.
            clock = "real_time" if re.search("/(real|manual)_time", name) else "cpu_time"
            while SUFFIX.search(name):
                name = SUFFIX.sub("", name)
            operation, what, *argument = name.split("/")
            # With several threads the time is divided by their number, though each call takes the whole of it.
            time = run[clock] * NANOSECONDS[run["time_unit"]] * (run["threads"] if clock == "real_time" else 1)
            key = (operation, argument[0] if argument else "", what)
            values.setdefault(key, []).append((run.get("bytes"), time))
    table = {}
    for operation, argument, what in sorted(values, key=lambda key: (number(key[1]) or 0, key)):
        runs = values[operation, argument, what]
        is_memory = runs[0][0] is not None
        figure = Figure([memory if is_memory else time for memory, time in runs], is_memory)
        table.setdefault(operation, {}).setdefault(argument, {})[what] = figure
    return table


def number(argument):
    return float(argument) if re.fullmatch(r"[\d.]+", argument) else None


def peers(whats):
    return {what[len("peer: "):]: figure for what, figure in whats.items() if what.startswith("peer: ")}


def missed(goal, ours, whats, arguments):
    """Whether a goal is missed that begins with a number: '5 ns', '0.6 x lock and count', or '1.15 x one thread', which
    is what ours takes with the argument 1."""
    match = re.match(r"([\d.]+) (x|ns|us|ms|s)\b ?([^;]*)", goal)
    if not match:
        return False
    limit = float(match[1])
    if match[2] != "x":
        return ours.median > limit * NANOSECONDS[match[2]]
    if match[3] == "one thread":
        other = arguments.get("1", {}).get("ours")
    else:
        other = whats.get(match[3]) or whats.get("peer: " + match[3])
    return other is not None and ours.median > limit * other.median


def rows(table, goals):
    yield "| operation | ours | floor | ratio | goal | peers, and how often ours fits into each |"
    yield "|---|---|---|---|---|---|"
    for operation, arguments in table.items():
        for argument, whats in arguments.items():
            ours, floor = whats.get("ours"), whats.get("floor")
            goal = goals.get(operation, "")
            others = []
            for name, figure in peers(whats).items():
                times = f" ({figure.median / ours.median:.2f} x)" if ours and ours.median else ""
                others.append(f"{name} {figure.text()}{times}")
            label = operation
            if argument:
                label += f", {int(argument):,}" if argument.isdigit() else f", {argument}"
            ratio = f"{ours.median / floor.median:.2f}" if ours and floor and floor.median else ""
            shown = f"**{goal}**" if ours and missed(goal, ours, whats, arguments) else goal
            cells = [label, ours.text() if ours else "", floor.text() if floor else "", ratio, shown, "; ".join(others)]
            yield "| " + " | ".join(cells) + " |"


def plot(operation, arguments):
    """An SVG with both axes logarithmic: one line for ours, the floor and each peer."""
    width, height, left, right, top, bottom = 720, 400, 80, 210, 40, 50
    lines = {}
    for argument, whats in arguments.items():
        for what, figure in whats.items():
            if figure.median > 0 and number(argument) is not None:
                lines.setdefault(what, []).append((number(argument), figure))
    points = [point for line in lines.values() for point in line]
    logarithm = lambda value: math.log10(max(value, 1))
    low_x, high_x = (pick(logarithm(x) for x, _ in points) for pick in (min, max))
    low_y = math.floor(min(math.log10(figure.median) for _, figure in points))
    high_y = max(math.ceil(max(math.log10(figure.median) for _, figure in points)), low_y + 1)
    at_x = lambda value: left + (logarithm(value) - low_x) / (high_x - low_x or 1) * (width - left - right)
    at_y = lambda value: height - bottom - (math.log10(value) - low_y) / (high_y - low_y) * (height - top - bottom)
    spell = spell_bytes if points[0][1].is_memory else spell_time

    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" '
           f'font-size="12">', f'<rect width="{width}" height="{height}" fill="white"/>',
           f'<text x="{left}" y="22" font-size="15">{operation}</text>']
    for power in range(low_y, high_y + 1):
        y = at_y(10.0 ** power)
        svg.append(f'<line x1="{left}" x2="{width - right}" y1="{y:.1f}" y2="{y:.1f}" stroke="#ddd"/>')
        label = spell(10.0 ** power).replace(".00", "").replace(".0", "")
        svg.append(f'<text x="{left - 8}" y="{y + 4:.1f}" text-anchor="end">{label}</text>')
    for value in sorted({x for x, _ in points}):
        svg.append(f'<text x="{at_x(value):.1f}" y="{height - bottom + 20}" text-anchor="middle">{value:,.0f}</text>')
    for index, (what, line) in enumerate(lines.items()):
        colour = COLOURS[index % len(COLOURS)]
        line.sort(key=lambda point: point[0])
        path = " ".join(f"{at_x(x):.1f},{at_y(figure.median):.1f}" for x, figure in line)
        svg.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        svg += [f'<circle cx="{at_x(x):.1f}" cy="{at_y(figure.median):.1f}" r="3" fill="{colour}"/>'
                for x, figure in line]
        y = top + 10 + 18 * index
        svg.append(f'<rect x="{width - right + 15}" y="{y - 9}" width="10" height="10" fill="{colour}"/>')
        svg.append(f'<text x="{width - right + 30}" y="{y}">{what.replace("peer: ", "").replace("&", "&amp;")}</text>')
    return "\n".join(svg + ["</svg>", ""])


def main(page, files):
    page = pathlib.Path(page)
    goals = json.loads(GOALS.read_text())
    measured = read(files)
    order = [operation for operation in goals if operation in measured]
    table = {operation: measured[operation] for operation in order + [other for other in measured if other not in goals]}
    folder = page.with_suffix("")
    folder.mkdir(exist_ok=True)
    text = list(rows(table, goals)) + [""]
    for old in folder.glob("*.svg"):
        old.unlink()
    for operation, arguments in table.items():
        if sum(number(argument) is not None for argument in arguments) > 1:
            picture = folder / (re.sub(r"\W+", "-", operation).strip("-").lower() + ".svg")
            picture.write_text(plot(operation, arguments))
            text.append(f"![{operation}]({folder.name}/{picture.name})")
    before, rest = page.read_text().split(BEGIN)
    page.write_text(before + BEGIN + "\n" + "\n".join(text) + "\n" + END + rest.split(END)[1])


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
