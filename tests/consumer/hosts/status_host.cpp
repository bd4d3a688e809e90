// SPDX-License-Identifier: Apache-2.0
// A C++ host: marks the running system successful, acknowledges, and tells what the record and its
// own store hold.
#include <vemk_fota_ab_upgrade.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <string>

namespace {
std::map<std::string, std::string> recorded;
int saves;
}  // namespace

extern "C" {

int sc_cfg_set(const char* name, const char* value) {
  recorded[name] = value;
  return 0;
}

int sc_cfg_save() {
  ++saves;
  return 0;
}

int sc_cfg_get(const char* name, char* value, int size) {
  const auto found = recorded.find(name);
  if (found == recorded.end()) {
    return -1;
  }
  std::snprintf(value, static_cast<std::size_t>(size), "%s", found->second.c_str());
  return 0;
}
}

int main() {
  const int running = vemk_dual_get_current_system();
  z_upgrade_system_info_t info = {};
  if (vemk_dual_set_system_status(running, DUALSYSTEM_STATUS_SUCCESSFUL) != 0 ||
      dual_AB_set_fota_status_for_nv(0) != 0 || vemk_dual_set_sync_status(SYNC_STATUS_FAIL) != 0 ||
      vemk_dual_get_system_status(&info) != 0) {
    return 1;
  }
  int sync_status = 0;
  vemk_dual_get_sync_status(&sync_status);
  const int status = info.system_1.system == running ? info.system_1.status : info.system_2.status;
  std::cerr << "running=" << (running == DUAL_SYSTEM ? 'A' : 'B')
            << " successful=" << (status == DUALSYSTEM_STATUS_SUCCESSFUL)
            << " fota_status=" << dual_AB_get_fota_status_for_nv() << " sync=" << sync_status
            << " saves=" << saves << '\n';
  return 0;
}
