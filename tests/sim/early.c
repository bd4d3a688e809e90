// SPDX-License-Identifier: Apache-2.0
//
// A library that looks at the device before any main() runs, maybe before the simulator's own
// constructor.
#include <stdio.h>

__attribute__((constructor)) static void look(void) {
  char line[128];
  FILE* file = fopen("/proc/cmdline", "r");
  if (file != NULL && fgets(line, sizeof line, file) != NULL) {
    fputs(line, stdout);
  }
  if (file != NULL) {
    fclose(file);
  }
}

void early_link(void);
void early_link(void) {}
