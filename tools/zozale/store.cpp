// SPDX-License-Identifier: Apache-2.0
#include "zozale/store.h"

#include <dlfcn.h>

#include <array>

#include "upi_public.h"
#include "zozale/failure.h"

namespace zozale::tool {
namespace {

using GetFunction = int (*)(const char* name, char* value, int value_size);

// The store is looked up and not linked: without one the tool still starts and says so.
void* find_symbol(const char* name) {
  return dlsym(RTLD_DEFAULT, name);
}

bool was_written(const char* key) {
  const auto get = reinterpret_cast<GetFunction>(find_symbol("sc_cfg_get"));
  std::array<char, 32> text{};
  get(key, text.data(), static_cast<int>(text.size()));
  return text[0] != '\0';
}

std::optional<int> if_written(const char* key, int value) {
  return was_written(key) ? std::optional<int>(value) : std::nullopt;
}

}  // namespace

bool store_is_there() {
  for (const char* name : {"sc_cfg_set", "sc_cfg_get", "sc_cfg_save"}) {
    if (find_symbol(name) == nullptr) {
      return false;
    }
  }
  return true;
}

void require_store() {
  if (store_is_there()) {
    return;
  }
  throw Failure(kExitDeviceUnfit,
                {"the platform's configuration store is missing",
                 "sc_cfg_get, sc_cfg_set and sc_cfg_save from a library of the platform",
                 "no such functions in this process",
                 "build zozale with ZOZALE_PLATFORM_LIBRARIES naming the platform's library, or "
                 "preload it with LD_PRELOAD"});
}

bool StoreState::upgrade_under_way() const {
  return upgrade_status == UPGRADE_STATUS_VERIFING || upgrade_status == UPGRADE_STATUS_UPDATING;
}

bool StoreState::sync_under_way() const {
  return sync_status == SYNC_STATUS_SYNCING;
}

StoreState read_store() {
  z_upgrade_status_info_t upgrade = {};
  int sync_status = 0;
  vemk_dual_get_upgrade_status(&upgrade);
  vemk_dual_get_sync_status(&sync_status);
  return {if_written("fota_ab_upgrade_status", upgrade.upgrade_status),
          if_written("fota_ab_upgrade_total_size", upgrade.total_size),
          if_written("fota_ab_upgrade_updated_size", upgrade.upgraded_size),
          if_written("fota_ab_aa_sync_status", sync_status)};
}

}  // namespace zozale::tool
