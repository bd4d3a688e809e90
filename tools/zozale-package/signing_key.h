// SPDX-License-Identifier: Apache-2.0
//
// The private key that packages are signed with.
#ifndef ZOZALE_PACKAGE_SIGNING_KEY_H
#define ZOZALE_PACKAGE_SIGNING_KEY_H

#include <string>

#include "common/finding.h"
#include "common/openssl.h"

namespace zozale {

// Reads a PEM file. An encrypted key is opened with the first line of `passphrase_file`; without
// one a person is asked, on a terminal only. Warns of files that others can read. Throws Error.
OpenSslPtr<EVP_PKEY> read_signing_key(const std::string& path, const std::string& passphrase_file,
                                      Findings& findings);

}  // namespace zozale

#endif
