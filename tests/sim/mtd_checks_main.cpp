// SPDX-License-Identifier: Apache-2.0
//
// mtd_checks NODE [protects=0] [worn=BLOCK] [failing=BLOCK:PAGE] [unreadable=BLOCK:PAGE]
#include <cstdio>
#include <cstring>

#include "mtd_checks.h"

namespace {

bool parse(const char* argument, mtd_checks::Device& device) {
  int block = 0;
  int page = 0;
  if (std::sscanf(argument, "protects=%d", &block) == 1) {
    device.protects = block != 0;
  } else if (std::sscanf(argument, "worn=%d", &block) == 1) {
    device.worn_block = block;
  } else if (std::sscanf(argument, "failing=%d:%d", &block, &page) == 2) {
    device.failing_page = mtd_checks::PageAt{block, page};
  } else if (std::sscanf(argument, "unreadable=%d:%d", &block, &page) == 2) {
    device.unreadable_page = mtd_checks::PageAt{block, page};
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  mtd_checks::Device device;
  bool understood = argc > 1;
  for (int i = 2; i < argc; ++i) {
    understood = understood && parse(argv[i], device);
  }
  if (!understood) {
    static_cast<void>(std::fprintf(stderr,
                                   "usage: mtd_checks NODE [protects=0] [worn=BLOCK] "
                                   "[failing=BLOCK:PAGE] [unreadable=BLOCK:PAGE]\n"));
    return 2;
  }
  device.node = argv[1];
  return mtd_checks::run(device, stdout) ? 0 : 1;
}
