// SPDX-License-Identifier: Apache-2.0
//
// What the platform gives a process besides files: its configuration store, and the shell.
#include <cstdio>
#include <cstdlib>

#include "sim/interpose.h"

// The platform's own functions. A program that brings its own keeps them: its executable's
// definitions come first by the rules of the dynamic linker, those of its libraries are asked for.
#define SIM_PLATFORM SIM_API __attribute__((weak))

SIM_PLATFORM int sc_cfg_get(const char* name, char* buffer, int length);
SIM_PLATFORM int sc_cfg_set(const char* name, const char* value);
SIM_PLATFORM int sc_cfg_save();

SIM_PLATFORM int sc_cfg_get(const char* name, char* buffer, int length) {
  REAL(sc_cfg_get);
  if (real_sc_cfg_get != nullptr) {
    return real_sc_cfg_get(name, buffer, length);
  }
  return sim::g_device == nullptr ? -1 : sim::process_store_get(name, buffer, length);
}

SIM_PLATFORM int sc_cfg_set(const char* name, const char* value) {
  REAL(sc_cfg_set);
  if (real_sc_cfg_set != nullptr) {
    return real_sc_cfg_set(name, value);
  }
  return sim::g_device == nullptr ? -1 : sim::process_store_set(name, value);
}

SIM_PLATFORM int sc_cfg_save() {
  REAL(sc_cfg_save);
  if (real_sc_cfg_save != nullptr) {
    return real_sc_cfg_save();
  }
  return sim::g_device == nullptr ? -1 : sim::process_store_save();
}

SIM_API int system(const char* command) {
  REAL(system);
  return sim::process_reboot(command) ? 0 : real_system(command);
}

SIM_API FILE* popen(const char* command, const char* mode) {
  REAL(popen);
  return real_popen(sim::process_reboot(command) ? "exit 0" : command, mode);
}
