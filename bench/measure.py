# SPDX-License-Identifier: Apache-2.0
"""Measures the operations on simulated devices: what they ask, how many instructions and how much
time they take, each by the library and by the floor in turn."""

import collections
import os
import statistics
import subprocess

from callgrind import profile
from model import RECORD
from operations import OPERATIONS, PROGRAMS, Pair

SIMULATOR = "libzozale_sim.so"
PAGE = 2048
LINE = b"][fota_upi] ["
TRAILER = 3  # bytes that a line has in the file only


def instructions(command, folder):
    """Profile of a program that is the last two words of a command."""
    return profile(command[-2:], folder / "callgrind.out", command[:-2])


def processor_seconds(command):
    """Time of the processor, the system's included: what a busy host does not add to."""
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as child:
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise subprocess.CalledProcessError(child.returncode, command)
    return usage.ru_utime + usage.ru_stime


def logged(command):
    """Lines and bytes that a command adds to the log, counted at the console's copy."""
    lines = size = 0
    rest = b""
    with subprocess.Popen(command, stdout=subprocess.PIPE) as child:
        while part := child.stdout.read(1 << 20):
            size += len(part)
            part = rest + part
            lines += part.count(LINE)
            rest = part[-(len(LINE) - 1):]
    if child.returncode != 0:
        raise subprocess.CalledProcessError(child.returncode, command)
    return lines, size + TRAILER * lines


def transferred(command, trace):
    """Bytes read and written by a command, those of flash and those of files."""
    trace.unlink(missing_ok=True)
    dashes = command.index("--")
    subprocess.run([*command[:dashes], "--trace", trace, *command[dashes:]], check=True)
    sums = collections.Counter()
    with open(trace, encoding="utf-8", errors="replace") as lines:
        for line in lines:
            verb = line.split(" ", 1)[0]
            if verb in ("read", "write"):
                place = "flash" if " /dev/mtd" in line else "files"
                sums[verb, place] += int(line.rsplit("= ", 1)[1].split()[0])
    trace.unlink()
    return sums


class Cell:
    """All operations on partitions of one size with one share of bad blocks."""

    def __init__(self, programs, work, mib, bad_percent):
        self.work = work
        self.pair = Pair(programs, work, mib, bad_percent)
        device = self.pair.devices[0]
        self.used = mib * 8
        self.rows = {name: {"mib": mib, "bad_percent": bad_percent, "blocks": device.blocks,
                            "bad_blocks": device.bad_blocks, "operation": name}
                     for name in OPERATIONS}

    def count(self):
        """What is asked, erased, read, written and logged. The floor's bytes are the library's: a
        test sees to that."""
        for name, verb in self.pair.rounds():
            library, floor = self.pair.commands(verb)
            device = self.pair.devices[0]
            before = device.operations()
            lines, log_bytes = logged(library)
            requests = device.operations() - before
            moved = transferred(floor, self.work / "trace")
            self.rows[name] |= {
                "requests": dict(requests),
                "blocks_erased": requests["block-erase"],
                "blocks_needed": self.needed(name),
                "bytes_read": moved["read", "flash"],
                "bytes_read_of_files": moved["read", "files"],
                "bytes_written": moved["write", "flash"],
                "log_lines": lines,
                "log_bytes": log_bytes,
            }

    def needed(self, name):
        """Blocks that get another content: the image's and the record's."""
        image = self.used if name in ("install (fresh)", "sync (different)") else 0
        return image + (0 if name == "verify" else RECORD["block-erase"])

    def count_instructions(self):
        for name, verb in self.pair.rounds():
            library, floor = (instructions(command, self.work)
                              for command in self.pair.commands(verb))
            self.rows[name]["instructions"] = {
                "library": library.total,
                "floor": floor.total,
                "ratio": library.total / floor.total,
                "ratio_without_device": library.without(SIMULATOR) / floor.without(SIMULATOR),
            }

    def time(self, rounds):
        """Runs both in turn; who goes first changes from round to round."""
        pairs = collections.defaultdict(list)
        for name, verb in self.pair.rounds(rounds):
            commands = dict(zip(PROGRAMS, self.pair.commands(verb)))
            order = PROGRAMS if len(pairs[name]) % 2 == 0 else PROGRAMS[::-1]
            taken = {program: processor_seconds(commands[program]) for program in order}
            pairs[name].append([taken[program] for program in PROGRAMS])
        for name, taken in pairs.items():
            ratios = [library / floor for library, floor in taken]
            self.rows[name]["seconds"] = {
                "library": statistics.median(library for library, _ in taken),
                "floor": statistics.median(floor for _, floor in taken),
                "pairs": taken,
                "ratio": statistics.median(ratios),
                "ratio_range": [min(ratios), max(ratios)],
            }
