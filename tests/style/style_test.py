#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks what every file of the project has to keep to.

Usage: style_test.py SOURCE_DIR

- a licence line near the beginning,
- C and C++ as clang-format writes them,
- pages without dead links, to files and to headings,
- man pages that groff has nothing to say about.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(sys.argv[1]).resolve()
NO_LICENCE_LINE = {"LICENSE", ".gitignore"}
NO_COMMENTS = {".json", ".txt"}


def project_files():
    """Every file that is the project's, whether it is committed yet or not."""
    listed = subprocess.run(
        ["git", "-c", f"safe.directory={ROOT}", "ls-files", "-z", "--cached", "--others",
         "--exclude-standard"], cwd=ROOT, check=True, capture_output=True).stdout
    return [ROOT / name for name in listed.decode().split("\0") if name and (ROOT / name).is_file()]


def licence_problems(files):
    for file in files:
        if file.name in NO_LICENCE_LINE or file.suffix in NO_COMMENTS or "corpus" in file.parts:
            continue
        if b"SPDX-License-Identifier: Apache-2.0" not in file.read_bytes()[:400]:
            yield f"{file.relative_to(ROOT)}: no SPDX line"


def format_problems(files):
    sources = [file for file in files if file.suffix in (".c", ".h", ".cpp")]
    kept = [file for file in sources if "module" not in file.parts]  # the kernel has its own style
    done = subprocess.run(["clang-format", "--dry-run", "--Werror", *kept], cwd=ROOT, text=True,
                          capture_output=True)
    yield from re.findall(r"^.*error:.*$", done.stderr, re.M)


def anchors(page):
    """The places in a page that a link can name."""
    text = page.read_text()
    named = set(re.findall(r'<a id="([^"]+)">', text))
    for title in re.findall(r"^#+ (.*)$", text, re.M):
        words = re.sub(r"[^\w\- ]", "", re.sub(r"[`*]", "", title).lower())
        named.add(words.replace(" ", "-"))
    return named


def link_problems(files):
    for page in (file for file in files if file.suffix == ".md"):
        text = re.sub(r"```.*?```", "", page.read_text(), flags=re.S)
        for link in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"[a-z]+:", link):
                continue
            name, _, heading = link.partition("#")
            target = (page.parent / name).resolve() if name else page
            where = f"{page.relative_to(ROOT)}: link to {link}"
            if not target.exists():
                yield f"{where}: no such file"
            elif heading and heading not in anchors(target):
                yield f"{where}: no such heading"


def man_problems(files):
    for page in (file for file in files if re.fullmatch(r"\.[1-8]", file.suffix)):
        done = subprocess.run(["groff", "-man", "-ww", "-z", "-Tutf8", page], text=True,
                              capture_output=True)
        yield from done.stderr.splitlines()


def main():
    files = project_files()
    problems = [problem for check in (licence_problems, format_problems, link_problems, man_problems)
                for problem in check(files)]
    print("\n".join(problems) or f"{len(files)} files, nothing to say")
    sys.exit(1 if problems or not files else 0)


main()
