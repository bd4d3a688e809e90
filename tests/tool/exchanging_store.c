/* SPDX-License-Identifier: Apache-2.0 */
/* A platform's store that changes files when a value is set: at the moments at which the library
 * tells how far it is. EXCHANGE_AT holds the values, one character each, and EXCHANGE_n what is
 * done at the n-th of them (from 0), once each and in order: "FROM TO" renames a file, "+FILE"
 * appends a byte to it. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save(void);
int sc_cfg_get(const char* name, char* value, int size);

static void carry_out(const char* action) {
  char from[200] = "";
  char to[200] = "";
  if (action[0] == '+') {
    FILE* file = fopen(action + 1, "ab");
    if (file != NULL) {
      fputc('x', file);
      fclose(file);
    }
  } else if (sscanf(action, "%199s %199s", from, to) == 2) {
    rename(from, to);
  }
}

int sc_cfg_set(const char* name, const char* value) {
  static size_t next = 0;
  const char* moments = getenv("EXCHANGE_AT");
  char variable[32];
  if (strcmp(name, "fota_ab_upgrade_status") != 0 || moments == NULL) {
    return 0;
  }
  while (next < strlen(moments) && moments[next] == value[0]) {
    snprintf(variable, sizeof(variable), "EXCHANGE_%d", (int)next);
    next++;
    if (getenv(variable) != NULL) {
      carry_out(getenv(variable));
    }
  }
  return 0;
}

int sc_cfg_save(void) {
  return 0;
}

int sc_cfg_get(const char* name, char* value, int size) {
  (void)name;
  (void)value;
  (void)size;
  return -1;
}
