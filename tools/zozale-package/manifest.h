// SPDX-License-Identifier: Apache-2.0
//
// The manifest of a package: its plan as a TOML file beside the images.
#ifndef ZOZALE_PACKAGE_MANIFEST_H
#define ZOZALE_PACKAGE_MANIFEST_H

#include <optional>
#include <string>
#include <string_view>

#include "plan.h"

namespace zozale {

// 0, 1 or 2 for "system", "platform" or "oem"; nothing for any other name.
std::optional<int32_t> upgrade_type_of(std::string_view name);

// Reads the manifest at `path`; the paths of its files are relative to the folder that it lies in.
// Throws Error: kExitFailed when the file cannot be read, kExitUsage for anything in it that is
// not understood, naming file, line and key.
PackagePlan read_manifest(const std::string& path);

}  // namespace zozale

#endif
