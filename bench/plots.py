# SPDX-License-Identifier: Apache-2.0
"""Plots of the results, by gnuplot, as PNG and SVG."""

import subprocess

from model import Flash, fresh_install

BLOCKS_PER_MIB = 8

TERMINALS = {"svg": "svg size 720,480 font 'sans-serif,13' background 'white'",
             "png": "pngcairo size 1080,720 font 'sans-serif,15'"}

STYLE = """
set grid lw 0.5
set key left top reverse Left
set style data linespoints
set pointsize 0.7
set linetype 5 lc rgb '#a00000'
set linetype 6 lc rgb '#000000' dashtype 2
"""


def block(name, rows):
    return f"${name} << END\n" + "".join(" ".join(map(str, row)) + "\n" for row in rows) + "END\n"


def curves(series):
    """Data and plot command for {title: [(x, y), ...]}."""
    data = "".join(block(f"d{i}", rows) for i, rows in enumerate(series.values()))
    plots = ", ".join(f"$d{i} using 1:2 title '{title}'" for i, title in enumerate(series))
    return f"{data}plot {plots}\n"


def time_script(cells):
    flawless = [row for row in cells if row["bad_percent"] == 0]
    series = {}
    for name in dict.fromkeys(row["operation"] for row in flawless):
        series[name] = [(row["blocks"] / BLOCKS_PER_MIB, row["seconds"]["library"])
                        for row in flawless if row["operation"] == name]
    series["install (fresh), floor"] = [
        (row["blocks"] / BLOCKS_PER_MIB, row["seconds"]["floor"])
        for row in flawless if row["operation"] == "install (fresh)"]
    return (f"{STYLE}set logscale xy\nset xlabel 'partition, MiB'\n"
            "set ylabel 'processor time on the simulated device, s'\n"
            f"set title 'Time against partition size, no bad block'\n{curves(series)}")


def log_script(cells):
    fresh = [row for row in cells if row["operation"] == "install (fresh)"]
    several = sorted({row["mib"] for row in fresh if row["bad_percent"] > 0})
    series = {f"image of {mib} MiB": [(len(row["bad_blocks"][1]), row["log_lines"])
                                      for row in fresh if row["mib"] == mib] for mib in several}
    return (f"{STYLE}set logscale y\nset xlabel 'bad blocks in the partition'\n"
            "set ylabel 'log lines of a fresh installation'\nset key right bottom\n"
            f"set title 'Log lines against bad blocks'\n{curves(series)}")


def share_script(_cells):
    """Where the time of an installation goes, by the datasheet figures of the model."""
    series = {"flash and digests": [], "bad block queries": [], "log lines, 1 % bad": []}
    for mib in (1, 2, 4, 8, 16, 32, 64, 128, 256):
        used = mib * BLOCKS_PER_MIB
        blocks = used + used // 5
        bad = list(range(50, blocks, 100))
        seconds = Flash().seconds(fresh_install(used, blocks, bad))
        lines, queries = seconds.pop("log lines"), seconds.pop("bad block queries")
        for rows, value in zip(series.values(), (sum(seconds.values()), queries, lines)):
            rows.append((blocks / BLOCKS_PER_MIB, value or "NaN"))
    return (f"{STYLE}set logscale xy\nset xlabel 'partition, MiB, in blocks of 128 KiB'\n"
            "set ylabel 's, by the datasheet'\n"
            f"set title 'A fresh installation by formula'\n{curves(series)}")


SCRIPTS = {"time": time_script, "log-lines": log_script, "formula": share_script}


def mark_licence(file):
    """Puts the licence line where it is looked for: behind the first line of a picture."""
    first, rest = file.read_text().split("\n", 1)
    file.write_text(f"{first}\n<!-- SPDX-License-Identifier: Apache-2.0 -->\n{rest}")


def draw(results, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for name, script in SCRIPTS.items():
        for kind, terminal in TERMINALS.items():
            file = folder / f"{name}.{kind}"
            subprocess.run(["gnuplot"], check=True, text=True,
                           input=f"set terminal {terminal}\nset output '{file}'\n"
                                 f"{script(results['cells'])}set output\n")
        mark_licence(folder / f"{name}.svg")
