/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The least of hosts: one operation of the library, its result as the exit status.
 *
 *   host init | verify | install | sync
 */
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vemk_fota_ab_upgrade.h>

static int install(void) {
  z_upgrade_status_info_t status = {UPGRADE_STATUS_UNKNOWN, 0, 0};
  z_upgrade_flush_status_t sink = {&status, NULL};
  const int result = vemk_dual_upgrade(&sink);
  return result == 0 && status.upgrade_status == UPGRADE_STATUS_UPDATE_SUCCESS ? 0 : 1;
}

int main(int argc, char** argv) {
  getppid(); /* where the operation begins, for those who trace system calls */
  const char* what = argc == 2 ? argv[1] : "";
  if (strcmp(what, "init") == 0) {
    return vemk_init_flag_partition() == 0 ? 0 : 1;
  }
  if (strcmp(what, "verify") == 0) {
    return vemk_dual_verify() == 0 ? 0 : 1;
  }
  if (strcmp(what, "install") == 0) {
    return install();
  }
  if (strcmp(what, "sync") == 0) {
    return vemk_dual_sync_system() == 0 ? 0 : 1;
  }
  fprintf(stderr, "usage: host init | verify | install | sync\n");
  return 2;
}
