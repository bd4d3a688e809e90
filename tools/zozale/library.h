// SPDX-License-Identifier: Apache-2.0
//
// Calls into the library: its console lines taken off standard output, its answers in the words of
// people. Everything here may write the library's log.
#ifndef ZOZALE_TOOL_LIBRARY_H
#define ZOZALE_TOOL_LIBRARY_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "vemk_fota_ab_upgrade.h"
#include "zozale/log_line.h"
#include "zozale/terms.h"

namespace zozale::tool {

// Follows a call of the library; both functions are called by another thread while it runs.
class Follower {
 public:
  Follower() = default;
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;
  Follower(Follower&&) = delete;
  Follower& operator=(Follower&&) = delete;
  virtual ~Follower() = default;

  virtual void on_line(const LogLine& line) = 0;
  // A few times a second while no line comes.
  virtual void on_tick() = 0;
};

struct SystemHealth {
  int status = 0;  // a T_DUALSYSTEM_STATUS value, or whatever the boot loader stored
  int attempts = 0;
};

struct BootState {
  std::optional<System> target;  // nothing: the record holds neither system
  int fota_status = 0;
  SystemHealth a;
  SystemHealth b;

  const SystemHealth& of(System system) const { return system == System::kA ? a : b; }
};

class Library {
 public:
  // With `verbose` the library's console lines go to standard error.
  explicit Library(bool verbose) : verbose_(verbose) {}

  // Runs `body` with standard output taken away and returns its result.
  int run(const std::function<int()>& body, Follower* follower = nullptr);
  // What the last run() said of failures.
  const FailureTrail& trail() const { return trail_; }

  // Nothing when the kernel command line does not tell.
  std::optional<System> running();
  // Nothing without a valid record.
  std::optional<BootState> boot_state();

 private:
  void take_line(std::string_view text, Follower* follower);

  bool verbose_;
  FailureTrail trail_;
};

// The running system, or Failure(kExitDeviceUnfit).
System require_running(const std::optional<System>& running);

}  // namespace zozale::tool

#endif
