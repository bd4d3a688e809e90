// SPDX-License-Identifier: Apache-2.0
//
// How far an operation is: bytes read and bytes written, and from their pace the time left.
#ifndef ZOZALE_TOOL_METER_H
#define ZOZALE_TOOL_METER_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zozale::tool {

// What a step does; each kind has a pace of its own.
enum class Work { kRead, kWrite };

struct MeterReading {
  std::string stage;      // what is being done: "writing"
  std::string partition;  // to what; empty when it is the package
  uint64_t bytes_done = 0;
  uint64_t bytes_total = 0;  // of this step
  uint32_t bad_blocks_skipped = 0;
  int percent = 0;  // of the whole operation; 100 only after finish()
  std::optional<int64_t> seconds_left;
};

class Meter {
 public:
  using Clock = std::function<double()>;  // seconds from any start

  explicit Meter(Clock clock) : clock_(std::move(clock)) {}

  // Adds to the work of the whole operation, all of it before the first step.
  void plan(Work work, uint64_t bytes);

  // Ends the step before, if any, and begins one of `bytes` planned bytes.
  void begin_step(Work work, const std::string& stage, const std::string& partition,
                  uint64_t bytes);
  // Bytes of the current step that are done by now; never counts backwards or beyond the step.
  void reach(uint64_t bytes);
  void advance(uint64_t bytes) { reach(reading_.bytes_done + bytes); }
  // The current step is done in full.
  void end_step();
  // Planned bytes that need no work after all.
  void skip(Work work, uint64_t bytes);
  void skip_bad_block() { ++reading_.bad_blocks_skipped; }
  void forget_bad_blocks() { reading_.bad_blocks_skipped = 0; }
  // The operation has succeeded, its last check included.
  void finish();

  MeterReading reading() const;
  // The kind of the current step, or of the last.
  Work working_on() const { return work_; }

 private:
  struct Account {
    uint64_t planned = 0;
    uint64_t done = 0;     // skipped bytes too
    uint64_t timed = 0;    // bytes of steps whose time is known
    double seconds = 0.0;  // that they took
  };
  Account& account(Work work) { return accounts_.at(static_cast<size_t>(work)); }
  int percent() const;
  std::optional<int64_t> seconds_left() const;
  // Seconds that `account`'s open bytes will take at the pace of its bytes so far.
  std::optional<double> open_seconds(Work work) const;

  Clock clock_;
  std::array<Account, 2> accounts_;
  MeterReading reading_;
  Work work_ = Work::kRead;
  double step_start_ = 0.0;
  bool in_step_ = false;
  bool finished_ = false;
};

// Seconds of a clock that no one sets back.
double monotonic_seconds();

}  // namespace zozale::tool

#endif
