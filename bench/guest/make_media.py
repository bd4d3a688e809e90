#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""make_media.py ZOZALE_PACKAGE FOLDER CASE...: makes what the guest installs. A CASE is
MIB:BAD_PERCENT:ROUNDS; an image of MIB fills all but a fifth of its partition. With ":delays" behind
it the library alone installs, without and with each delay of a flash part."""

import hashlib
import pathlib
import random
import subprocess
import sys

sys.path.append(str(pathlib.Path(__file__).parent.parent))
from model import Flash, partition_of

BLOCK = 128 * 1024
MIB = 1024 * 1024

TABLE = """[Head]
magic=SUPI
plat=0
plat_partition_num=1
oem_partition_num=0
[Platform_Partition_Info]
name=rootfs
system_type=0
partition_type=0
[Oem_Partition_Info]
"""

# What nandsim takes the flash part's time for: microseconds a page, a page, milliseconds a block,
# nanoseconds a byte. It takes the input cycle for a byte that is read, the other for one written.
NO_DELAYS = {"access_delay": 0, "programm_delay": 0, "erase_delay": 0, "output_cycle": 0,
             "input_cycle": 0}
DELAYS = {
    "reading": {"access_delay": Flash.read * 1e6, "input_cycle": 1e9 / Flash.bus},
    "programming": {"programm_delay": Flash.program * 1e6, "output_cycle": 1e9 / Flash.bus},
    "erasing": {"erase_delay": Flash.erase * 1e3},
}

# What the updater is told: this image to this partition. It cannot write raw NAND on the way.
DESCRIPTION = """software =
{{
  version = "1.0";
  hardware-compatibility: [ "1.0" ];
  images: (
    {{
      filename = "image";
      mtdname = "rootfs2";
      type = "flash";
      sha256 = "{digest}";
    }}
  );
}}
"""


def openssl(*arguments):
    subprocess.run(["openssl", *arguments], check=True, capture_output=True)


def make_certificate(folder):
    openssl("req", "-x509", "-newkey", "rsa:2048", "-noenc", "-keyout", folder / "key.pem", "-out",
            folder / "cert.pem", "-subj", "/CN=bench", "-addext", "extendedKeyUsage=emailProtection")


def make_update(folder, data):
    description = DESCRIPTION.format(digest=hashlib.sha256(data).hexdigest())
    (folder / "sw-description").write_text(description)
    openssl("cms", "-sign", "-binary", "-nosmimecap", "-outform", "DER",
            "-signer", folder.parent / "cert.pem", "-inkey", folder.parent / "key.pem",
            "-in", folder / "sw-description", "-out", folder / "sw-description.sig")
    with open(folder / "update.swu", "wb") as archive:
        subprocess.run(["cpio", "--quiet", "-o", "-H", "crc"], cwd=folder, check=True,
                       input=b"sw-description\nsw-description.sig\nimage\n", stdout=archive)


def make_folder(tool, folder, mib):
    data = random.Random(mib).randbytes(mib * MIB)
    path = folder / str(mib)
    path.mkdir()
    (path / "image").write_bytes(data)
    (path / "digest").write_text(hashlib.sha512(data).hexdigest() + "\n")
    subprocess.run([tool, "create", "--type", "platform", "--table", folder / "table.conf",
                    "--allow-zero-bytes", "--partition", f"rootfs={path / 'image'}", "--output", path / "package"],
                   check=True, stdout=subprocess.DEVNULL)
    make_update(path, data)


def case_lines(mib, bad_percent, rounds, *delays):
    blocks, count = partition_of(mib * MIB // BLOCK, bad_percent)
    bad = sorted(random.Random(1).sample(range(blocks), count))
    case = f"{mib} {blocks} {rounds} {','.join(map(str, bad)) or '-'}"
    if not delays:
        return f"{case} library,mtd_utils,updater,floor\n"
    lines = [f"{case} library,pieces,pages"]
    for name, values in DELAYS.items():
        arguments = " ".join(f"{key}={value:.0f}" for key, value in (NO_DELAYS | values).items())
        installers = "library,pieces,pages" if name == "reading" else "library"
        lines.append(f"{case} {installers} {name} do_delays=1 {arguments}")
    return "\n".join(lines) + "\n"


def main():
    tool, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    cases = [(*map(int, case.split(":")[:3]), *case.split(":")[3:]) for case in sys.argv[3:]]
    folder.mkdir(parents=True)
    (folder / "table.conf").write_text(TABLE)
    make_certificate(folder)
    for mib in sorted({case[0] for case in cases}):
        make_folder(tool, folder, mib)
    (folder / "cases").write_text("".join(case_lines(*case) for case in cases))


main()
