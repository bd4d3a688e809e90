#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the library costs beyond the floor, in user instructions by callgrind.

Usage: cost.py PROGRAMS WORK_FOLDER

Prints two tables and fails when one of the ceilings is passed:
- without bad blocks, an operation takes at most CEILINGS times the floor's instructions, those of
  the simulated device counted with both or with neither, and MORE_ALLOCATIONS at most: fewer than
  one for each block;
- with bad blocks, each log line is formatted at most once, written once to each destination and
  flushed once, and takes less than half of what it takes the plain way.
"""

import pathlib
import sys

from device import Device
from measure import SIMULATOR, instructions
from operations import PROGRAMS, Pair

CEILINGS = {
    "verify": 1.05,
    "install (fresh)": 1.15,
    "install (already there)": 1.15,
    "sync (equal)": 1.05,
    "sync (different)": 1.05,
}
MORE_ALLOCATIONS = 16
MOST_OF_PLAIN = 0.5


def allocations(profile):
    return profile.calls["malloc"] + profile.calls["calloc"]


def ratio_table(programs, work):
    pair = Pair(programs, work / "flawless", 8)
    print("8 MiB image, no bad block; user instructions\n")
    print(f"{'':26}{'library':>14}{'floor':>14}{'ratio':>9}{'no device':>11}{'ceiling':>9}"
          f"{'more allocations':>18}{'ceiling':>9}")
    good = True
    for name, verb in pair.rounds():
        library, floor = (instructions(command, work) for command in pair.commands(verb))
        ratio = library.total / floor.total
        bare_ratio = library.without(SIMULATOR) / floor.without(SIMULATOR)
        more = allocations(library) - allocations(floor)
        print(f"{name:26}{library.total:14,}{floor.total:14,}{ratio:9.4f}{bare_ratio:11.4f}"
              f"{CEILINGS[name]:9.2f}{more:18}{MORE_ALLOCATIONS:9}")
        good = good and max(ratio, bare_ratio) <= CEILINGS[name] and more <= MORE_ALLOCATIONS
    return good


def plain_line(programs, work, device, lines):
    """Instructions for a line that is logged the plain way."""
    most, none = (instructions([*device.before(), programs / "bench_plain_log", str(count)], work)
                  for count in (lines, 0))
    return (most.total - none.total) / lines


def log_table(programs, work):
    devices = [Device(programs, work / "bad" / name, 2, bad_percent=20) for name in PROGRAMS]
    library, floor = (instructions([*device.before(), programs / name, "install"], work)
                      for device, name in zip(devices, PROGRAMS))
    # A line has the time of each of its two destinations.
    lines = library.calls["upi_get_time_us"] / 2
    counts = {
        "formattings": library.calls["vsnprintf"],
        "writes to either stream": library.calls["fwrite"] / 2,
        "flushes of the log": library.calls["fflush"],
    }
    line = (library.total - floor.total) / lines
    plain = plain_line(programs, work, devices[0], int(lines))
    print(f"\n2 MiB image, {devices[0].bad} of {devices[0].blocks} blocks bad, {lines:,.0f} log lines\n")
    for what, count in counts.items():
        print(f"{what:26}{count:14,.0f}")
    print(f"{'instructions for a line':26}{line:14,.0f}   beyond the floor, libc's too")
    print(f"{'the plain way':26}{plain:14,.0f}   {line / plain:.2f} of it, ceiling {MOST_OF_PLAIN}")
    at_most_once = counts.pop("formattings") <= lines
    once = at_most_once and all(count == lines for count in counts.values())
    return 0 < lines and once and line < MOST_OF_PLAIN * plain


def main():
    programs, work = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    good = [ratio_table(programs, work), log_table(programs, work)]
    if not all(good):
        sys.exit("cost: a ceiling was passed")


main()
