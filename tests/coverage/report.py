#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""report.py BUILD EXCEPTIONS: tells what tests that were built for it in BUILD have run of zdefault/ and
include/, and fails unless the list of exceptions is just what they have not.

In that list, "FILE: line: TEXT" says that the line of FILE that reads TEXT is not run, "FILE: branch: TEXT" that a
branch of it is not taken; the lines before, with "#", give the reason. "FILE: sometimes: TEXT" depends on how threads
meet: it is allowed, and not missed.

This is not left to gcovr, which takes for a branch what nobody has written (see `untaken`), and mixes up what is not
alike in the instances of a template.
"""
import json
import os
import re
import subprocess
import sys
from collections import Counter, defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def measure(build):
    """By file, line and function: by its branches' form, how often it and each of its branches are run."""
    data = [str(path) for path in build.rglob("*.gcda")]
    output = subprocess.run(["gcov", "--json-format", "--branch-probabilities", "--stdout", *data],
                            check=True, capture_output=True, text=True).stdout
    units = defaultdict(lambda: defaultdict(lambda: [0, Counter()]))
    for program in map(json.loads, output.splitlines()):
        for file in program["files"]:
            path = os.path.relpath(os.path.join(program["current_working_directory"], file["file"]), ROOT)
            if not path.startswith(("zdefault/", "include/")):
                continue
            starts = {each["name"]: (each["start_line"], each["start_column"]) for each in file["functions"]}
            for line in file["lines"]:
                throws = tuple(branch["throw"] for branch in line["branches"])
                # One function may be in many programs, and those of a template that look alike are one.
                unit = units[path, line["line_number"], starts.get(line.get("function_name"))][throws]
                unit[0] += line["count"]
                unit[1].update({i: branch["count"] for i, branch in enumerate(line["branches"])})
    return units


def untaken(throws, counts):
    """How many branches of a function's line are not taken, and how many there are."""
    missing = total = 0
    for first in range(0, len(throws), 2):  # the ways from one place
        ways = range(first, min(first + 2, len(throws)))
        # That a call may throw is no branch that anybody wrote. And a place that is not reached is where one leads that
        # is missing itself; or it tidies up after an exception.
        if not any(throws[way] for way in ways) and any(counts[way] for way in ways):
            total += len(ways)
            missing += sum(counts[way] == 0 for way in ways)
    return missing, total


def read_exceptions(path):
    """What is always missing, and what is sometimes."""
    always, sometimes = Counter(), Counter()
    for line in path.read_text().splitlines():
        if not line or line.startswith("#"):
            continue
        match = re.fullmatch(r"(\S+): (line|branch|sometimes): (.+)", line)
        if not match:
            sys.exit(f"{path}: cannot be understood: {line}")
        file, what, text = match.groups()
        if what == "sometimes":
            sometimes[file, text] += 1
        else:
            always[file, what, text] += 1
    return always, sometimes


def main(build, exceptions):
    always, sometimes = read_exceptions(exceptions)
    files = defaultdict(lambda: [0, 0, 0, 0])
    gaps = []
    sources = {}
    for (file, number, _), forms in sorted(measure(build).items(), key=lambda item: item[0][:2]):
        source = sources.setdefault(file, (ROOT / file).read_text().splitlines())
        if not re.search(r"\w", source[number - 1]):  # the end of a block, which may have to do with exceptions only
            continue
        # The instances of a template may differ; nothing is missing where one has all of it.
        best = min((untaken(throws, counts) for throws, (count, counts) in forms.items() if count), default=(0, 0))
        is_run = any(count for count, _ in forms.values())
        for i, value in enumerate((is_run, 1, best[1] - best[0], best[1])):
            files[file][i] += value
        what = ["branch"] * best[0] if is_run else ["line"]
        gaps += [(file, number, each, source[number - 1].strip()) for each in what]

    row = "{:<34}{:>6} of {:>4} lines{:>8} of {:>4} branches"
    for file, figures in sorted(files.items()):
        print(row.format(file, *figures))
    print(row.format("all", *map(sum, zip(*files.values()))))
    print(f"{sum(always.values())} exceptions, and {sum(sometimes.values())} that are missed sometimes")

    unused = always.copy()
    wrong = []
    for file, number, what, text in gaps:
        if unused[file, what, text] > 0:
            unused[file, what, text] -= 1
        elif sometimes[file, text] == 0:
            wrong.append(f"{file}:{number}: not covered: {what}: {text}")
    wrong += ["{}: covered, but among the exceptions: {}: {}".format(*gap) for gap in unused.elements()]
    for each in wrong:
        print(each)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), Path(sys.argv[2])))
