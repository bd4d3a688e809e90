# SPDX-License-Identifier: Apache-2.0
"""Simulated devices to measure on: one partition pair, an image, some bad blocks."""

import collections
import json
import pathlib
import random
import shutil
import subprocess

from model import partition_of

BLOCK = 128 * 1024
MIB = 1024 * 1024

LAYOUT = """\
plat = 0
running = "A"
cmdline = "console=ttyS0 {{system}} rootwait"

[geometry]
page_size = 2048
pages_per_block = 64
oob_size = 64

[[partition]]
name = "flags"
blocks = 8

[[partition]]
name = "rootfs"
blocks = {blocks}
bad = {bad_a}

[[partition]]
name = "rootfs2"
blocks = {blocks}
bad = {bad_b}

[table]
platform = ["rootfs"]
oem = []
"""


class Device:
    """A device whose image of `size_mib` fills all but a fifth of its partitions' good blocks."""

    def __init__(self, programs, folder, size_mib, bad_percent=0, seed=1):
        self.programs = pathlib.Path(programs)
        self.folder = pathlib.Path(folder)
        self.path = self.folder / "device"
        used = size_mib * MIB // BLOCK
        self.blocks, self.bad = partition_of(used, bad_percent)
        self.bad_blocks = []  # of each of the two partitions
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self._create(random.Random(seed))
        self._pack(size_mib, seed)
        self.run("bench_host", "init")

    def _create(self, chance):
        self.bad_blocks = [sorted(chance.sample(range(self.blocks), self.bad)) for _ in range(2)]
        layout = self.folder / "layout.toml"
        layout.write_text(LAYOUT.format(blocks=self.blocks, bad_a=self.bad_blocks[0],
                                        bad_b=self.bad_blocks[1]))
        self._tool("zozale-sim", "create", self.path, "--layout", layout)

    def _pack(self, size_mib, seed):
        self.image = self.folder / "image"
        self.image.write_bytes(random.Random(seed).randbytes(size_mib * MIB))
        package = self.path / "root/cache/ovu_fota_ab/upgrade.package"
        package.parent.mkdir(parents=True, exist_ok=True)
        self._tool("zozale-package", "create", "--type", "platform", "--allow-zero-bytes",
                   "--partition", f"rootfs={self.image}", "-o", package)

    def _tool(self, name, *arguments):
        subprocess.run([self.programs / name, *arguments], check=True, capture_output=True)

    def fill(self, partition, image):
        """Fills a partition's good blocks as a factory would; what is behind the image is erased."""
        self._tool("zozale-sim", "flash", self.path, partition, image)

    def before(self):
        """The words that run a command on the device."""
        return [self.programs / "zozale-sim", "run", self.path, "--"]

    def run(self, name, *arguments):
        subprocess.run([*self.before(), self.programs / name, *arguments], check=True,
                       stdout=subprocess.DEVNULL)

    def operations(self):
        """What the device was asked since it was made, by kind."""
        shown = subprocess.run([self.programs / "zozale-sim", "show", self.path, "--json"],
                               check=True, capture_output=True).stdout
        return collections.Counter(json.loads(shown)["operations"])
