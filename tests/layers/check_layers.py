#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Fails when a module of the library includes one that it must not know.

Arrows between modules go down. Modules of one group may know each other; groups that stand side by
side, such as the three engines, may not.

Usage: check_layers.py PROJECT_FOLDER
"""

import pathlib
import re
import sys

# From the top down; the groups of a layer stand side by side.
LAYERS = (
    ("wrappers", {"wrappers": ("vemk_fota_ab_upgrade",)}),
    ("engines", {"verification": ("upi_verify",),
                 "update": ("upi_update",),
                 "synchronisation": ("upi_sync_system",)}),
    ("package and boot control", {"package": ("upi_upgrade_package", "upi_hash"),
                                  "boot control": ("upi_fotaflag_partition",)}),
    ("flash access", {"flash access": ("upi_img_interface", "upi_mtd")}),
    ("foundation", {"foundation": ("upi_public", "upi_log")}),
)

# The host's records, the export mark and the owners are everybody's.
COMMON_HEADERS = ("vemk_fota_ab_upgrade.h", "upi_export.h", "upi_owner.h")

# The library's own includes: quoted ones, and the project's names in angle brackets.
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<((?:upi_|vemk_|sim/|src/|tests/)[^>]*)>)')


def place_of_modules():
    """Module name to (depth, layer, group)."""
    places = {}
    for depth, (layer, groups) in enumerate(LAYERS):
        for group, modules in groups.items():
            for module in modules:
                places[module] = (depth, layer, group)
    return places


def fault_of_arrow(places, module, header):
    """Why `module` must not include `header`, or None when it may."""
    if header in COMMON_HEADERS:
        return None
    path = pathlib.PurePosixPath(header)
    if path.name != header or path.stem not in places or path.suffix != ".h":
        return f"{header} is no header of the library"
    from_depth, from_layer, from_group = places[module]
    to_depth, to_layer, to_group = places[path.stem]
    if to_depth < from_depth:
        return f"{header} is above: {from_layer} must not know {to_layer}"
    if to_depth == from_depth and to_group != from_group:
        return f"{header} is beside it: {from_group} must not know {to_group}"
    return None


def faults_of_file(places, path, shown):
    if path.name in COMMON_HEADERS:
        module_of_file = None
    elif path.stem in places:
        module_of_file = path.stem
    else:
        return [f"{shown}: module {path.stem} has no place in the layers"]
    faults = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        match = INCLUDE.match(line)
        if not match:
            continue
        header = match.group(1) or match.group(2)
        if module_of_file is None:
            fault = None if header in COMMON_HEADERS else f"common ground must not know {header}"
        else:
            fault = fault_of_arrow(places, module_of_file, header)
        if fault:
            faults.append(f"{shown}:{number}: {fault}")
    return faults


def check(project):
    """All faults of a project, in order; raises ValueError when there is nothing to check."""
    places = place_of_modules()
    files = sorted(path for folder in ("include", "src") for path in (project / folder).glob("*")
                   if path.suffix in (".h", ".cpp"))
    if not files:
        raise ValueError(f"{project}: found no source file in include/ and src/")
    faults = []
    for path in files:
        faults += faults_of_file(places, path, path.relative_to(project))
    return faults


def main(arguments):
    if len(arguments) != 1:
        print(__doc__.strip().splitlines()[-1], file=sys.stderr)
        return 2
    try:
        faults = check(pathlib.Path(arguments[0]))
    except ValueError as error:
        print(error, file=sys.stderr)
        return 2
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
