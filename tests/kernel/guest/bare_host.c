/* SPDX-License-Identifier: Apache-2.0 */
/*
 * bare_host CALL: makes one call of the library, as a host does that checks nothing beforehand,
 * and ends with 0 when the call returned 0.
 */
#include <stdio.h>
#include <string.h>

#include "vemk_fota_ab_upgrade.h"

static int upgrade(void) {
  return vemk_dual_upgrade(NULL);
}

static const struct {
  const char* name;
  int (*call)(void);
} calls[] = {
    {"init-flags", vemk_init_flag_partition},
    {"verify", vemk_dual_verify},
    {"upgrade", upgrade},
    {"sync", vemk_dual_sync_system},
};

int main(int argc, char** argv) {
  for (size_t i = 0; argc == 2 && i < sizeof calls / sizeof calls[0]; i++) {
    if (strcmp(argv[1], calls[i].name) == 0) {
      return calls[i].call() == 0 ? 0 : 1;
    }
  }
  fputs("usage: bare_host init-flags|verify|upgrade|sync\n", stderr);
  return 2;
}
