// SPDX-License-Identifier: Apache-2.0
//
// Replaces CLOCK_REALTIME of this process, as clock_gettime() tells it, for as long as one exists.
#ifndef TESTS_UNIT_FAKE_CLOCK_H
#define TESTS_UNIT_FAKE_CLOCK_H

#include <cstddef>
#include <cstdint>
#include <vector>

class FakeClock {
 public:
  // What the clock tells, in microseconds, reading by reading; the last value stays.
  explicit FakeClock(std::vector<std::uint64_t> microseconds);
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  static bool exists();
  std::size_t readings() const { return readings_; }
  std::uint64_t read();

 private:
  std::vector<std::uint64_t> microseconds_;
  std::size_t readings_ = 0;
};

#endif
