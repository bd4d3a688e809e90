// SPDX-License-Identifier: Apache-2.0
#include "sim/run_program.h"

#include <link.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sim/environment.h"
#include "sim/power.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFaultsFile = "faults.toml";
constexpr const char* kFaultsTaken = "faults.taken";
constexpr long kPollNanoseconds = 50'000'000;
constexpr int kPollsUntilTerm = 20;
constexpr int kPollsUntilKill = 40;

std::string content_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return in ? text.str() : std::string();
}

// --- The environment of the program. ------------------------------------------------------------

// Built side by side, or installed in bin/ and lib/.
fs::path find_library(const std::string& chosen) {
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  const std::vector<fs::path> places = {here / ".." / "lib" / "libzozale_sim.so",
                                        here / ".." / ZOZALE_SIM_LIBDIR / "libzozale_sim.so"};
  if (!chosen.empty()) {
    return fs::canonical(chosen);
  }
  for (const fs::path& place : places) {
    if (fs::exists(place)) {
      return fs::canonical(place);
    }
  }
  throw std::runtime_error("libzozale_sim.so: not found beside " + here.string() +
                           "; name it with --library");
}

// A sanitizer's runtime must come before everything else.
int find_sanitizer(dl_phdr_info* info, std::size_t size, void* out) {
  static_cast<void>(size);
  if (std::strstr(info->dlpi_name, "libasan") != nullptr) {
    *static_cast<std::string*>(out) = info->dlpi_name;
    return 1;
  }
  return 0;
}

std::string preload_value(const fs::path& library) {
  std::string value;
  dl_iterate_phdr(find_sanitizer, &value);
  value += (value.empty() ? "" : ":") + library.string();
  const char* before = std::getenv("LD_PRELOAD");
  return before == nullptr || before[0] == '\0' ? value : value + ":" + before;
}

[[noreturn]] void become(const RunOptions& options, const std::string& preload,
                         const sigset_t& signals) {
  std::vector<char*> arguments;
  for (const std::string& argument : options.command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  setenv("LD_PRELOAD", preload.c_str(), 1);
  setenv(kDeviceVariable, options.device.c_str(), 1);
  if (!options.trace.empty()) {
    setenv(kTraceVariable, options.trace.c_str(), 1);
  }
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  execvp(arguments.front(), arguments.data());
  const int error = errno;
  static_cast<void>(
      std::fprintf(stderr, "zozale-sim: %s: %s\n", arguments.front(), std::strerror(error)));
  _exit(error == ENOENT ? kRunNotFound : kRunNotExecutable);
}

// --- Waiting for its end. -----------------------------------------------------------------------

struct Ended {
  int status = 0;
  bool by_init = false;  // the device went down while the program still ran
};

sigset_t watched_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) {
    sigaddset(&set, signal);
  }
  return set;
}

// Sends what a terminal or a supervisor wants on to the program.
void wait_for_signal(const sigset_t& watched, pid_t child) {
  const timespec pause = {0, kPollNanoseconds};
  const int signal = sigtimedwait(&watched, nullptr, &pause);
  if (signal == SIGTERM || signal == SIGHUP) {
    kill(child, signal);
  }
}

Ended wait_for_end(const Device& device, pid_t child, const sigset_t& watched) {
  Ended ended;
  int polls = 0;
  while (waitpid(child, &ended.status, WNOHANG) == 0) {
    wait_for_signal(watched, child);
    polls += device.power() == Power::rebooting ? 1 : 0;
    if (polls == kPollsUntilTerm || polls == kPollsUntilKill) {
      kill(child, polls == kPollsUntilTerm ? SIGTERM : SIGKILL);
      ended.by_init = true;
    }
  }
  return ended;
}

int exit_code(const Ended& ended) {
  if (ended.by_init) {
    return 0;
  }
  return WIFEXITED(ended.status) ? WEXITSTATUS(ended.status)
                                 : kRunSignalBase + WTERMSIG(ended.status);
}

void tell(const Device& device) {
  if (device.power() == Power::cut) {
    static_cast<void>(std::fprintf(
        stderr, "zozale-sim: the power went; start the device again: zozale-sim reboot %s\n",
        device.folder().c_str()));
  } else if (device.power() == Power::rebooting) {
    static_cast<void>(
        std::fprintf(stderr, "zozale-sim: the program asked for a reboot: zozale-sim reboot %s\n",
                     device.folder().c_str()));
  }
}

void check_power(const Device& device) {
  if (device.power() != Power::on) {
    const char* why =
        device.power() == Power::cut ? "is off after a power cut" : "is going down for a reboot";
    throw std::runtime_error(device.folder().string() + ": the device " + why +
                             "; start it: zozale-sim reboot " + device.folder().string());
  }
}

}  // namespace

void take_over_faults(Device& device) {
  const fs::path file = device.folder() / kFaultsFile;
  const fs::path taken = device.folder() / kFaultsTaken;
  if (!fs::exists(file)) {
    if (fs::remove(taken)) {
      device.faults().clear();
    }
    return;
  }
  if (fs::exists(taken) && content_of(file) == content_of(taken)) {
    return;
  }
  device.apply(read_faults(file));
  fs::copy_file(file, taken, fs::copy_options::overwrite_existing);
}

int run_program(Device& device, const RunOptions& options) {
  check_power(device);
  take_over_faults(device);
  const std::string preload = preload_value(find_library(options.library));
  const sigset_t watched = watched_signals();
  sigset_t before;
  sigprocmask(SIG_BLOCK, &watched, &before);
  const pid_t child = fork();
  if (child < 0) {
    throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
  }
  if (child == 0) {
    become(options, preload, before);
  }
  const Ended ended = wait_for_end(device, child, watched);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  tell(device);
  return device.power() == Power::cut ? kPowerCutStatus : exit_code(ended);
}

}  // namespace sim
