#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs test programs of a build with --coverage and reports what of the library they reach.

Usage: coverage.py BUILD_FOLDER

Fails below the floors, when lines are not reached that unreached.txt does not name, and when it
names lines that are reached or gone.
"""

import collections
import concurrent.futures
import json
import pathlib
import re
import subprocess
import sys

BUILD = pathlib.Path(sys.argv[1]).resolve()
HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
LEAST_LINES = 97.0
LEAST_BRANCHES = 90.0

# Lines of one function that follow each other and are not reached: the first one's text, how many.
Run = collections.namedtuple("Run", "file function text lines")


class Source:
    """One file of the library: how often each line ran, which ways each branch went."""

    def __init__(self):
        self.counts = collections.Counter()
        self.functions = {}
        self.branches = collections.Counter()

    def add(self, line):
        number = line["line_number"]
        self.counts[number] += line["count"]
        self.functions.setdefault(number, line.get("function_name", ""))
        for way, branch in enumerate(line["branches"]):
            self.branches[number, way] += branch["count"]


def run_tests():
    """Each program as a whole; a failing test makes the numbers worthless."""
    def run(program):
        return program.name, subprocess.run([program], capture_output=True, text=True,
                                            errors="replace")

    programs = sorted(BUILD.glob("bin/*_test"))
    with concurrent.futures.ThreadPoolExecutor(2) as two:
        failed = [(name, done) for name, done in two.map(run, programs) if done.returncode != 0]
    for name, done in failed:
        print("\n".join(line for line in done.stdout.splitlines() if "FAILED" in line))
        print(f"coverage: {name} ended with {done.returncode}", file=sys.stderr)
    if failed:
        sys.exit(1)
    return len(programs)


def read_sources():
    sources = collections.defaultdict(Source)
    data = sorted((BUILD / "src").rglob("*.gcda"))
    for file in data:
        shown = subprocess.run(["gcov", "--json-format", "--branch-probabilities", "--stdout", file],
                               cwd=BUILD, check=True, capture_output=True).stdout
        for line in shown.splitlines():
            add_report(json.loads(line), sources)
    return sources


def add_report(report, sources):
    names = {}
    for file in report["files"]:
        path = (pathlib.Path(report["current_working_directory"]) / file["file"]).resolve()
        if path.parent != ROOT / "src":
            continue
        names.update({function["name"]: function["demangled_name"]
                      for function in file["functions"]})
        for line in file["lines"]:
            line["function_name"] = short_name(names.get(line.get("function_name"), ""))
            sources[path.name].add(line)


def short_name(demangled):
    """A function's name alone: without its namespaces and parameters."""
    plain = demangled.replace("(anonymous namespace)::", "")
    return re.split(r"[<(]", plain)[0].split("::")[-1].split(" ")[-1]


def unreached_runs(sources):
    """Each run with the number of its first line."""
    found = []
    for name, source in sorted(sources.items()):
        text = (ROOT / "src" / name).read_text().splitlines()
        inside = None
        for number, count in sorted(source.counts.items()):
            function = source.functions[number]
            if count == 0 and inside == function:
                run, first = found[-1]
                found[-1] = run._replace(lines=run.lines + 1), first
            elif count == 0:
                found.append((Run(name, function, text[number - 1].strip(), 1), number))
            inside = function if count == 0 else None
    return found


def listed_runs():
    """Runs of the list: FILE | FUNCTION | FIRST LINE | LINES | REASON; "#" begins a comment."""
    listed = []
    for number, text in enumerate((HERE / "unreached.txt").read_text().splitlines(), 1):
        if not text or text.startswith("#"):
            continue
        fields = [field.strip() for field in text.split(" | ")]
        if len(fields) != 5 or not all(fields) or not fields[3].isdigit():
            sys.exit(f"unreached.txt:{number}: expected FILE | FUNCTION | FIRST LINE | LINES | REASON")
        listed.append(Run(*fields[:3], int(fields[3])))
    return listed


def percent(reached, all_of_them):
    return 100.0 * reached / all_of_them if all_of_them else 0.0


def table(sources):
    print(f"{'file':30}{'lines':>14}{'':8}{'branches':>12}")
    total = collections.Counter()
    for name, source in sorted(sources.items()):
        counts = {"lines": len(source.counts), "branches": len(source.branches),
                  "reached": sum(1 for count in source.counts.values() if count),
                  "taken": sum(1 for count in source.branches.values() if count)}
        total.update(counts)
        show_row(name, counts)
    show_row("all", total)
    return percent(total["reached"], total["lines"]), percent(total["taken"], total["branches"])


def show_row(name, counts):
    lines = percent(counts["reached"], counts["lines"])
    branches = percent(counts["taken"], counts["branches"])
    print(f"{name:30}{counts['reached']:5} of {counts['lines']:4} {lines:6.1f} %"
          f"{counts['taken']:6} of {counts['branches']:4} {branches:6.1f} %")


def shown(run):
    return " | ".join(str(field) for field in run)


def problems_of(sources, lines, branches):
    found = unreached_runs(sources)
    listed = listed_runs()
    for run, number in found:
        if run not in listed:
            yield f"src/{run.file}:{number}: not reached: {shown(run)}"
    for run in listed:
        if run not in [there for there, _ in found]:
            yield f"unreached.txt names what is reached or gone: {shown(run)}"
    if lines < LEAST_LINES:
        yield f"{lines:.1f} % of the lines are reached, expected at least {LEAST_LINES} %"
    if branches < LEAST_BRANCHES:
        yield f"{branches:.1f} % of the branches are taken, expected at least {LEAST_BRANCHES} %"


def main():
    for file in (BUILD / "src").rglob("*.gcda"):
        file.unlink()
    programs = run_tests()
    sources = read_sources()
    print(f"What {programs} test programs reach of src/:\n")
    lines, branches = table(sources)
    found = list(problems_of(sources, lines, branches))
    for problem in found:
        print(f"coverage: {problem}", file=sys.stderr)
    sys.exit(1 if found else 0)


main()
