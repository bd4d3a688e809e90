#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the library itself costs in a whole upgrade, in user instructions by callgrind.

Usage: cost.py PROGRAMS WORK_FOLDER

Prints two tables and fails when one of the ceilings is passed:
- without bad blocks, the library's own code takes at most 10 % of the instructions of a
  verification and an installation;
- with bad blocks, each log line is formatted once and written once to each destination.
"""

import pathlib
import sys

from callgrind import profile
from device import Device

LIBRARY = "libzozale.so.1.0.0"
LOG_LINE = "upi::log_line(char const*, int, char const*, ...)"
MOST_SHARE = 0.10


def own(profiles):
    total = sum(p.total for p in profiles)
    library = sum(p.by_object[LIBRARY] for p in profiles)
    return library, total


def share_table(programs, work):
    device = Device(programs, work / "flawless", 8)
    profiles = {what: profile([programs / "bench_host", what], work / f"{what}.out", device.before())
                for what in ("verify", "install")}
    print("8 MiB image, no bad block; user instructions\n")
    print(f"{'':10}{'all':>14}{'libcrypto':>14}{'simulator':>14}{'libc':>14}{'library':>14}  share")
    rows = {**{name: [p] for name, p in profiles.items()}, "both": list(profiles.values())}
    for name, group in rows.items():
        library, total = own(group)
        parts = [sum(p.by_object[o] for p in group)
                 for o in ("libcrypto.so.3", "libzozale_sim.so", "libc.so.6")]
        cells = "".join(f"{number:14,}" for number in (total, *parts, library))
        print(f"{name:10}{cells}  {library / total:.2%}")
    library, total = own(list(profiles.values()))
    return library / total <= MOST_SHARE


def log_table(programs, work):
    device = Device(programs, work / "bad", 1, bad_percent=20)
    before = device.log_lines()
    p = profile([programs / "bench_host", "install"], work / "bad.out", device.before())
    lines = device.log_lines() - before
    line_calls = p.calls[LOG_LINE]
    formats = p.calls["vsnprintf"]
    stores = p.calls["fwrite"]
    flushes = p.calls["fflush"]
    print(f"\n1 MiB image, {device.bad} of {device.blocks} blocks bad\n")
    print(f"lines in the log       {lines:10,}")
    print(f"calls that log         {line_calls:10,}")
    print(f"formattings            {formats:10,}   one for a line, for both destinations")
    print(f"stream writes          {stores:10,}   one for each destination")
    print(f"flushes of the log     {flushes:10,}   one for a line: one write call each")
    print(f"instructions           {p.inclusive[LOG_LINE] // max(lines, 1):10,}   for a line, libc's too")
    return 0 < lines == line_calls == formats == flushes and stores == 2 * lines


def main():
    programs, work = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    good = [share_table(programs, work), log_table(programs, work)]
    if not all(good):
        sys.exit("cost: a ceiling was passed")


main()
