# SPDX-License-Identifier: Apache-2.0
"""Puts the results into docs/performance.md: its tables, which stand between
"<!-- measured: NAME -->" and "<!-- end -->", and its plots."""

import re
import shutil

from model import Flash, fresh_install

MIB = 1024 * 1024
PLACE = re.compile(r"(<!-- measured: (\w+) -->\n).*?(<!-- end -->)", re.S)
NAMES = {"library": "library", "mtd_utils": "mtd-utils", "updater": "swupdate", "floor": "floor"}


def markdown(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "".join("| " + " | ".join(map(str, line)) + " |\n" for line in lines)


def ratio_table(cells, value):
    """Operations against cells; `value` takes the ratio from a row."""
    columns = list(dict.fromkeys((row["mib"], row["bad_percent"]) for row in cells
                                 if "instructions" in row))
    ratios = {(row["mib"], row["bad_percent"], row["operation"]): value(row) for row in cells
              if "instructions" in row}
    operations = dict.fromkeys(row["operation"] for row in cells)
    return markdown(["", *(f"{mib} MiB, {bad} %" for mib, bad in columns)],
                    [[name, *(ratios[mib, bad, name] for mib, bad in columns)]
                     for name in operations])


def count_row(row):
    return [row["mib"], f"{row['bad_percent']} %", row["operation"],
            f"{row['requests']['MEMGETBADBLOCK']:,}", f"{row['blocks_erased']:,}",
            f"{row['blocks_needed']:,}", f"{row['bytes_read'] / MIB:.1f}",
            f"{row['bytes_written'] / MIB:.1f}", f"{row['log_lines']:,}",
            f"{row['log_bytes'] / MIB:.1f}"]


def count_table(cells):
    return markdown(["image, MiB", "bad", "operation", "queries", "erased", "needed", "read, MiB",
                     "written, MiB", "log lines", "log, MiB"],
                    [count_row(row) for row in cells
                     if "instructions" in row and row["operation"] != "verify"])


def guest_row(row):
    taken = row["installers"]
    return [f"{row['mib']} MiB", row["bad"],
            *(f"{taken[name]['seconds']:.2f} s" if name in taken else "" for name in NAMES),
            *(f"{taken[name]['library_ratio']:.2f}" if name in taken else ""
              for name in NAMES if name != "library"),
            *(taken[name]["blocks_erased"] if name in taken else ""
              for name in NAMES if name != "floor")]


def guest_table(rows):
    return markdown(["image", "bad blocks", *NAMES.values(),
                     *(f"library / {name}" for name in NAMES.values() if name != "library"),
                     *(f"{name} erases" for name in NAMES.values() if name != "floor")],
                    [guest_row(row) for row in rows])


def formula_row(row):
    counts = fresh_install(row["mib"] * 8, row["blocks"], row["bad_blocks"][1])
    seconds = Flash().seconds(counts)
    return [f"{row['mib']} MiB", f"{row['bad_percent']} %", f"{counts.bad_queries:,}",
            f"{counts.erases:,}", f"{counts.programs:,}", f"{counts.lines:,}",
            *(f"{part:.1f}" for part in seconds.values()), f"{sum(seconds.values()):.1f}"]


def formula_table(cells):
    return markdown(["image", "bad", "queries", "erases", "programs", "log lines", "s reading",
                     "programming", "erasing", "digests", "queries", "log lines", "together"],
                    [formula_row(row) for row in cells if row["operation"] == "install (fresh)"])


def delay_table(delays):
    return markdown(["", "measured", "by formula"],
                    [[part, f"{seconds['measured']:.2f} s", f"{seconds['by_formula']:.2f} s"]
                     for part, seconds in delays["parts"].items()])


def write(results, page, plots):
    cells = results["cells"]
    tables = {
        "instructions": ratio_table(cells, lambda row: f"{row['instructions']['ratio']:.3f}"),
        "own": ratio_table(cells, lambda row: f"{row['instructions']['ratio_without_device']:.3f}"),
        "time": ratio_table(cells, lambda row: f"{row['seconds']['ratio']:.2f}"),
        "counts": count_table(cells),
        "guest": guest_table(results["guest"]),
        "formula": formula_table(cells),
        "delays": delay_table(results["delays"]) if results["delays"] else "",
    }
    text = PLACE.sub(lambda place: place[1] + tables[place[2]] + place[3], page.read_text())
    page.write_text(text)
    for plot in plots.glob("*.svg"):
        shutil.copy(plot, page.with_suffix("") / plot.name)
