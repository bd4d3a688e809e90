# SPDX-License-Identifier: Apache-2.0
"""The folder of files that footprint_host takes for a device."""

import hashlib
import os
import pathlib
import random
import struct

ERASE_BLOCK = 0x20000
TABLE = """[Head]
magic=SUPI
plat=0
plat_partition_num=1
oem_partition_num=0
[Platform_Partition_Info]
name=kernel
system_type=0
partition_type=0
[Oem_Partition_Info]
"""


def write(path, content):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content if isinstance(content, bytes) else content.encode())


def package(image):
    """One image for "kernel", by the numbers of the file format."""
    entry = struct.pack("<32siiii16x64s", b"kernel", len(image), 256 + 128, 0, 0,
                        hashlib.sha512(image).digest())
    content = entry + image
    head = struct.pack("<4s8i64s64s64s28x", b"FOTA", 1, 0, 0, 1, 1, 0, 0, ERASE_BLOCK, b"V1", b"V2",
                       hashlib.sha512(content).digest())
    return head + content


def in_blocks(content, spare):
    """The content of a partition that has `spare` erased blocks behind it."""
    size = (-(-len(content) // ERASE_BLOCK) + spare) * ERASE_BLOCK
    return content.ljust(size, b"\xff")


def make(folder, image_size):
    """System A runs; "kernel" holds the package's image, "kernel2" is erased."""
    folder = pathlib.Path(folder)
    image = random.Random(1).randbytes(image_size)
    nodes = [("flags", in_blocks(b"", 8)), ("kernel", in_blocks(image, 1)),
             ("kernel2", in_blocks(b"\xff" * image_size, 1))]
    listing = "dev:    size   erasesize  name\n"
    for number, (name, content) in enumerate(nodes):
        write(folder / f"dev/mtd{number}", content)
        listing += f'mtd{number}: {len(content):08x} {ERASE_BLOCK:08x} "{name}"\n'
    write(folder / "proc/mtd", listing)
    write(folder / "proc/cmdline", "console=ttyS0 system=system_a\n")
    write(folder / "etc_ro/systemPartitionInfo.conf", TABLE)
    write(folder / "cache/ovu_fota_ab/upgrade.package", package(image))
    (folder / "cache/ovu_fota_ab/upgrade_temp").mkdir()


def fill_log(folder):
    """Leaves room for a few lines: keeping a full log's backup is part of what is measured."""
    write(pathlib.Path(folder) / "cache/ovu_fota_ab/upi_ab.log", b"x" * (0x100000 - 500))


def spoil_target(folder):
    """Makes "kernel2" differ from "kernel"."""
    with open(os.path.join(folder, "dev/mtd2"), "r+b") as node:
        node.write(b"\x00")


def systems_are_equal(folder):
    folder = pathlib.Path(folder)
    return (folder / "dev/mtd1").read_bytes() == (folder / "dev/mtd2").read_bytes()
