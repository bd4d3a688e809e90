// SPDX-License-Identifier: Apache-2.0
#include "library_run.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "fake_clock.h"

bool LibraryRun::said(const std::string& function, const std::string& message) const {
  return support::has_line(log, {function, message});
}

bool LibraryRun::said_in_order(const std::vector<support::LogLine>& lines) const {
  auto next = lines.begin();
  for (const support::LogLine& line : log) {
    if (next != lines.end() && line == *next) {
      ++next;
    }
  }
  return next == lines.end();
}

bool LibraryRun::told_of(const std::string& part) const {
  return std::any_of(log.begin(), log.end(), [&](const support::LogLine& line) {
    return line.message.find(part) != std::string::npos;
  });
}

std::vector<std::string> LibraryRun::messages_of(const std::string& function) const {
  std::vector<std::string> found;
  for (const support::LogLine& line : log) {
    if (line.function == function) {
      found.push_back(line.message);
    }
  }
  return found;
}

std::vector<sim::Call> LibraryRun::made(sim::Op op, const std::string& where) const {
  std::vector<sim::Call> found;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(found), [&](const sim::Call& call) {
    return call.op == op && (where.empty() || where == call.partition || where == call.path);
  });
  return found;
}

std::size_t LibraryRun::first(sim::Op op, const std::string& partition) const {
  const auto found = std::find_if(calls.begin(), calls.end(), [&](const sim::Call& call) {
    return call.op == op && call.partition == partition;
  });
  return static_cast<std::size_t>(found - calls.begin());
}

LibraryRun run_library(const std::function<int()>& call, const sim::RecordOptions& options) {
  LibraryRun run;
  std::optional<FakeClock> still;
  if (!FakeClock::exists()) {
    still.emplace(std::vector<std::uint64_t>{0});
  }
  const std::size_t sets = sim::store_sets().size();
  const std::uint64_t saves = sim::store_saves();
  const sim::Recording recording(options);
  run.log = support::logged([&] { run.result = call(); });
  run.calls = recording.calls();
  run.store.assign(sim::store_sets().begin() + static_cast<std::ptrdiff_t>(sets),
                   sim::store_sets().end());
  run.saves = sim::store_saves() - saves;
  return run;
}
