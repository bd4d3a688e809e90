// SPDX-License-Identifier: Apache-2.0
#include "fake_clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

namespace {

FakeClock* g_clock = nullptr;

}  // namespace

FakeClock::FakeClock(std::vector<std::uint64_t> microseconds)
    : microseconds_(std::move(microseconds)) {
  g_clock = this;
}

FakeClock::~FakeClock() {
  g_clock = nullptr;
}

bool FakeClock::exists() {
  return g_clock != nullptr;
}

std::uint64_t FakeClock::read() {
  return microseconds_[std::min(readings_++, microseconds_.size() - 1)];
}

// The library finds this one before the C library's.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (clock != CLOCK_REALTIME || g_clock == nullptr) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  }
  const std::uint64_t now = g_clock->read();
  time->tv_sec = static_cast<time_t>(now / 1000000);
  time->tv_nsec = static_cast<long>(now % 1000000) * 1000;
  return 0;
}
