// SPDX-License-Identifier: Apache-2.0
#include "vemk_fota_ab_upgrade.h"

#include "upi_export.h"
#include "upi_fotaflag_partition.h"
#include "upi_log.h"
#include "upi_public.h"
#include "upi_sync_system.h"
#include "upi_update.h"
#include "upi_verify.h"

extern "C" {

// --- Package ---

UPI_EXPORT int vemk_dual_verify(void) {
  return upi_verify() < 0 ? -1 : 0;
}

UPI_EXPORT int vemk_dual_get_upgrade_type(void) {
  return upi_get_upgrade_type();
}

UPI_EXPORT int vemk_dual_upgrade(z_upgrade_flush_status_t* flush_status) {
  return upi_update(flush_status) < 0 ? -1 : 0;
}

UPI_EXPORT int vemk_dual_get_upgrade_status(z_upgrade_status_info_t* upgrade_info) {
  upgrade_info->upgrade_status = upi_get_upgrade_status();
  upgrade_info->total_size = upi_get_upgrade_total_size();
  upgrade_info->upgraded_size = upi_get_upgrade_updated_size();
  return 0;
}

// --- Synchronisation ---

UPI_EXPORT int vemk_dual_sync_system(void) {
  return upi_sync_system();
}

UPI_EXPORT void vemk_dual_get_sync_status(int* sync_status) {
  *sync_status = upi_get_sync_status();
}

UPI_EXPORT int vemk_dual_set_sync_status(int sync_status) {
  if (sync_status < SYNC_STATUS_FAIL || sync_status > SYNC_STATUS_SYNCING) {
    UPI_LOG("Invalid sync_status [%d]", sync_status);
    return -1;
  }
  upi_set_sync_status(sync_status);
  UPI_LOG("set sync status success");
  return 0;
}

// --- Boot control ---

UPI_EXPORT int vemk_dual_get_current_system(void) {
  switch (upi_get_current_system()) {
    case kSystemA:
      return DUAL_SYSTEM;
    case kSystemB:
      return DUAL_SYSTEM2;
    default:
      return -1;
  }
}

UPI_EXPORT int vemk_dual_get_boot_to_system(void) {
  T_BOOT_FOTA_FLAG flag = {};
  if (upi_get_boot_flag(&flag) < 0) {
    UPI_LOG("Get get system status fail");
    return -1;
  }
  return flag.boot_to;
}

UPI_EXPORT int vemk_dual_get_system_status(z_upgrade_system_info_t* system_info) {
  T_FOTA_FLAG_INFO record = {};
  if (upi_get_system_info(&record) < 0) {
    UPI_LOG("Get get system status fail");
    return -1;
  }
  const T_BOOT_FOTA_FLAG& flag = record.boot_flag;
  system_info->boot_to = flag.boot_to;
  system_info->fota_status = static_cast<int>(flag.fota_status);
  system_info->system_1 = {DUAL_SYSTEM, flag.system.status, flag.system.try_cnt};
  system_info->system_2 = {DUAL_SYSTEM2, flag.system2.status, flag.system2.try_cnt};
  UPI_LOG_LINES(
      "dual get system info:\n"
      "dual boot to:%d\n"
      "dual fota stauts:%d\n"
      "dual get system 1 status:0x%08X[%d]\n"
      "dual get system 1 try_cnt:%d\n"
      "dual get system 2 status:0x%08X[%d]\n"
      "dual get system 2 try_cnt:%d\n",
      system_info->boot_to, system_info->fota_status, static_cast<unsigned>(flag.system.status),
      flag.system.status, flag.system.try_cnt, static_cast<unsigned>(flag.system2.status),
      flag.system2.status, flag.system2.try_cnt);
  return 0;
}

UPI_EXPORT int vemk_dual_set_boot_to_system(int system, int reboot_flag) {
  if (system != DUAL_SYSTEM && system != DUAL_SYSTEM2) {
    UPI_LOG("Invalid system :%d", system);
    return -1;
  }
  // -1 is no system status: none changes with the target.
  if (upi_set_system_boot_to(system, -1) < 0) {
    UPI_LOG("Set system fail");
    return -1;
  }
  if (reboot_flag == 1) {
    upi_reboot();
  }
  return 0;
}

UPI_EXPORT int vemk_dual_set_system_status(int system, int status) {
  if (upi_set_system_status(system, status) < 0) {
    UPI_LOG("Set syste [0x%08X] status [%d] error!", static_cast<unsigned>(system), status);
    return -1;
  }
  return 0;
}

UPI_EXPORT int vemk_dual_get_fota_status_for_nv(void) {
  return upi_get_system_fota_status();
}

UPI_EXPORT int vemk_dual_set_fota_status_for_nv(int status) {
  return upi_set_system_fota_stauts(status);
}

UPI_EXPORT int dual_AB_get_fota_status_for_nv(void)
    __attribute__((alias("vemk_dual_get_fota_status_for_nv")));

UPI_EXPORT int dual_AB_set_fota_status_for_nv(int status)
    __attribute__((alias("vemk_dual_set_fota_status_for_nv")));

UPI_EXPORT int vemk_init_flag_partition(void) {
  return init_fotaflag_partition();
}

}  // extern "C"
