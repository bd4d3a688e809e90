#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Which system calls the library makes, how often, and what for.

Usage: system_calls.py PROGRAMS WORK_FOLDER EXPECTED

Runs each operation by the library and by the floor on devices with bad blocks and fails when the
library makes a call that is not in the list EXPECTED, or more or fewer of them than it says, and
when the two devices were not asked exactly the same.
"""

import collections
import pathlib
import re
import subprocess
import sys

from operations import PROGRAMS, Pair

CALL = re.compile(r"\d+ +(\w+)\((.*)")
PATH = re.compile(r'(?:AT_FDCWD<[^>]*>, |AT_FDCWD, )?"([^"]*)"|^\d+<([^>]*)>')
CONSOLE = "/console"
LINE = b"][fota_upi] ["

# What the device counts and strace sees too.
LOG_OPERATIONS = {"fopen", "fclose", "access"}
REQUESTS = {"MEM": "FLASH", "protect-": "FLASH", "other-": "FLASH", "store-": "STORE"}


def read_expected(file):
    """(call, path): (times, what for)."""
    rows = (line.split(maxsplit=3) for line in file.read_text().splitlines()
            if line and not line.startswith("#"))
    return {(call, "" if path == "-" else path): (times, why) for call, path, times, why in rows}


def parse(line, device):
    """(call, path) of a line of strace, the device's own files left out."""
    found = CALL.match(line)
    if not found:
        return None
    call, arguments = found.groups()
    path = next((group for match in [PATH.match(arguments)] if match
                 for group in match.groups() if group), "")
    path = path.replace(str(device.path), "DEVICE", 1)
    path = "CONSOLE" if path.endswith(CONSOLE) else path
    is_devices_own = re.match(r"DEVICE/(chip|store|state)", path) or call == "getpid"
    return None if is_devices_own else (call, path)


def trace(command, device, file):
    """Counts of system calls from the operation's beginning on and of requests on flash, by (call,
    path)."""
    before = asked(device)
    with open(f"{device.folder}{CONSOLE}", "w", encoding="ascii") as console:
        subprocess.run([*command[:-2], "strace", "-f", "-y", "-o", file, *command[-2:]], check=True,
                       stdout=console)
    lines = file.read_text(errors="replace").splitlines()
    begin = next(i for i, line in enumerate(lines) if "getppid()" in line)
    calls = (parse(line, device) for line in lines[begin + 1:])
    requests = asked(device) - before
    return (collections.Counter(call for call in calls if call) +
            collections.Counter({(name, place): requests[name] for name in requests
                                 for start, place in REQUESTS.items() if name.startswith(start)}))


def log_lines(device):
    return (device.path / "root/cache/ovu_fota_ab/upi_ab.log").read_bytes().count(LINE)


def asked(device):
    """What the device was asked since it was made, by kind."""
    counts = device.operations()
    return collections.Counter({name: counts[name] for name in counts.keys() - LOG_OPERATIONS})


def judge(call, count, expected, floor, lines):
    """Prints one row; false when the count is not the expected one."""
    times, why = expected.get(call, ("0", "not in the list"))
    wanted = {"floor": floor[call], "lines": lines, "any": count}.get(times)
    wanted = int(times) if wanted is None else wanted
    mark = "" if count == wanted else f"   EXPECTED {wanted}"
    print(f"  {call[0]:16}{call[1]:47}{count:7,}  {why}{mark}")
    return count == wanted


def compare(name, verb, pair, expected, work):
    library_device = pair.devices[0]
    before = log_lines(library_device)
    library, floor = (trace(command, device, work / f"{program}.strace") for command, device, program
                      in zip(pair.commands(verb), pair.devices, PROGRAMS))
    lines = log_lines(library_device) - before
    print(f"\n{name}, {lines} log lines")
    good = [judge(call, library[call], expected, floor, lines) for call in sorted(library | floor)]
    both = [asked(device) for device in pair.devices]
    if both[0] != both[1]:
        print(f"  the library's device was asked {both[0]}\n  the floor's device {both[1]}")
    return lines > 0 and all(good) and both[0] == both[1]


def main():
    programs, work, file = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    pair = Pair(programs, work, 1, bad_percent=10)
    expected = read_expected(file)
    good = [compare(name, verb, pair, expected, work) for name, verb in pair.rounds()]
    if not all(good):
        sys.exit("system calls: not those that are expected")


main()
