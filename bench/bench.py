#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Measures the library against the least that does the same and against what people use instead.

Usage: bench.py BUILD OUT [--quick | --again CELL... | --page FILE]

Writes OUT/results.json and OUT/plots/ and prints one table. --quick takes small partitions and
leaves the emulated machine out. A CELL is MIB:BAD_PERCENT, "guest" or "delays"; all others are taken
from the results that are there. --page measures nothing and puts the results into FILE.
"""

import argparse
import json
import pathlib
import shutil
import sys

import guest
import page
import plots
import table
from measure import Cell

FULL = {"instructions": [(mib, bad) for mib in (8, 32, 128) for bad in (0, 1, 5)],
        "counts": [(2, 0), (4, 0), (16, 0), (64, 0), (8, 2), (8, 3), (32, 2), (32, 3)],
        "guest": ["8:0:2", "8:1:2", "8:5:1", "32:0:1", "32:1:1"],
        "delays": 8}
QUICK = {"instructions": [(2, 0), (2, 15), (4, 0)], "counts": [(1, 0), (8, 0)], "guest": [],
         "delays": None}


def rounds_of(mib):
    return max(1, min(7, 64 // mib))


def measure(build, folder, mib, bad_percent, with_instructions):
    print(f"{mib} MiB, {bad_percent} % bad ...", file=sys.stderr, flush=True)
    cell = Cell(build / "bin", folder, mib, bad_percent)
    cell.count()
    cell.time(rounds_of(mib))
    if with_instructions:
        cell.count_instructions()
    shutil.rmtree(folder)
    return list(cell.rows.values())


def save(file, results):
    order = ("mib", "bad_percent")
    results["cells"].sort(key=lambda row: [row[key] for key in order])
    file.write_text(json.dumps(results, indent=1) + "\n")


def measure_all(build, out, plan, wanted, results):
    """Measures what is wanted of a plan and saves each result as soon as it is there."""
    for mib, bad_percent in plan["instructions"] + plan["counts"]:
        if wanted and f"{mib}:{bad_percent}" not in wanted:
            continue
        rows = measure(build, build / "bench" / f"{mib}-{bad_percent}", mib, bad_percent,
                       (mib, bad_percent) in plan["instructions"])
        others = [row for row in results["cells"]
                  if (row["mib"], row["bad_percent"]) != (mib, bad_percent)]
        results["cells"] = others + rows
        save(out / "results.json", results)
    for case in plan["guest"] if not wanted or "guest" in wanted else []:
        rows = guest.measure(build, case)
        places = [(row["mib"], row["bad"]) for row in rows]
        results["guest"] = sorted(
            [row for row in results["guest"] if (row["mib"], row["bad"]) not in places] + rows,
            key=lambda row: (row["mib"], row["bad"]))
        save(out / "results.json", results)
    if plan["delays"] and (not wanted or "delays" in wanted):
        results["delays"] = guest.measure_delays(build, plan["delays"])
        save(out / "results.json", results)


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=lambda text: pathlib.Path(text).resolve())
    parser.add_argument("out", type=lambda text: pathlib.Path(text).resolve())
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--again", nargs="+", default=[])
    parser.add_argument("--page", type=pathlib.Path)
    given = parser.parse_args()
    plan = QUICK if given.quick else FULL
    known = [f"{mib}:{bad}" for mib, bad in plan["instructions"] + plan["counts"]] + ["guest", "delays"]
    for cell in given.again:
        if cell not in known:
            parser.error(f"--again: {cell} is none of {' '.join(known)}")
    return given


def main():
    given = arguments()
    file = given.out / "results.json"
    results = {"cells": [], "guest": [], "delays": None}
    if (given.again or given.page) and file.exists():
        results = json.loads(file.read_text())
    if not given.page:
        measure_all(given.build, given.out, QUICK if given.quick else FULL, given.again, results)
    print(table.text(results))
    plots.draw(results, given.out / "plots")
    if given.page:
        page.write(results, given.page, given.out / "plots")


main()
