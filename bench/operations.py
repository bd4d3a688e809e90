# SPDX-License-Identifier: Apache-2.0
"""The operations that are measured, in an order in which each leaves what the next one needs."""

import random

from device import MIB, Device

# Name: the verb that both programs know.
OPERATIONS = {
    "verify": "verify",
    "install (fresh)": "install",
    "install (already there)": "install",
    "sync (equal)": "sync",
    "sync (different)": "sync",
}

PROGRAMS = ("bench_host", "bench_floor")  # the library, and the least that does the same


class Pair:
    """Two equal devices: one for the library, one for the floor."""

    def __init__(self, programs, folder, size_mib, bad_percent=0, seed=1):
        self.devices = [Device(programs, folder / name, size_mib, bad_percent, seed)
                        for name in PROGRAMS]
        self.other = folder / "other"
        self.other.write_bytes(random.Random(seed + 1).randbytes(size_mib * MIB))

    def rounds(self, count=1):
        """Yields (operation, verb) `count` times for each operation; both devices are ready for
        it, and the operation is to be run on both before the next one is asked for."""
        for _ in range(count):
            for name, verb in OPERATIONS.items():
                self._prepare(name)
                yield name, verb

    def _prepare(self, name):
        for device in self.devices:
            if name == "install (fresh)":
                device.fill("rootfs2", self.other)
            elif name == "sync (equal)":
                device.fill("rootfs", device.image)
            elif name == "sync (different)":
                device.fill("rootfs", self.other)

    def commands(self, verb):
        """For each program, the words that run it on its device."""
        return [[*device.before(), device.programs / name, verb]
                for device, name in zip(self.devices, PROGRAMS)]
