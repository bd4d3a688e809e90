/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The configuration store of the guest's "platform": one file per entry. Saving is immediate, so
 * that every process sees what another one stored.
 */
#include <stdio.h>
#include <string.h>

#include "store.h"

#define FOLDER "/nv/"
#define PATH_SIZE 128

static FILE* open_entry(const char* name, const char* mode) {
  char path[PATH_SIZE];
  snprintf(path, sizeof path, FOLDER "%s", name);
  return fopen(path, mode);
}

int sc_cfg_set(const char* name, const char* value) {
  FILE* file = open_entry(name, "w");
  if (file == NULL) {
    return -1;
  }
  fputs(value, file);
  return fclose(file);
}

int sc_cfg_save(void) {
  return 0;
}

int sc_cfg_get(const char* name, char* value, int value_size) {
  FILE* file = open_entry(name, "r");
  if (file == NULL) {
    return -1;
  }
  if (value_size > 0 && fgets(value, value_size, file) == NULL) {
    value[0] = '\0';
  }
  fclose(file);
  return 0;
}
