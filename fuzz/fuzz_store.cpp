// SPDX-License-Identifier: Apache-2.0
//
// The values of the configuration store, any bytes in their place: what the library's status calls
// and the device tool make of them.
//
// Input: the values of the four keys in turn, each a byte of length and that many bytes.
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"
#include "vemk_fota_ab_upgrade.h"
#include "zozale/store.h"
#include "zozale/terms.h"

namespace {

using fuzz::FuzzDevice;

constexpr size_t kMostRead = 32;
constexpr const char* kKeys[] = {"fota_ab_upgrade_status", "fota_ab_upgrade_total_size",
                                 "fota_ab_upgrade_updated_size", "fota_ab_aa_sync_status"};

void put_values(const uint8_t* data, size_t size) {
  for (const char* key : kKeys) {
    if (size == 0) {
      return;
    }
    const size_t len = std::min<size_t>(data[0], size - 1);
    FuzzDevice::get().store()[key].assign(reinterpret_cast<const char*>(data + 1), len);
    data += 1 + len;
    size -= 1 + len;
  }
}

// Leading digits, of as many bytes as the library asks for.
int number_in(const char* key) {
  const auto& store = FuzzDevice::get().store();
  const auto found = store.find(key);
  const std::string text = found == store.end() ? "" : found->second.substr(0, kMostRead);
  return static_cast<int>(std::strtoll(text.c_str(), nullptr, 10));
}

void require_status() {
  z_upgrade_status_info_t info = {};
  int sync_status = 0;
  REQUIRE(vemk_dual_get_upgrade_status(&info) == 0);
  vemk_dual_get_sync_status(&sync_status);
  REQUIRE(info.upgrade_status == number_in(kKeys[0]));
  REQUIRE(info.total_size == number_in(kKeys[1]));
  REQUIRE(info.upgraded_size == number_in(kKeys[2]));
  REQUIRE(sync_status == number_in(kKeys[3]));
}

void use_tool() {
  const zozale::tool::StoreState state = zozale::tool::read_store();
  REQUIRE(!zozale::tool::upgrade_word(state.upgrade_status.value_or(0)).empty());
  REQUIRE(!zozale::tool::sync_word(state.sync_status.value_or(0)).empty());
}

void set_sync_status(int status) {
  const bool known = status >= SYNC_STATUS_FAIL && status <= SYNC_STATUS_SYNCING;
  const int before = number_in(kKeys[3]);
  REQUIRE(vemk_dual_set_sync_status(status) == (known ? 0 : -1));
  REQUIRE(number_in(kKeys[3]) == (known ? status : before));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzDevice& device = FuzzDevice::get();
  device.store().clear();
  put_values(data, size);
  require_status();
  use_tool();
  set_sync_status(number_in(kKeys[0]));
  device.close_package();
  return 0;
}
