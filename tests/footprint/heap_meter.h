// SPDX-License-Identifier: Apache-2.0
//
// Counts the memory that the process holds by malloc() and its kind, as the C library rounds it
// up, in bytes.
#ifndef TESTS_FOOTPRINT_HEAP_METER_H
#define TESTS_FOOTPRINT_HEAP_METER_H

#include <cstddef>

// What is held now.
std::size_t heap_held();
// The most that was held since the last reset, which sets it to what is held then.
std::size_t heap_peak();
void reset_heap_peak();

#endif
