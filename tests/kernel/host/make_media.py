#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""make_media.py ZOZALE_PACKAGE FOLDER: makes the packages that the guest installs, and the images
that it compares flash with."""

import hashlib
import pathlib
import random
import subprocess
import sys

BLOCK = 128 * 1024

TABLE = """[Head]
magic=SUPI
plat=0
plat_partition_num=2
oem_partition_num=1
[Platform_Partition_Info]
name=kernel
system_type=0
partition_type=0
name=rootfs
system_type=0
partition_type=0
[Oem_Partition_Info]
name=oemdata
system_type=0
partition_type=0
"""

# Package: type, and the lengths of its images by partition.
PACKAGES = {
    "first": ("system", {"kernel": 2 * BLOCK + 1000, "rootfs": 4 * BLOCK, "oemdata": BLOCK - 100}),
    "second": ("system", {"kernel": 2 * BLOCK, "rootfs": 3 * BLOCK + 7, "oemdata": BLOCK}),
    "blocks": ("platform", {"rootfs": 3 * BLOCK}),
    "blocks-less-1": ("platform", {"rootfs": 3 * BLOCK - 1}),
    "blocks-plus-1": ("platform", {"rootfs": 3 * BLOCK + 1}),
    "one-byte": ("platform", {"rootfs": 1}),
    "medium": ("platform", {"rootfs": 7 * BLOCK}),
    "large": ("platform", {"rootfs": 15 * BLOCK}),
}


def image(length: int, seed: int) -> bytes:
    """Bytes whose digest holds no zero byte: a device stops comparing digests at one."""
    while True:
        data = random.Random(seed).randbytes(length)
        if 0 not in hashlib.sha512(data).digest():
            return data
        seed += 1000


def make_package(tool: str, folder: pathlib.Path, name: str, number: int) -> None:
    kind, lengths = PACKAGES[name]
    (folder / name).mkdir(parents=True)
    command = [tool, "create", "--type", kind, "--table", folder / "table.conf",
               "--allow-zero-bytes", "--output", folder / name / "package"]
    for position, (partition, length) in enumerate(lengths.items()):
        path = folder / name / partition
        path.write_bytes(image(length, 10 * number + position))
        command += ["--partition", f"{partition}={path}"]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def make_damaged(folder: pathlib.Path) -> None:
    """The first package with the last bit of its last image turned."""
    (folder / "damaged").mkdir()
    data = bytearray((folder / "first" / "package").read_bytes())
    data[-1] ^= 1
    (folder / "damaged" / "package").write_bytes(data)


def main() -> None:
    tool, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True)
    (folder / "table.conf").write_text(TABLE)
    for number, name in enumerate(PACKAGES):
        make_package(tool, folder, name, number)
    make_damaged(folder)


main()
