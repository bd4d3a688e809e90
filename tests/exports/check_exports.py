#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares what the library exports and needs with what it promises.

Usage: check_exports.py exported LIBRARY LIST [--nm NM]
       check_exports.py needed LIBRARY [--nm NM] [--readelf READELF]
       check_exports.py stand-ins LIST HEADER OUTPUT
"""

import argparse
import re
import subprocess
import sys

# All that may be undefined besides libc's.
FROM_LIBCRYPTO = {"SHA512_Init", "SHA512_Update", "SHA512_Final"}
FROM_HOST = {"sc_cfg_get", "sc_cfg_set", "sc_cfg_save"}
# Weak references that the C compiler's start-up code makes; absent at run time.
FROM_TOOLCHAIN = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__"}

NEEDED_LIBRARIES = (r"libc\.so\.\d+", r"libcrypto\.so\.[\d.]+")


class Symbol:
    """An entry of the list: its kind, what it is another name of, and its section."""

    def __init__(self, kind, alias_of, section):
        self.kind = kind
        self.alias_of = alias_of
        self.section = section


def parse_list(text):
    symbols = {}
    section = None
    for number, line in enumerate(text.splitlines(), start=1):
        line = line.split("#", 1)[0].strip()
        if not line:
            continue
        if line.startswith("== "):
            section = line[3:]
            continue
        match = re.fullmatch(r"(function|variable) (\w+)(?: = (\w+))?", line)
        if not match or section is None or match.group(2) in symbols:
            raise ValueError(f"line {number}: expected one new symbol in a section, found '{line}'")
        symbols[match.group(2)] = Symbol(match.group(1), match.group(3), section)
    return symbols


def parse_nm(text):
    """nm's POSIX format to name: (letter, version, value)."""
    found = {}
    for line in text.splitlines():
        fields = line.split()
        if len(fields) < 2:
            continue
        name, _, version = fields[0].partition("@")
        found[name] = (fields[1], version.lstrip("@"), fields[2] if len(fields) > 2 else "")
    return found


def kind_of_letter(letter):
    if letter in "Tt":
        return "function"
    return "variable" if letter in "BDRbdr" else f"symbol of type {letter}"


def faults_of_exported(symbols, nm_text):
    found = parse_nm(nm_text)
    faults = [f"{name} is exported and not in the list" for name in sorted(found.keys() - symbols)]
    for name, symbol in symbols.items():
        if name not in found:
            faults.append(f"{name} is in the list and not exported")
            continue
        kind = kind_of_letter(found[name][0])
        if kind != symbol.kind:
            faults.append(f"{name} is a {kind}, expected a {symbol.kind}")
        if symbol.alias_of and found[name][2] != found.get(symbol.alias_of, ("", "", ""))[2]:
            faults.append(f"{name} is not the same entry point as {symbol.alias_of}")
    return faults


def fault_of_undefined(name, version):
    if name in FROM_HOST or name in FROM_LIBCRYPTO or name in FROM_TOOLCHAIN:
        return None
    if version.startswith("GLIBC_"):
        return None
    return f"{name} is undefined and neither libc's nor promised"


def faults_of_undefined(nm_text):
    found = parse_nm(nm_text)
    faults = [fault_of_undefined(name, entry[1]) for name, entry in sorted(found.items())]
    for name in sorted((FROM_HOST | FROM_LIBCRYPTO) - found.keys()):
        faults.append(f"{name} is not asked for")
    return [fault for fault in faults if fault]


def faults_of_needed(readelf_text):
    libraries = re.findall(r"\(NEEDED\).*\[(.+)\]", readelf_text)
    faults = [f"needs {library}" for library in libraries
              if not any(re.fullmatch(pattern, library) for pattern in NEEDED_LIBRARIES)]
    for pattern in NEEDED_LIBRARIES:
        if not any(re.fullmatch(pattern, library) for library in libraries):
            faults.append(f"does not need a library that matches {pattern}")
    return faults


def stand_ins(symbols, header_text):
    """C source of a host that defines every exported function which the header does not declare."""
    lines = ["/* Generated from the list of exported symbols. */",
             "extern int host_was_called(const char* name);"]
    for name, symbol in symbols.items():
        declared = re.search(rf"\b{name}\s*\(", header_text) is not None
        if declared != (symbol.section == "host interface"):
            raise ValueError(f"{name}: the header and the section '{symbol.section}' disagree")
        if symbol.kind == "function" and not declared:
            lines.append(f'int {name}(void);')
            lines.append(f'int {name}(void) {{ return host_was_called("{name}"); }}')
    return "\n".join(lines) + "\n"


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def read_list(path):
    with open(path, encoding="utf-8") as file:
        return parse_list(file.read())


def run_exported(options):
    return faults_of_exported(
        read_list(options.list),
        output_of(options.nm, "-D", "--defined-only", "--format=posix", options.library))


def run_needed(options):
    undefined = output_of(options.nm, "-D", "--undefined-only", "--format=posix", options.library)
    dynamic = output_of(options.readelf, "-dW", options.library)
    return faults_of_undefined(undefined) + faults_of_needed(dynamic)


def run_stand_ins(options):
    with open(options.header, encoding="utf-8") as file:
        header = file.read()
    with open(options.output, "w", encoding="utf-8") as file:
        file.write(stand_ins(read_list(options.list), header))
    return []


def parse_arguments(arguments):
    parser = argparse.ArgumentParser()
    tools = argparse.ArgumentParser(add_help=False)
    tools.add_argument("--nm", default="nm")
    tools.add_argument("--readelf", default="readelf")
    commands = parser.add_subparsers(required=True)
    for name, run, operands in (("exported", run_exported, ("library", "list")),
                                ("needed", run_needed, ("library",)),
                                ("stand-ins", run_stand_ins, ("list", "header", "output"))):
        command = commands.add_parser(name, parents=[tools])
        command.set_defaults(run=run)
        for operand in operands:
            command.add_argument(operand)
    return parser.parse_args(arguments)


def main(arguments):
    options = parse_arguments(arguments)
    faults = options.run(options)
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
