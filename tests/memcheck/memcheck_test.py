#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs whole operations of the library under valgrind: no memory error, nothing lost, and nothing
left open but the log, and the package after a load that failed half-way. Each fault has to strike.

Usage: memcheck_test.py PROGRAMS WORK_FOLDER
"""

import collections
import errno
import os
import pathlib
import re
import subprocess
import sys

PROGRAMS, WORK = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "bench"))

from device import Device  # noqa: E402

ERROR = 99
SUPPRESSIONS = pathlib.Path(__file__).resolve().parent / "memcheck.supp"
TRACE = WORK / "trace"
LOG = "upi_ab.log"
PACKAGE = "upgrade.package"


def open_files(report):
    """Names of the files that were open at the end, but the simulator's trace and those that the
    parent had handed down."""
    found = re.findall(r"Open (?:file descriptor|AF_\w+ socket) \d+:(.*)\n((?:==\d+==    .*\n)*)", report)
    return [pathlib.Path(name.strip()).name for name, where in found
            if "inherited from parent" not in where and pathlib.Path(name.strip()) != TRACE]


def host(device, *arguments):
    report = WORK / "report"
    TRACE.unlink(missing_ok=True)
    done = subprocess.run(
        [PROGRAMS / "zozale-sim", "run", device.path, "--trace", TRACE, "--",
         "valgrind", "--quiet", "--leak-check=full", "--track-fds=yes",
         "--errors-for-leak-kinds=definite,indirect,possible", f"--error-exitcode={ERROR}",
         f"--suppressions={SUPPRESSIONS}", f"--log-file={report}", PROGRAMS / "bench_host", *arguments],
        stdout=subprocess.DEVNULL)
    return done.returncode, report.read_text()


def check(what, device, arguments, result, left_open, fault=None):
    code, report = host(device, *arguments)
    problems = []
    if fault and not fault.struck(device):
        problems.append("the fault did not strike")
    if code != result:
        problems.append(f"ended with {code}, expected {result}")
    if sorted(open_files(report)) != sorted(left_open):
        problems.append(f"left open {open_files(report)}, expected {left_open}")
    if problems:
        sys.exit(f"FAIL {what}: {'; '.join(problems)}\n{report}")
    print(f"ok   {what}")


def package_of(device):
    return device.path / "root/cache/ovu_fota_ab" / PACKAGE


def changed(device, change):
    """The device with its package's bytes changed."""
    data = bytearray(package_of(device).read_bytes())
    package_of(device).write_bytes(change(data))
    return device


def set_byte(data, at, value):
    data[at] = value
    return data


def faulty(device, toml):
    """The device with a fault for the next program on it."""
    (device.path / "faults.toml").write_text(toml)
    return device


class Fault(collections.namedtuple("Fault", "operation where at error", defaults=["EIO"])):
    def toml(self):
        return (f'[[fault]]\noperation = "{self.operation}"\nwhere = "{self.where}"\n'
                f'at = {self.at}\nerrno = "{self.error}"\n')

    def struck(self, device):
        """Whether a call, there where the fault lies, ended with its error. A stream's refills are
        counted and not traced, and only while a fault waits for one."""
        if self.operation == "stream-read":
            return device.operations()[self.operation] >= self.at
        end = " = -1 " + os.strerror(getattr(errno, self.error))
        return any(line.startswith(self.operation + " ") and line.endswith(end)
                   and (f" {self.where} " in line or f"({self.where})" in line)
                   for line in TRACE.read_text().splitlines())


PACKAGE_PATH = "/cache/ovu_fota_ab/" + PACKAGE
TABLE_PATH = "/etc_ro/systemPartitionInfo.conf"
WORN = '[[block]]\npartition = "rootfs2"\nblock = 1\ndefect = "worn"\n'

# What fails, the call, its result, what it leaves open besides the log. One device goes through all
# of them: what installs comes last.
FAULTS = [
    ("a flags node that cannot be opened", Fault("open", "flags", 2, "EMFILE"), "install", 1, []),
    ("a record that cannot be read", Fault("read", "flags", 1), "sync", 1, []),
    ("a target without a geometry", Fault("MEMGETINFO", "rootfs2", 1), "install", 1, []),
    ("a target that cannot be written", Fault("write", "rootfs2", 3), "install", 1, []),
    ("a target that stays protected", Fault("protect-lift", "rootfs2", 1, "EPERM"), "sync", 1, []),
    ("a source that cannot be read", Fault("read", "rootfs", 2), "sync", 1, []),
    ("a head that cannot be read", Fault("read", PACKAGE_PATH, 2), "install", 1, [PACKAGE]),
    ("a table that cannot be opened", Fault("fopen", TABLE_PATH, 1, "EACCES"), "install", 1, []),
    ("a table that cannot be read", Fault("stream-read", TABLE_PATH, 1), "sync", 1, []),
    ("a record's copy that cannot be written", Fault("write", "flags", 1), "install", 0, []),
    ("a target that cannot be read", Fault("read", "rootfs2", 20), "install", 0, []),
    ("a file that cannot be closed", Fault("close", PACKAGE_PATH, 1), "install", 0, []),
]


def check_faults():
    device = Device(PROGRAMS, WORK / "faulty", 1, bad_percent=10)
    for what, fault, call, result, left_open in FAULTS:
        check(what, faulty(device, fault.toml()), [call], result, [LOG, *left_open], fault)
    device = Device(PROGRAMS, WORK / "worn", 1)
    check("installation onto a worn block", faulty(device, WORN), ["install"], 1, [LOG],
          Fault("MEMERASE64", "rootfs2", 1))


def main():
    device = Device(PROGRAMS, WORK / "good", 1, bad_percent=20)
    check("initialisation", device, ["init"], 0, [LOG])
    check("verification", device, ["verify"], 0, [LOG])
    check("installation", device, ["install"], 0, [LOG])
    check("installation of what is there", device, ["install"], 0, [LOG])
    check("synchronisation", device, ["sync"], 0, [LOG])
    check("synchronisation of what is equal", device, ["sync"], 0, [LOG])

    device = Device(PROGRAMS, WORK / "bad", 1)
    whole = package_of(device).read_bytes()
    changed(device, lambda data: set_byte(data, 3, ord("B")))
    check("verification of what is no package", device, ["verify"], 1, [LOG])
    package_of(device).write_bytes(whole)
    changed(device, lambda data: set_byte(data, 256, ord("X")))
    check("verification, unlisted name", device, ["verify"], 1, [LOG])
    package_of(device).write_bytes(whole)
    changed(device, lambda data: set_byte(data, len(data) - 1, data[-1] ^ 1))
    check("verification, damaged image", device, ["verify"], 1, [LOG])
    check("installation of a damaged image", device, ["install"], 1, [LOG])
    package_of(device).write_bytes(whole[:300])
    check("verification, table cut off", device, ["verify"], 1, [LOG, PACKAGE])
    package_of(device).unlink()
    check("installation without a package", device, ["install"], 1, [LOG])

    check_faults()


main()
