#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that check_layers.py sees the arrows that it is there for."""

import contextlib
import io
import pathlib
import tempfile
import unittest

import check_layers


class CheckLayersTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.project = pathlib.Path(folder.name)

    def write(self, name, *lines):
        path = self.project / name
        path.parent.mkdir(exist_ok=True)
        path.write_text("".join(line + "\n" for line in lines), encoding="utf-8")

    def test_arrows_down_and_within_a_group_pass(self):
        self.write("include/upi_mtd.h", '#include "upi_export.h"')
        self.write("src/upi_mtd.cpp", '#include "upi_mtd.h"', '#include "upi_img_interface.h"')
        self.write("src/upi_update.cpp", "#include <cerrno>", '#include "upi_hash.h"',
                   '#include "upi_log.h"')
        self.write("src/upi_public.cpp", '#include "upi_log.h"')
        self.write("src/vemk_fota_ab_upgrade.cpp", '#include "upi_update.h"')
        self.assertEqual(check_layers.check(self.project), [])

    def test_the_hosts_records_are_common_ground(self):
        self.write("include/upi_public.h", '#include "vemk_fota_ab_upgrade.h"',
                   '#include "upi_owner.h"')
        self.assertEqual(check_layers.check(self.project), [])

    def test_common_ground_stands_on_itself_only(self):
        self.write("include/upi_owner.h", '#include "upi_log.h"')
        self.assertEqual(check_layers.check(self.project),
                         ["include/upi_owner.h:1: common ground must not know upi_log.h"])

    def test_an_arrow_up_is_seen(self):
        self.write("src/upi_mtd.cpp", "", '#include "upi_hash.h"')
        self.assertEqual(
            check_layers.check(self.project),
            ["src/upi_mtd.cpp:2: upi_hash.h is above: flash access must not know package and boot"
             " control"])

    def test_an_arrow_up_from_a_header_is_seen(self):
        self.write("include/upi_log.h", '#  include "upi_mtd.h"')
        self.assertEqual(
            check_layers.check(self.project),
            ["include/upi_log.h:1: upi_mtd.h is above: foundation must not know flash access"])

    def test_an_arrow_between_engines_is_seen(self):
        self.write("src/upi_verify.cpp", '#include "upi_update.h"')
        self.write("src/upi_sync_system.cpp", "#include <upi_verify.h>")
        self.assertEqual(
            check_layers.check(self.project),
            ["src/upi_sync_system.cpp:1: upi_verify.h is beside it: synchronisation must not know"
             " verification",
             "src/upi_verify.cpp:1: upi_update.h is beside it: verification must not know update"])

    def test_an_arrow_between_package_and_boot_control_is_seen(self):
        self.write("src/upi_fotaflag_partition.cpp", '#include "upi_hash.h"')
        self.assertEqual(
            check_layers.check(self.project),
            ["src/upi_fotaflag_partition.cpp:1: upi_hash.h is beside it: boot control must not"
             " know package"])

    def test_an_arrow_out_of_the_library_is_seen(self):
        self.write("src/upi_log.cpp", '#include "sim/attach.h"', '#include "../src/upi_log.h"')
        self.assertEqual(
            check_layers.check(self.project),
            ["src/upi_log.cpp:1: sim/attach.h is no header of the library",
             "src/upi_log.cpp:2: ../src/upi_log.h is no header of the library"])

    def test_a_module_without_a_place_is_seen(self):
        self.write("src/upi_new.cpp", '#include "upi_log.h"')
        self.assertEqual(check_layers.check(self.project),
                         ["src/upi_new.cpp: module upi_new has no place in the layers"])

    def test_faults_end_the_program_with_1_and_nothing_to_check_with_2(self):
        said = io.StringIO()
        with contextlib.redirect_stderr(said):
            self.assertEqual(check_layers.main([str(self.project)]), 2)
            self.assertEqual(check_layers.main([]), 2)
        self.assertIn("found no source file", said.getvalue())
        self.assertIn("Usage:", said.getvalue())
        self.write("src/upi_log.cpp", '#include "upi_mtd.h"')
        with contextlib.redirect_stdout(said):
            self.assertEqual(check_layers.main([str(self.project)]), 1)
        self.write("src/upi_log.cpp", '#include "upi_public.h"')
        self.assertEqual(check_layers.main([str(self.project)]), 0)


if __name__ == "__main__":
    unittest.main()
