// SPDX-License-Identifier: Apache-2.0
//
// A host of the library that tells how much heap and stack one operation takes at its peak:
//
//   footprint_host FOLDER init-flags|verify|install|sync    prints "heap BYTES stack BYTES"
//
// Everything from the call into the library on counts: the library, the digests of libcrypto, the
// C library's streams and their buffers, and the binding of names at their first call. Standard
// output, where the diagnostics go, is to be a file.
#include <cstdio>
#include <string>

#include "bare_device.h"
#include "heap_meter.h"
#include "stack_meter.h"
#include "vemk_fota_ab_upgrade.h"

namespace {

int g_result;

void (*operation_named(const std::string& name))() {
  if (name == "init-flags") {
    return [] { g_result = vemk_init_flag_partition(); };
  }
  if (name == "verify") {
    return [] { g_result = vemk_dual_verify(); };
  }
  if (name == "install") {
    return [] { g_result = vemk_dual_upgrade(nullptr); };
  }
  if (name == "sync") {
    return [] { g_result = vemk_dual_sync_system(); };
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  void (*operation)() = argc == 3 ? operation_named(argv[2]) : nullptr;
  if (operation == nullptr) {
    std::fprintf(stderr, "usage: footprint_host FOLDER init-flags|verify|install|sync\n");
    return 2;
  }
  use_bare_device(argv[1]);
  reset_heap_peak();
  const std::size_t held = heap_held();
  const std::size_t stack = stack_used_by(operation);
  std::fprintf(stderr, "heap %zu stack %zu\n", heap_peak() - held, stack);
  return g_result == 0 ? 0 : 1;
}
