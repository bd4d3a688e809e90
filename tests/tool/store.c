/* SPDX-License-Identifier: Apache-2.0 */
/* A platform's store in which an upgrade has succeeded. */
#include <string.h>

int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save(void);
int sc_cfg_get(const char* name, char* value, int size);

int sc_cfg_set(const char* name, const char* value) {
  (void)name;
  (void)value;
  return 0;
}

int sc_cfg_save(void) {
  return 0;
}

int sc_cfg_get(const char* name, char* value, int size) {
  if (strcmp(name, "fota_ab_upgrade_status") == 0 && size > 1) {
    strcpy(value, "4");
  }
  return 0;
}
