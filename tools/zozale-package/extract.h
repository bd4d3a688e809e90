// SPDX-License-Identifier: Apache-2.0
//
// Taking the images and extra files out of a package.
#ifndef ZOZALE_PACKAGE_EXTRACT_H
#define ZOZALE_PACKAGE_EXTRACT_H

#include <string>
#include <vector>

#include "common/finding.h"
#include "package_view.h"

namespace zozale {

struct ExtractPlan {
  std::string package_path;
  std::string folder;
  // Names to take; with none of either, everything is taken.
  std::vector<std::string> partitions;
  std::vector<std::string> extras;
  bool replace = false;  // replace files that exist
};

struct ExtractedFile {
  std::string name;
  std::string path;
  uint64_t len = 0;
};

struct ExtractResult {
  std::vector<ExtractedFile> files;
  // Errors when the package is bad; nothing was written then.
  Findings findings;
};

// Path, relative to the folder, of the file that an entry becomes: a partition's name, or "extra/"
// and an extra file's, with every character that could lead elsewhere written as %XX.
std::string extracted_path(const PackageEntry& entry);

// Checks the digests of what is to be taken (of the whole package too when everything is), then
// writes the files, each whole or not at all. Throws Error when a name is not in the package, a
// file exists, or reading or writing fails.
ExtractResult extract(const ExtractPlan& plan);

}  // namespace zozale

#endif
