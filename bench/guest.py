# SPDX-License-Identifier: Apache-2.0
"""Installs in an emulated machine with nandsim, by the library and by what people use instead."""

import collections
import pathlib
import statistics
import subprocess
import sys

HERE = pathlib.Path(__file__).parent
INSTALLERS = ("library", "floor", "mtd_utils", "updater")


def parse(console):
    """{(mib, bad): {round: {installer: (seconds, erases, programs)}}}"""
    cases = collections.defaultdict(lambda: collections.defaultdict(dict))
    for line in console.splitlines():
        if line.startswith("bench failed"):
            raise RuntimeError(f"in the emulated machine: {line}\n{console}")
        if line.startswith("bench ") and line != "bench end":
            _, mib, bad, installer, number, began, ended, erases, programs = line.split()
            cases[int(mib), int(bad)][number][installer] = (
                float(ended) - float(began), int(erases), int(programs))
    if "bench end" not in console:
        raise RuntimeError(f"the emulated machine did not come to its end:\n{console}")
    return cases


def summary(mib, bad, rounds):
    """Of each installer the median time and the median of its ratios to the library's time in the
    same round."""
    row = {"mib": mib, "bad": bad, "rounds": len(rounds), "installers": {}}
    for installer in INSTALLERS:
        taken = [taken[installer] for taken in rounds.values()]
        ratios = [taken["library"][0] / taken[installer][0] for taken in rounds.values()]
        row["installers"][installer] = {
            "seconds": statistics.median(seconds for seconds, _, _ in taken),
            "library_ratio": statistics.median(ratios),
            "library_ratio_range": [min(ratios), max(ratios)],
            "blocks_erased": taken[0][1],
            "pages_programmed": taken[0][2],
        }
    return row


def measure(build, case):
    """Rows of one machine; a case is MIB:BAD_PERCENT:ROUNDS."""
    print(f"in the emulated machine: {case} ...", file=sys.stderr, flush=True)
    subprocess.run([HERE / "guest" / "measure", build, case], check=True)
    console = (build / "bench-guest" / "console-a").read_text(errors="replace")
    return [summary(mib, bad, rounds) for (mib, bad), rounds in parse(console).items()]
