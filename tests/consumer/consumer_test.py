#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Builds hosts against the installed library, outside the source tree, and runs them on a device.

Usage: consumer_test.py SOURCE_DIR BUILD_DIR WORK_DIR
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

SOURCE, BUILD, WORK = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
PREFIX = WORK / "prefix"
HOSTS = WORK / "hosts"
DEVICE = WORK / "device"
SIM = BUILD / "bin" / "zozale-sim"


def run(*command, **options):
    """Runs a command; shows all of it when it fails."""
    done = subprocess.run([str(word) for word in command], text=True, errors="replace",
                          capture_output=True, **options)
    if done.returncode != 0:
        sys.exit(f"{command} ended with {done.returncode}\n{done.stdout}\n{done.stderr}")
    return done


def expect(what, found, wanted):
    if found != wanted:
        sys.exit(f"{what}: expected {wanted!r}, found {found!r}")
    print(f"ok  {what}: {found}")


def readme_example():
    """The first C block of README.md that is named as an example."""
    text = (SOURCE / "README.md").read_text()
    return re.search(r"<!-- example: update_client\.c -->\n```c\n(.*?)```", text, re.S).group(1)


def install():
    shutil.rmtree(WORK, ignore_errors=True)
    run("cmake", "--install", BUILD, "--prefix", PREFIX)
    shutil.copytree(SOURCE / "tests/consumer/hosts", HOSTS)
    (HOSTS / "update_client.c").write_text(readme_example())


def library_folder():
    return next(PREFIX.rglob("libzozale.so")).parent


def build_hosts():
    run("cmake", "-S", HOSTS, "-B", HOSTS / "build", f"-DCMAKE_PREFIX_PATH={PREFIX}")
    run("cmake", "--build", HOSTS / "build")
    pkg_config = dict(os.environ, PKG_CONFIG_PATH=str(library_folder() / "pkgconfig"))
    flags = run("pkg-config", "--cflags", "--libs", "zozale", env=pkg_config).stdout.split()
    run("cc", "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "update_client.c", *flags,
        "-o", "build/by_pkg_config", cwd=HOSTS)


def make_device():
    run(SIM, "create", DEVICE, "--layout", SOURCE / "sim/layouts/small.toml")
    run(SIM, "run", DEVICE, "--", BUILD / "bin/zozale", "init-flags", "--force")
    image = WORK / "kernel.img"
    image.write_bytes(bytes(range(256)) * 20 + b"end")
    run(BUILD / "bin/zozale-package", "create", "--type", "platform", "--partition",
        f"kernel={image}", "-o", DEVICE / "root/cache/ovu_fota_ab/upgrade.package")


def on_device(host):
    environment = dict(os.environ, LD_LIBRARY_PATH=str(library_folder()))
    return run(SIM, "run", DEVICE, "--", HOSTS / "build" / host, env=environment).stderr.splitlines()


def status():
    return json.loads(run(SIM, "run", DEVICE, "--", BUILD / "bin/zozale", "status", "--json").stdout)


install()
build_hosts()
make_device()
expect("dlopen host", on_device("plugin_host"), ["type=1 verified=0 stored=1"])
expect("README's example", on_device("update_client"),
       ["0 of 0 bytes", "0 of 5123 bytes", "5123 of 5123 bytes", "5123 of 5123 bytes",
        "System B boots next."])
expect("README's example, built with pkg-config", on_device("by_pkg_config")[-1],
       "System B boots next.")
run(SIM, "reboot", DEVICE)
expect("C++ host", on_device("status_host"),
       ["running=B successful=1 fota_status=0 sync=-1 saves=1"])
