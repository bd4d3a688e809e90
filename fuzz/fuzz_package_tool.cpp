// SPDX-License-Identifier: Apache-2.0
//
// What zozale-package does with a package from elsewhere: check, show, and the names it extracts
// to.
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

#include "check.h"
#include "common/file.h"
#include "extract.h"
#include "fuzz/require.h"
#include "package_view.h"
#include "report.h"

namespace {

// One plain file name, below "extra/" for an extra file.
void require_inside(const zozale::PackageEntry& entry) {
  std::string path = zozale::extracted_path(entry);
  if (entry.kind == zozale::PackageEntry::Kind::kExtra) {
    REQUIRE(path.rfind("extra/", 0) == 0);
    path = path.substr(6);
  } else {
    REQUIRE(path != "extra");
  }
  REQUIRE(!path.empty() && path[0] != '.');
  REQUIRE(path.find('/') == std::string::npos && path.find('\0') == std::string::npos);
}

void require_printable(const std::string& text) {
  for (const char c : text) {
    REQUIRE(c == '\n' || (c >= ' ' && c <= '~'));
  }
}

void show(const zozale::PackageView& package, const zozale::Findings& findings) {
  std::ostringstream out;
  zozale::show_package(out, "fuzz", package);
  zozale::show_package_json(out, "fuzz", package);
  zozale::show_findings(out, "fuzz", findings, std::nullopt);
  zozale::show_findings_json(out, "fuzz", findings, std::nullopt);
  require_printable(out.str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const zozale::MemorySource source(data, size);
  const zozale::Findings findings = zozale::check_package(source, nullptr);
  const zozale::PackageReading reading = zozale::read_package(source);
  REQUIRE(reading.package || zozale::has_errors(findings));
  if (!reading.package) {
    return 0;
  }
  show(*reading.package, findings);
  for (const zozale::PackageEntry& entry : reading.package->entries()) {
    require_inside(entry);
    REQUIRE(zozale::has_errors(findings) || entry.is_within(size));
  }
  return 0;
}
