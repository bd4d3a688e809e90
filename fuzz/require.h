// SPDX-License-Identifier: Apache-2.0
//
// What a fuzz target finds wrong, told in one line before the process ends.
#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

namespace fuzz {

// Ends the process as a crash does: the fuzzer keeps the input.
[[noreturn]] void fail(const char* file, int line, const char* condition);

}  // namespace fuzz

#define REQUIRE(condition) \
  ((condition) ? static_cast<void>(0) : ::fuzz::fail(__FILE__, __LINE__, #condition))

#endif
