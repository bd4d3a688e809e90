#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the page on reliability and the tests that it names belong together.

Usage: reliability_page_test.py PAGE CTEST BUILD_DIR

- every row of its tables "Shown by" names a test, and CTest knows each of them;
- every test of what the library leaves open has a row.
"""

import pathlib
import re
import subprocess
import sys


def rows(page):
    """The rows of the tables whose last column is headed "Shown by"."""
    head = False
    for line in page.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if not line.startswith("|"):
            head = False
        elif cells[-1] == "Shown by":
            head = True
        elif head and not set(line) <= set("|- "):
            yield cells


def known_tests(ctest, build):
    listed = subprocess.run([ctest, "--test-dir", build, "-N"], check=True, text=True,
                            capture_output=True).stdout
    # Behind the name of a test with parameters they are printed.
    return set(re.findall(r"^ *Test *#\d+: (\S+)", listed, re.M))


def main():
    page, ctest, build = sys.argv[1:]
    known = known_tests(ctest, build)
    named = set()
    problems = []
    for cells in rows(pathlib.Path(page).read_text()):
        tests = re.findall(r"`([^`]+)`", cells[-1])
        named |= set(tests)
        if not tests:
            problems.append(f"no test: {cells[0]}")
        problems += [f"no such test: {test}" for test in tests if test not in known]
    open_cases = {test for test in known if test.startswith("reliability.Windows.")}
    problems += [f"no row: {test}" for test in sorted(open_cases - named)]
    print("\n".join(problems) or f"{len(named)} tests named")
    sys.exit(1 if problems or not named else 0)


main()
