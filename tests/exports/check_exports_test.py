#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that check_exports.py sees what it is there for."""

import unittest

import check_exports

LIST = """
== host interface
function vemk_do     # a comment
function older_do = vemk_do

== modules
function upi_do
variable g_state
"""

EXPORTED = """vemk_do T 1100 20
older_do T 1100 20
upi_do T 1120 8
g_state B 4000 8
"""

UNDEFINED = """SHA512_Final@OPENSSL_3.0.0 U
SHA512_Init@OPENSSL_3.0.0 U
SHA512_Update@OPENSSL_3.0.0 U
__cxa_finalize@GLIBC_2.2.5 w
__gmon_start__ w
fopen@GLIBC_2.2.5 U
sc_cfg_get U
sc_cfg_save U
sc_cfg_set U
"""

DYNAMIC = """
 0x0000000000000001 (NEEDED)             Shared library: [libcrypto.so.3]
 0x0000000000000001 (NEEDED)             Shared library: [libc.so.6]
 0x000000000000000e (SONAME)             Library soname: [libzozale.so.1]
"""


class ExportedTest(unittest.TestCase):
    def faults(self, nm_text):
        return check_exports.faults_of_exported(check_exports.parse_list(LIST), nm_text)

    def test_a_library_as_listed_passes(self):
        self.assertEqual(self.faults(EXPORTED), [])

    def test_a_missing_name_is_seen(self):
        self.assertEqual(self.faults(EXPORTED.replace("upi_do T 1120 8\n", "")),
                         ["upi_do is in the list and not exported"])

    def test_an_extra_name_is_seen(self):
        self.assertEqual(self.faults(EXPORTED + "_ZN3upi4moreEv T 1200 8\n"),
                         ["_ZN3upi4moreEv is exported and not in the list"])

    def test_a_function_that_became_a_variable_is_seen(self):
        self.assertEqual(self.faults(EXPORTED.replace("upi_do T", "upi_do D")),
                         ["upi_do is a variable, expected a function"])

    def test_a_weak_function_is_seen(self):
        self.assertEqual(self.faults(EXPORTED.replace("upi_do T", "upi_do W")),
                         ["upi_do is a symbol of type W, expected a function"])

    def test_a_second_body_behind_an_alias_is_seen(self):
        self.assertEqual(self.faults(EXPORTED.replace("older_do T 1100", "older_do T 1180")),
                         ["older_do is not the same entry point as vemk_do"])

    def test_a_list_that_cannot_be_read_is_refused(self):
        for text in ("== a\nfunc x\n", "function x\n", "== a\nfunction x\nvariable x\n"):
            with self.assertRaises(ValueError):
                check_exports.parse_list(text)


class NeededTest(unittest.TestCase):
    def test_what_is_promised_passes(self):
        self.assertEqual(check_exports.faults_of_undefined(UNDEFINED), [])
        self.assertEqual(check_exports.faults_of_needed(DYNAMIC), [])

    def test_a_symbol_of_another_library_is_seen(self):
        self.assertEqual(
            check_exports.faults_of_undefined(UNDEFINED + "_Znwm@GLIBCXX_3.4 U\nupi_more U\n"),
            ["_Znwm is undefined and neither libc's nor promised",
             "upi_more is undefined and neither libc's nor promised"])

    def test_more_of_libcrypto_is_seen(self):
        self.assertEqual(
            check_exports.faults_of_undefined(UNDEFINED + "EVP_Digest@OPENSSL_3.0.0 U\n"),
            ["EVP_Digest is undefined and neither libc's nor promised"])

    def test_a_store_of_its_own_is_seen(self):
        self.assertEqual(check_exports.faults_of_undefined(UNDEFINED.replace("sc_cfg_set U\n", "")),
                         ["sc_cfg_set is not asked for"])

    def test_another_library_is_seen(self):
        more = DYNAMIC + " 0x1 (NEEDED)             Shared library: [libstdc++.so.6]\n"
        self.assertEqual(check_exports.faults_of_needed(more), ["needs libstdc++.so.6"])

    def test_a_missing_library_is_seen(self):
        self.assertEqual(check_exports.faults_of_needed(DYNAMIC.replace("libc.so.6", "libc.a")),
                         ["needs libc.a", r"does not need a library that matches libc\.so\.\d+"])


class StandInsTest(unittest.TestCase):
    def test_every_function_but_the_headers_gets_one(self):
        source = check_exports.stand_ins(check_exports.parse_list(LIST),
                                         "int vemk_do(void);\nint older_do (void);\n")
        self.assertEqual(source.splitlines()[2:],
                         ["int upi_do(void);",
                          'int upi_do(void) { return host_was_called("upi_do"); }'])

    def test_a_header_that_declares_more_or_less_is_seen(self):
        symbols = check_exports.parse_list(LIST)
        for header in ("int vemk_do(void);", "int vemk_do(); int older_do(); int upi_do();"):
            with self.assertRaises(ValueError):
                check_exports.stand_ins(symbols, header)


if __name__ == "__main__":
    unittest.main()
