// SPDX-License-Identifier: Apache-2.0
//
// The C library's own definition of an interposed function.
#ifndef SIM_REAL_H
#define SIM_REAL_H

#include <dlfcn.h>

// Declares `real_<function>`; looked up at first use, since programs call before constructors ran.
#define REAL(function)                \
  static const auto real_##function = \
      reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

#endif
