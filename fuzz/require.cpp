// SPDX-License-Identifier: Apache-2.0
#include "fuzz/require.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

void fail(const char* file, int line, const char* condition) {
  static_cast<void>(std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition));
  std::abort();
}

}  // namespace fuzz
