# SPDX-License-Identifier: Apache-2.0
"""The results as one table for people."""

from model import RECORD, Flash, fresh_install

MIB = 1024 * 1024

HEAD = (f"{'MiB':>4}{'bad':>5}  {'operation':24}{'instructions':>16}{'x floor':>9}{'no dev.':>9}"
        f"{'seconds':>9}{'x floor':>9}{'queries':>13}{'erased':>8}{'needed':>8}"
        f"{'read':>8}{'written':>9}{'log lines':>12}{'log':>9}")
UNITS = (f"{'':4}{'%':>5}  {'':24}{'library':>16}{'':>9}{'':>9}{'library':>9}{'':>9}{'':>13}"
         f"{'blocks':>8}{'blocks':>8}{'MiB':>8}{'MiB':>9}{'':>12}{'MiB':>9}")


def cell_line(row):
    counted, taken = row.get("instructions"), row["seconds"]
    instructions = (f"{counted['library']:16,}{counted['ratio']:9.3f}"
                    f"{counted['ratio_without_device']:9.3f}" if counted else " " * 34)
    return (f"{row['mib']:4}{row['bad_percent']:5}  {row['operation']:24}{instructions}"
            f"{taken['library']:9.2f}{taken['ratio']:9.2f}"
            f"{row['requests'].get('MEMGETBADBLOCK', 0):13,}"
            f"{row['blocks_erased']:8,}{row['blocks_needed']:8,}"
            f"{row['bytes_read'] / MIB:8.1f}{row['bytes_written'] / MIB:9.1f}"
            f"{row['log_lines']:12,}{row['log_bytes'] / MIB:9.1f}")


NAMES = {
    "library": "the library: digest, erase, write, digest",
    "floor": "the floor, which does the same",
    "mtd_utils": "flash_erase, nandwrite -p, nanddump | sha512sum",
    "updater": "swupdate, handler for raw NAND; no digest of flash",
}


def guest_lines(row):
    yield f"\n{row['mib']} MiB image, {row['bad']} bad blocks, median of {row['rounds']} rounds"
    for installer, taken in row["installers"].items():
        low, high = taken["library_ratio_range"]
        yield (f"  {NAMES[installer]:52}{taken['seconds']:9.2f}"
               f"{taken['library_ratio']:9.2f}  {low:5.2f} to {high:5.2f}"
               f"{taken['blocks_erased']:8}{taken['pages_programmed']:8}")


def model_lines(rows):
    """The formula's counts beside what was counted, less what the boot flag record takes."""
    for row in rows:
        if row["operation"] != "install (fresh)":
            continue
        counts = fresh_install(row["mib"] * 8, row["blocks"], row["bad_blocks"][1])
        queries, erases, programs = (row["requests"][kind] - of_record
                                     for kind, of_record in RECORD.items())
        verdict = (counts.bad_queries, counts.erases, counts.programs) == (queries, erases, programs)
        seconds = Flash().seconds(counts)
        yield (f"  {row['mib']:4}{row['bad_percent']:5}{counts.bad_queries:14,}{queries:14,}"
               f"{counts.erases:8,}{erases:8,}{counts.programs:9,}{programs:9,}"
               f"  {'equal' if verdict else 'DIFFERENT'}{sum(seconds.values()):9.1f} s")


def delay_lines(delays):
    loads = delays["loads"]
    yield (f"Installing {delays['mib']} MiB takes longer when nandsim takes a flash part's time; it loads"
           f" a page {loads['pieces']:.2f} times when it is read in pieces of 1 KiB,"
           f" {loads['pages']:.2f} times when it is read whole")
    for part, seconds in delays["parts"].items():
        yield f"  {part:12}{seconds['measured']:7.2f} s, by formula{seconds['by_formula']:7.2f} s"


def where_it_matters(share):
    """Smallest image in MiB of which the queries take that share of the time."""
    for mib in range(1, 1024):
        used = mib * 8
        seconds = Flash().seconds(fresh_install(used, used + used // 5, []))
        if seconds["bad block queries"] >= share * sum(seconds.values()):
            return mib
    return None


def text(results):
    lines = ["On simulated devices", "", HEAD, UNITS, *map(cell_line, results["cells"])]
    if results["guest"]:
        lines += ["", "On a real kernel with nandsim, in an emulated machine, a fresh installation",
                  f"{'':54}{'seconds':>9}{'library/':>9}{'range':>15}{'erases':>8}{'pages':>8}"]
        for row in results["guest"]:
            lines += guest_lines(row)
    lines += ["", "An installation by formula, and as counted on the simulated device",
              f"  {'MiB':>4}{'bad':>5}{'queries':>14}{'counted':>14}{'erases':>8}{'counted':>8}"
              f"{'pages':>9}{'counted':>9}{'':9}{'by datasheet':>9}"]
    lines += model_lines(results["cells"])
    if results.get("delays"):
        lines += ["", *delay_lines(results["delays"])]
    lines += ["", "By the same datasheet, bad block queries take of an installation's time"]
    lines += [f"  {share:4.0%} from an image of {where_it_matters(share)} MiB on"
              for share in (0.1, 0.25, 0.5)]
    return "\n".join(lines)
