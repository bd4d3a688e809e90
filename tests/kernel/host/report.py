#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""report.py SOURCE CONSOLE...: tells how the guests' cases ended, one console for each system.
Ends with 1 unless every case of SOURCE/cases.txt ended well on both systems, no other case was
heard of, and no case was written that is not in the list."""

import pathlib
import re
import sys

RESULT = re.compile(r"^(ok|FAIL) ([AB])/(\S+) ?(.*)$")
CASE = re.compile(r"^case_([a-z0-9_]+)\(\)", re.MULTILINE)


def read_list(path: pathlib.Path) -> list[str]:
    return [line for line in path.read_text().splitlines() if line and not line.startswith("#")]


def written_cases(folder: pathlib.Path) -> set[str]:
    return {name.replace("_", "-")
            for path in folder.glob("cases_*.sh") for name in CASE.findall(path.read_text())}


def read_console(path: pathlib.Path) -> tuple[dict[str, tuple[str, str]], list[str]]:
    """Results as "SYSTEM/CASE" -> (word, detail), and the lines that tell why cases failed."""
    results, reasons = {}, []
    for line in path.read_text(errors="replace").splitlines():
        found = RESULT.match(line)
        if found:
            word, system, name, text = found.groups()
            results[f"{system}/{name}"] = (word, text)
            reasons += [line] if word == "FAIL" else []
        elif line.startswith("    ") and reasons:
            reasons.append(line)
    return results, reasons


def print_table(expected: list[str], results: dict[str, tuple[str, str]]) -> None:
    for name in expected:
        word, text = results.get(name, ("MISSING", ""))
        print(f"{word:8}{name:40}{text}".rstrip())


def main() -> int:
    source = pathlib.Path(sys.argv[1])
    cases = read_list(source / "cases.txt")
    results, reasons = {}, []
    for console in sys.argv[2:]:
        of_guest, why = read_console(pathlib.Path(console))
        results.update(of_guest)
        reasons += why
    expected = [f"{system}/{case}" for system in "AB" for case in cases]
    print_table(expected, results)
    strangers = results.keys() - set(expected)
    unlisted = written_cases(source / "guest") - set(cases)
    for name in sorted(strangers | unlisted):
        print(f"UNLISTED {name}")
    if reasons:
        print("", *reasons, sep="\n")
    passed = sum(results.get(name, ("",))[0] == "ok" for name in expected)
    print(f"\n{passed} of {len(expected)} cases passed on a real kernel")
    complete = 0 < len(expected) == passed
    return 0 if complete and not strangers and not unlisted else 1


sys.exit(main())
