// SPDX-License-Identifier: Apache-2.0
//
// The least that can pass for a device: a folder of plain files, one per MTD node. It adds next to
// nothing to the stack and nothing to the heap of a call that it answers, so that what is measured
// on it is the library's. It has no bad block and knows no write protection.
#ifndef TESTS_FOOTPRINT_BARE_DEVICE_H
#define TESTS_FOOTPRINT_BARE_DEVICE_H

#include <cstdint>

constexpr std::uint32_t kEraseBlock = 0x20000;

// From now on "/cache", "/etc_ro", "/proc" and "/dev" lie in this folder.
void use_bare_device(const char* folder);

#endif
