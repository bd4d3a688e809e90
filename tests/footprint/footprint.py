#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints what the library takes of a device's memory and fails when that passes a ceiling.

usage: footprint.py LIBRARY HOST READELF [EMULATOR...]

HOST is footprint_host, built for the library's architecture; EMULATOR is what runs it.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
import device_folder  # noqa: E402

KIB = 1024
TEXT_CEILING = 40 * KIB
HEAP_CEILING = 2 * device_folder.ERASE_BLOCK + 64 * KIB
STACK_CEILING = 16 * KIB
# A device need not have the compiler's libraries.
MAY_NEED = ("libc.so", "libcrypto.so")
# The peaks are to be the same whatever is installed. The odd byte makes a partial last block.
IMAGE_SIZES = (1024 * KIB + 1, 8 * 1024 * KIB + 1)
OPERATIONS = ("verify", "install", "sync")


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def segments(readelf, library):
    """(flags, bytes in memory) of each part of the file that is loaded."""
    found = []
    for line in output_of(readelf, "-lW", library).splitlines():
        words = line.split()
        if words[:1] == ["LOAD"]:
            found.append(("".join(words[6:-1]), int(words[5], 16)))
    return found


def sections(readelf, library):
    """Bytes of each section that is loaded."""
    line = re.compile(r"\[ *\d+\] (\.\S+) +\S+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) +\S+ +\w*A")
    found = map(line.search, output_of(readelf, "-SW", library).splitlines())
    return {match[1]: int(match[2], 16) for match in found if match}


def needed(readelf, library):
    return re.findall(r"\(NEEDED\).*\[(.*)\]", output_of(readelf, "-dW", library))


class Table:
    """Rows of a name, a value and the ceiling that holds for it."""

    def __init__(self):
        self.passed = True

    def row(self, name, value, ceiling=None):
        limit = ""
        if ceiling is not None:
            limit = f"of {ceiling:7}"
            if value > ceiling:
                limit += f"   {value - ceiling} TOO MANY"
                self.passed = False
        print(f"  {name:<32}{value:8}  {limit}".rstrip())

    def fail(self, text):
        print(f"  {text}")
        self.passed = False


def show_file(table, readelf, library):
    parts = segments(readelf, library)
    size = sections(readelf, library)
    fixed = sum(length for flags, length in parts if "W" not in flags)
    print("File, in bytes")
    table.row("text segment", fixed, TEXT_CEILING)
    table.row("  .text: code", size[".text"])
    table.row("  .rodata: messages, constants", size[".rodata"])
    table.row("  names, relocations, stubs", fixed - size[".text"] - size[".rodata"])
    table.row("data segment", sum(length for flags, length in parts if "W" in flags))
    table.row("  .data", size[".data"])
    table.row("  .bss", size[".bss"])
    libraries = needed(readelf, library)
    print(f"  needs {' '.join(libraries)}")
    for name in libraries:
        if not name.startswith(MAY_NEED):
            table.fail(f"{name} MAY NOT BE NEEDED")


def run(host, folder, operation):
    """Peak heap and stack of one operation."""
    with open(pathlib.Path(folder, "console"), "wb") as console:
        done = subprocess.run([*host, folder, operation], stdout=console, stderr=subprocess.PIPE,
                              text=True, check=False)
    figures = re.fullmatch(r"heap (\d+) stack (\d+)\n", done.stderr)
    if done.returncode != 0 or not figures:
        sys.exit(f"footprint: {operation} failed ({done.returncode}): {done.stderr}")
    return int(figures[1]), int(figures[2])


def measure(host, image_size):
    """Peaks of each operation, on a device of its own."""
    peaks = {}
    with tempfile.TemporaryDirectory(prefix="zozale-footprint-") as folder:
        device_folder.make(folder, image_size)
        run(host, folder, "init-flags")
        for operation in OPERATIONS:
            if operation == "sync":
                device_folder.spoil_target(folder)
            device_folder.fill_log(folder)
            peaks[operation] = run(host, folder, operation)
            if operation != "verify" and not device_folder.systems_are_equal(folder):
                sys.exit(f"footprint: {operation} did not write the image")
    return peaks


def show_memory(table, host):
    runs = [(size, measure(host, size)) for size in IMAGE_SIZES]
    for index, (what, ceiling) in enumerate((("heap", HEAP_CEILING), ("stack", STACK_CEILING))):
        print(f"Peak {what}, in bytes")
        for size, peaks in runs:
            for operation in OPERATIONS:
                table.row(f"{operation} of {size} bytes", peaks[operation][index], ceiling)
    for operation in OPERATIONS:
        if len({peaks[operation][0] for _, peaks in runs}) > 1:
            table.fail(f"{operation}: THE HEAP GROWS WITH THE PACKAGE")


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    library, host, readelf, *emulator = sys.argv[1:]
    table = Table()
    show_file(table, readelf, library)
    show_memory(table, [*emulator, host])
    if not table.passed:
        sys.exit("footprint: a ceiling is passed")


if __name__ == "__main__":
    main()
