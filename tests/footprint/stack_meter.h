// SPDX-License-Identifier: Apache-2.0
//
// Runs a function on a stack of its own and tells how deep it went.
#ifndef TESTS_FOOTPRINT_STACK_METER_H
#define TESTS_FOOTPRINT_STACK_METER_H

#include <cstddef>

// Bytes of stack below the caller of `body` that were written while it ran.
std::size_t stack_used_by(void (*body)());

#endif
