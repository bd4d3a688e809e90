// SPDX-License-Identifier: Apache-2.0
//
// "/proc/cmdline", any bytes in its place: the running system and the targets that follow from it.
#include <cstdint>
#include <string_view>

#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"
#include "upi_public.h"
#include "vemk_fota_ab_upgrade.h"

namespace {

bool names(std::string_view text, int system) {
  return text.find(system == kSystemA ? "system=system_a" : "system=system_b") !=
         std::string_view::npos;
}

void require_targets(int system) {
  int index = 7;
  int code = 7;
  const int result = upi_get_target_sync_system(&index, &code);
  if (system == -1) {
    REQUIRE(result == -1 && index == 7 && code == 7);
    REQUIRE(upi_get_target_upgrade_system() == -1);
    return;
  }
  const bool a_runs = system == kSystemA;
  REQUIRE(result == 0 && index == (a_runs ? kSystemB : kSystemA));
  REQUIRE(code == (a_runs ? DUAL_SYSTEM2 : DUAL_SYSTEM));
  REQUIRE(upi_get_target_upgrade_system() == index);
}

int code_of(int system) {
  return system == -1 ? -1 : system == kSystemA ? DUAL_SYSTEM : DUAL_SYSTEM2;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::FuzzDevice& device = fuzz::FuzzDevice::get();
  device.put("/proc/cmdline", data, size);
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const int system = upi_get_current_system();
  REQUIRE(system == -1 || system == kSystemA || system == kSystemB);
  REQUIRE(system == -1 || names(text, system));
  REQUIRE(vemk_dual_get_current_system() == code_of(system));
  require_targets(system);
  device.close_package();
  return 0;
}
