// SPDX-License-Identifier: Apache-2.0
#include "zozale/library.h"

#include <cstdio>

#include "zozale/capture.h"
#include "zozale/failure.h"

namespace zozale::tool {

int Library::run(const std::function<int()>& body, Follower* follower) {
  trail_.clear();
  const Capture capture([this, follower](std::string_view text) { take_line(text, follower); },
                        [follower] {
                          if (follower != nullptr) {
                            follower->on_tick();
                          }
                        });
  return body();
}

void Library::take_line(std::string_view text, Follower* follower) {
  if (verbose_) {
    fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  }
  const std::optional<LogLine> line = parse_log_line(text);
  if (!line) {
    return;
  }
  trail_.add(*line);
  if (follower != nullptr) {
    follower->on_line(*line);
  }
}

std::optional<System> Library::running() {
  return system_of_code(run([] { return vemk_dual_get_current_system(); }));
}

std::optional<BootState> Library::boot_state() {
  z_upgrade_system_info_t info = {};
  if (run([&info] { return vemk_dual_get_system_status(&info); }) != 0) {
    return std::nullopt;
  }
  BootState state;
  state.target = system_of_code(info.boot_to);
  state.fota_status = info.fota_status;
  state.a = {info.system_1.status, info.system_1.try_cnt};
  state.b = {info.system_2.status, info.system_2.try_cnt};
  return state;
}

System require_running(const std::optional<System>& running) {
  if (running) {
    return *running;
  }
  throw Failure(
      kExitDeviceUnfit,
      {"the running system is unknown", "system=system_a or system=system_b in /proc/cmdline",
       "neither, as a word of its own between blanks",
       "let the boot loader name the running system on the kernel command line"});
}

}  // namespace zozale::tool
