# SPDX-License-Identifier: Apache-2.0
"""Counts of instructions and calls, by valgrind's callgrind."""

import collections
import pathlib
import re
import subprocess


class Profile:
    """What one program executed, read from callgrind's own file."""

    def __init__(self, file):
        self.by_object = collections.Counter()  # library or program name: instructions of its own
        self.by_function = collections.Counter()  # (object, function): instructions of its own
        self.calls = collections.Counter()  # function: times called
        self.inclusive = collections.Counter()  # function: instructions with what it calls
        self._names = {}
        self._read(pathlib.Path(file).read_text(errors="replace").splitlines())

    @property
    def total(self):
        return sum(self.by_object.values())

    def without(self, name):
        """Instructions of all but one library."""
        return self.total - self.by_object[name]

    def _name(self, kind, text):
        number, name = re.match(r"\((\d+)\)(?: (.*))?", text).groups()
        if name:
            self._names[kind, number] = name
        return self._names[kind, number]

    def _read(self, lines):
        place = {"ob": "???", "fn": "???"}
        called = None
        skip = False  # the line after "calls=" is the callee's cost
        for line in lines:
            key, _, value = line.partition("=")
            if key in ("ob", "fn"):
                place[key] = self._name(key, value)
            elif key == "cob":
                self._name("ob", value)
            elif key == "cfn":
                called = self._name("fn", value)
            elif key == "calls":
                self.calls[called] += int(value.split()[0])
                skip = True
            elif re.match(r"[+*\d-]", line):
                cost = int(line.split()[-1])
                if skip:
                    self.inclusive[called] += cost
                else:
                    self._add(place, cost)
                skip = False

    def _add(self, place, cost):
        name = pathlib.Path(place["ob"]).name
        self.by_object[name] += cost
        self.by_function[name, place["fn"]] += cost


def profile(command, file, before=()):
    """Runs `command` under callgrind, behind the words `before`; its standard output is dropped."""
    subprocess.run(
        [*before, "valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={file}", *command],
        check=True, stdout=subprocess.DEVNULL)
    return Profile(file)
