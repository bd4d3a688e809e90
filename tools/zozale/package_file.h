// SPDX-License-Identifier: Apache-2.0
//
// The upgrade package at its place on the device, looked at before the library sees it.
#ifndef ZOZALE_TOOL_PACKAGE_FILE_H
#define ZOZALE_TOOL_PACKAGE_FILE_H

#include <optional>
#include <string>
#include <vector>

#include "common/file.h"
#include "common/partition_table.h"
#include "zozale-package/demands.h"
#include "zozale-package/package_view.h"
#include "zozale/report.h"

namespace zozale::tool {

struct PackageFile {
  InputFile file;
  PackageView view;
  std::vector<std::string> warnings;
  std::optional<Authentic> authentic;  // when a signature was asked for
};

// Opens the package. First its signature is checked, if one is asked for: nothing else looks at the
// bytes of a package that is not. Throws Refused when it is not what is asked for,
// Failure(kExitBadPackage) when there is none, and when it is one with which the library would
// never end or would damage the running system, Failure(kExitDeviceUnfit) when the trusted
// certificates cannot be used. Its own digests are not looked at.
PackageFile open_package(const Demands& demands = {});

// Computes every digest, without the library's log and the store. Throws Failure(kExitBadPackage)
// for the first that differs.
void check_digests(const PackageFile& package);

// The same of digests that hold a zero byte, where the library compares no further than to it and
// takes for equal what is not.
void check_zero_byte_digests(const PackageFile& package);

// Compares the partitions with the device's table, as the library does when it loads a package.
// Throws Failure(kExitBadPackage).
void check_against_table(const PackageFile& package, const PartitionTable& table);

// "path", "bytes", "type", "version", "plat", "version_from" and "version_to".
Json to_json(const PackageView& package);

}  // namespace zozale::tool

#endif
