#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""report.py CASES CONSOLE...: tells how the guests' cases ended, one console for each system.
Ends with 1 unless every case ended well in every guest, and no other case was heard of."""

import pathlib
import re
import sys

RESULT = re.compile(r"^(ok|FAIL) ([AB])/(\S+) ?(.*)$")


def read_cases(path: pathlib.Path) -> list[str]:
    return [line.split()[0] for line in path.read_text().splitlines()
            if line.strip() and not line.startswith("#")]


def read_console(path: pathlib.Path) -> tuple[dict[str, tuple[str, str]], list[str]]:
    """Results as name -> (word, detail), and the lines that tell why cases failed."""
    results, reasons = {}, []
    for line in path.read_text(errors="replace").splitlines():
        found = RESULT.match(line.strip())
        if found:
            word, system, name, text = found.groups()
            results[f"{system}/{name}"] = (word, text)
            reasons += [line] if word == "FAIL" else []
        elif line.startswith("    ") and reasons:
            reasons.append(line)
    return results, reasons


def main() -> int:
    cases = read_cases(pathlib.Path(sys.argv[1]))
    results, reasons = {}, []
    for console in sys.argv[2:]:
        of_guest, why = read_console(pathlib.Path(console))
        results.update(of_guest)
        reasons += why
    expected = [f"{system}/{case}" for system in "AB" for case in cases]
    for name in expected:
        word, text = results.get(name, ("MISSING", ""))
        print(f"{word:8}{name:48}{text}".rstrip())
    for name in results.keys() - expected:
        print(f"UNKNOWN {name}")
    if reasons:
        print("", *reasons, sep="\n")
    passed = sum(results.get(name, ("",))[0] == "ok" for name in expected)
    print(f"\n{passed} of {len(expected)} cases passed on a real kernel")
    return 0 if passed == len(expected) == len(results) else 1


sys.exit(main())
