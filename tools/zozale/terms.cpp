// SPDX-License-Identifier: Apache-2.0
#include "zozale/terms.h"

#include "common/text.h"
#include "vemk_fota_ab_upgrade.h"

namespace zozale::tool {

System other(System system) {
  return system == System::kA ? System::kB : System::kA;
}

std::string letter(System system) {
  return system == System::kA ? "A" : "B";
}

std::string in_words(System system) {
  return "system " + letter(system);
}

int code_of(System system) {
  return system == System::kA ? DUAL_SYSTEM : DUAL_SYSTEM2;
}

std::optional<System> system_of_code(int code) {
  switch (code) {
    case DUAL_SYSTEM:
      return System::kA;
    case DUAL_SYSTEM2:
      return System::kB;
    default:
      return std::nullopt;
  }
}

std::string mtd_name(const std::string& table_name, System system) {
  return system == System::kA ? table_name : table_name + "2";
}

std::string health_word(int status) {
  switch (status) {
    case DUALSYSTEM_STATUS_BOOTABLE:
      return "bootable";
    case DUALSYSTEM_STATUS_SUCCESSFUL:
      return "successful";
    case DUALSYSTEM_STATUS_UNBOOTABLE:
      return "unbootable";
    default:
      return "unknown";
  }
}

std::optional<int> health_code(const std::string& word) {
  for (const int code :
       {DUALSYSTEM_STATUS_BOOTABLE, DUALSYSTEM_STATUS_SUCCESSFUL, DUALSYSTEM_STATUS_UNBOOTABLE}) {
    if (health_word(code) == word) {
      return code;
    }
  }
  return std::nullopt;
}

std::string upgrade_word(int status) {
  switch (status) {
    case UPGRADE_STATUS_VERIFING:
      return "verifying";
    case UPGRADE_STATUS_VERIFY_SUCCESS:
      return "verified";
    case UPGRADE_STATUS_VERIFY_FAIL:
      return "verification failed";
    case UPGRADE_STATUS_UPDATING:
      return "installing";
    case UPGRADE_STATUS_UPDATE_SUCCESS:
      return "installed";
    case UPGRADE_STATUS_UPDATE_FAIL:
      return "installation failed";
    case UPGRADE_STATUS_NO_NEED_UPDATE:
      return "no upgrade needed";
    case UPGRADE_STATUS_NEED_UPDATE:
      return "upgrade needed";
    default:
      return "unknown";
  }
}

std::string sync_word(int status) {
  switch (status) {
    case SYNC_STATUS_FAIL:
      return "synchronisation failed";
    case SYNC_STATUS_SUCCESS:
      return "synchronised";
    case SYNC_STATUS_SYNCING:
      return "synchronising";
    default:
      return "unknown";
  }
}

std::string upgrade_type_word(int type) {
  switch (type) {
    case 0:
      return "every system partition";
    case 1:
      return "platform partitions";
    case 2:
      return "OEM partitions";
    default:
      return "unknown";
  }
}

std::string counted(uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string listed(const std::vector<uint32_t>& numbers) {
  std::string list;
  for (const uint32_t number : numbers) {
    list += (list.empty() ? "" : ", ") + std::to_string(number);
  }
  return list;
}

std::string short_size(uint64_t bytes) {
  const std::string full = human_size(bytes);
  return full.substr(0, full.find(" ("));
}

}  // namespace zozale::tool
