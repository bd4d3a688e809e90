// SPDX-License-Identifier: Apache-2.0
//
// The manifest that zozale-package makes a package by, any bytes in its place.
#include <cstdint>
#include <string>

#include "common/error.h"
#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"
#include "manifest.h"

namespace {

constexpr const char* kManifest = "/cache/manifest.toml";

// The text that a person gets: one that a terminal takes.
void require_printable(const std::string& text) {
  for (const char c : text) {
    REQUIRE(c >= ' ' && c <= '~');
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::FuzzDevice& device = fuzz::FuzzDevice::get();
  device.put(kManifest, data, size);
  try {
    const zozale::PackagePlan plan = zozale::read_manifest(kManifest);
    REQUIRE(plan.upgrade_type >= 0 && plan.upgrade_type <= 2);
  } catch (const zozale::Error& error) {
    require_printable(error.what());
  }
  return 0;
}
