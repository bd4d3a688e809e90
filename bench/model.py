# SPDX-License-Identifier: Apache-2.0
"""What an installation asks of the flash, by formula, and how long that takes by a datasheet."""

import dataclasses

READ = 1024  # bytes that are read for a digest at a time

# Of the boot flag record during an installation: it is read twice, and written twice in two copies;
# two queries for each.
RECORD = {"MEMGETBADBLOCK": 12, "block-erase": 4, "page-program": 4 * 64}


def partition_of(used, bad_percent):
    """Blocks of the partition that is measured with an image of `used`, and how many are bad."""
    blocks = used + max(used // 5, 4)
    return blocks, max(blocks * bad_percent // 100, int(bad_percent > 0))


@dataclasses.dataclass
class Counts:
    """What is asked of the one partition that an image is installed to; log lines about its bad
    blocks."""

    bad_queries: int = 0  # MEMGETBADBLOCK
    erases: int = 0  # blocks
    programs: int = 0  # pages
    reads: int = 0  # pages, each once
    lines: int = 0

    def access(self, place, bad, times):
        """Counts `times` accesses to a block whose place on flash is `place`."""
        self.bad_queries += times * (place + 1)
        self.lines += 2 * times * sum(block < place for block in bad)


def fresh_install(used, blocks, bad, page=2048, pages_per_block=64):
    """Counts of installing an image of `used` whole blocks into a partition of `blocks` of which
    the numbers in `bad` are bad: a digest, the erase of the partition, the copy, a digest."""
    good = [block for block in range(blocks) if block not in set(bad)]
    reads = page * pages_per_block // READ
    counts = Counts(bad_queries=blocks, erases=len(good) + used, programs=used * pages_per_block,
                    reads=2 * used * pages_per_block, lines=len(bad))
    for place in good[:used]:
        counts.access(place, bad, 2 * reads + 1)
    return counts


@dataclasses.dataclass
class Flash:
    """A flash part as its datasheet has it, and what a request costs on the processor."""

    page: int = 2048  # bytes
    read: float = 25e-6  # tR, seconds a page
    loads: float = 1  # of a page that is read in pieces, until all of it was read
    program: float = 200e-6  # tPROG, seconds a page
    erase: float = 2e-3  # tBERS, seconds a block
    bus: float = 20e6  # bytes a second
    query: float = 0.5e-6  # a MEMGETBADBLOCK, seconds
    line: float = 10e-6  # a log line, seconds
    digest: float = 50e6  # SHA-512, bytes a second

    def seconds(self, counts):
        """Time by what it is spent on."""
        over_the_bus = self.page / self.bus
        return {
            "reading": counts.reads * self.loads * (self.read + over_the_bus),
            "programming": counts.programs * (self.program + over_the_bus),
            "erasing": counts.erases * self.erase,
            "digests": counts.reads * self.page / self.digest,
            "bad block queries": counts.bad_queries * self.query,
            "log lines": counts.lines * self.line,
        }
