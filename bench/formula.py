#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that an installation asks of the flash exactly what the formula in model.py says.

Usage: formula.py PROGRAMS WORK_FOLDER
"""

import pathlib
import sys

from device import Device
from measure import logged
from model import RECORD, Counts, fresh_install


def installed(device):
    """Counts of an installation, and its log lines."""
    before = device.operations()
    lines, _ = logged([*device.before(), device.programs / "bench_host", "install"])
    asked = device.operations() - before
    queries, erases, programs = (asked[name] - constant for name, constant in RECORD.items())
    return Counts(queries, erases, programs), lines


def agrees(programs, work, mib, bad_percent, other_lines):
    device = Device(programs, work, mib, bad_percent)
    found, lines = installed(device)
    wanted = fresh_install(mib * 8, device.blocks, device.bad_blocks[1])
    found.reads, found.lines = wanted.reads, lines - other_lines
    print(f"{mib} MiB, bad {device.bad_blocks[1]}\n  formula {wanted}\n  counted {found}")
    return found == wanted


def main():
    programs, work = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    # What a flawless device logs beside its bad blocks is a matter of the image's length alone.
    flawless = {mib: installed(Device(programs, work, mib))[1] for mib in (1, 2)}
    good = [agrees(programs, work, mib, bad_percent, flawless[mib])
            for mib, bad_percent in ((1, 0), (1, 10), (1, 30), (2, 20))]
    if not all(good):
        sys.exit("formula: not what was counted")


main()
