/* SPDX-License-Identifier: Apache-2.0 */
/* A host that opens the library by its SONAME and finds the functions by name. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

static char last_status[32];

int sc_cfg_set(const char* name, const char* value) {
  if (strcmp(name, "fota_ab_upgrade_status") == 0) {
    snprintf(last_status, sizeof last_status, "%s", value);
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

typedef int (*function)(void);

static function find(void* library, const char* name) {
  function found;
  void* symbol = dlsym(library, name);
  memcpy(&found, &symbol, sizeof found);
  return found;
}

int main(void) {
  void* library = dlopen("libzozale.so.1", RTLD_NOW);
  if (library == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  function verify = find(library, "vemk_dual_verify");
  function type = find(library, "vemk_dual_get_upgrade_type");
  function close_log = find(library, "upi_close_logfile");
  if (verify == NULL || type == NULL || close_log == NULL) {
    fprintf(stderr, "a function is missing\n");
    return 1;
  }
  int verified = verify();
  fprintf(stderr, "type=%d verified=%d stored=%s\n", type(), verified, last_status);
  close_log();
  return dlclose(library) == 0 ? 0 : 1;
}
