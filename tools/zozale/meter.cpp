// SPDX-License-Identifier: Apache-2.0
#include "zozale/meter.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace zozale::tool {
namespace {

// A written byte costs about this many times the flash's time of one that is only read.
constexpr std::array<uint64_t, 2> kWeights = {2, 3};
constexpr int kNotQuiteDone = 99;

}  // namespace

void Meter::plan(Work work, uint64_t bytes) {
  account(work).planned += bytes;
}

void Meter::begin_step(Work work, const std::string& stage, const std::string& partition,
                       uint64_t bytes) {
  end_step();
  work_ = work;
  reading_.stage = stage;
  reading_.partition = partition;
  reading_.bytes_done = 0;
  reading_.bytes_total = bytes;
  step_start_ = clock_();
  in_step_ = true;
}

void Meter::reach(uint64_t bytes) {
  const uint64_t reached = std::clamp(bytes, reading_.bytes_done, reading_.bytes_total);
  account(work_).done += reached - reading_.bytes_done;
  reading_.bytes_done = reached;
}

void Meter::end_step() {
  if (!in_step_) {
    return;
  }
  in_step_ = false;
  reach(reading_.bytes_total);
  account(work_).timed += reading_.bytes_total;
  account(work_).seconds += clock_() - step_start_;
}

void Meter::skip(Work work, uint64_t bytes) {
  account(work).done += bytes;
}

void Meter::finish() {
  end_step();
  reading_ = {};
  reading_.stage = "done";
  finished_ = true;
}

MeterReading Meter::reading() const {
  MeterReading reading = reading_;
  reading.percent = percent();
  reading.seconds_left = seconds_left();
  return reading;
}

int Meter::percent() const {
  if (finished_) {
    return 100;
  }
  uint64_t planned = 0;
  uint64_t done = 0;
  for (size_t kind = 0; kind < accounts_.size(); ++kind) {
    planned += accounts_.at(kind).planned * kWeights.at(kind);
    done += std::min(accounts_.at(kind).done, accounts_.at(kind).planned) * kWeights.at(kind);
  }
  const uint64_t share = planned == 0 ? 0 : done * 100 / planned;
  return static_cast<int>(std::min<uint64_t>(share, kNotQuiteDone));
}

std::optional<int64_t> Meter::seconds_left() const {
  const std::optional<double> reading = open_seconds(Work::kRead);
  const std::optional<double> writing = open_seconds(Work::kWrite);
  if (finished_ || !reading || !writing) {
    return std::nullopt;
  }
  return std::llround(*reading + *writing);
}

std::optional<double> Meter::open_seconds(Work work) const {
  const Account& account = accounts_.at(static_cast<size_t>(work));
  const uint64_t open = account.planned - std::min(account.done, account.planned);
  if (open == 0) {
    return 0.0;
  }
  const bool running = in_step_ && work_ == work;
  const uint64_t bytes = account.timed + (running ? reading_.bytes_done : 0);
  if (bytes == 0) {
    return std::nullopt;
  }
  const double seconds = account.seconds + (running ? clock_() - step_start_ : 0.0);
  return seconds * static_cast<double>(open) / static_cast<double>(bytes);
}

double monotonic_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace zozale::tool
