# SPDX-License-Identifier: Apache-2.0
"""Installs in an emulated machine with nandsim, by the library and by what people use instead."""

import collections
import pathlib
import statistics
import subprocess
import sys

from model import RECORD, Flash, fresh_install

HERE = pathlib.Path(__file__).parent
MIB = 1024 * 1024
PAGES_PER_BLOCK = 64
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


def boot(build, case):
    print(f"in the emulated machine: {case} ...", file=sys.stderr, flush=True)
    subprocess.run([HERE / "guest" / "measure", build, case], check=True)
    return parse((build / "bench-guest" / "console-a").read_text(errors="replace"))


def measure(build, case):
    """Rows of one machine; a case is MIB:BAD_PERCENT:ROUNDS."""
    return [summary(mib, bad, rounds) for (mib, bad), rounds in boot(build, case).items()]


def measure_delays(build, mib):
    """What an installation takes longer when nandsim takes a flash part's time for one kind of
    operation, measured and by the formula. How often the driver loads a page that is read in pieces
    is measured by itself."""
    (taken,) = (rounds["1"] for rounds in boot(build, f"{mib}:0:1:delays").values())

    def longer(installer, part):
        return taken[f"{installer}:{part}"][0] - taken[installer][0]

    load = Flash.read + Flash.page / Flash.bus
    loads = {way: longer(way, "reading") / (mib * MIB / Flash.page * load)
             for way in ("pieces", "pages")}
    _, erases, programs = taken["library"]
    used = programs // PAGES_PER_BLOCK
    counts = fresh_install(used, erases - used, [])
    counts.erases += RECORD["block-erase"]
    counts.programs += RECORD["page-program"]
    by_formula = Flash(loads=loads["pieces"]).seconds(counts)
    return {"mib": mib, "loads": loads,
            "parts": {part: {"measured": longer("library", part), "by_formula": by_formula[part]}
                      for part in ("reading", "programming", "erasing")}}
