// SPDX-License-Identifier: Apache-2.0
//
// Lets many simulated devices live, each with a flash, faults and power cuts of its own, and counts
// those that do not come back.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <climits>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "life.h"

namespace fleet {
namespace {

struct Options {
  std::uint64_t devices = 300;
  std::uint64_t seed = 1;
  std::uint64_t jobs = 2;
  std::optional<std::uint64_t> device;
  std::vector<std::string> at_least;  // "cuts=1000"
};

Report live(const Options& options, std::uint64_t number) {
  Life life(options.seed, number);
  Report report;
  try {
    life.live();
    report = life.report();
  } catch (const DeviceLost& lost) {
    report = life.report();
    report.lost = 1;
    std::cout << "LOST script/fleet --seed " << options.seed << " --device " << number << ": "
              << lost.what() << std::endl;
  }
  return report;
}

void show_progress(std::uint64_t done, std::uint64_t all) {
  constexpr std::size_t kWidth = 40;
  if (isatty(STDERR_FILENO) != 0) {
    const auto filled = static_cast<std::size_t>(kWidth * done / all);
    std::cerr << "\r[" << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] "
              << done << " of " << all << std::flush;
  }
}

void hide_progress() {
  if (isatty(STDERR_FILENO) != 0) {
    std::cerr << "\r\033[K";
  }
}

// A report crosses the pipe in one piece.
static_assert(sizeof(Report) <= PIPE_BUF && std::is_trivially_copyable_v<Report>);

// Every so-manieth device; a report for each goes into the pipe.
[[noreturn]] void work(const Options& options, std::uint64_t first, int pipe) {
  for (std::uint64_t number = first; number < options.devices; number += options.jobs) {
    const Report report = live(options, number);
    if (write(pipe, &report, sizeof report) != sizeof report) {
      _exit(1);
    }
  }
  _exit(0);
}

void start_workers(const Options& options, int pipe) {
  for (std::uint64_t job = 0; job < options.jobs; ++job) {
    const pid_t worker = fork();
    if (worker < 0) {
      throw std::runtime_error("a process cannot be started");
    }
    if (worker == 0) {
      work(options, job, pipe);
    }
  }
}

Report live_all(const Options& options) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    throw std::runtime_error("a pipe cannot be made");
  }
  start_workers(options, ends[1]);
  close(ends[1]);
  Report sum;
  Report one;
  while (read(ends[0], &one, sizeof one) == sizeof one) {
    sum += one;
    show_progress(sum.devices, options.devices);
  }
  close(ends[0]);
  hide_progress();
  if (sum.devices != options.devices) {
    throw std::runtime_error("only " + std::to_string(sum.devices) + " devices came to an end");
  }
  return sum;
}

// A fleet to which nothing happens comes back, too.
bool met_enough(const Report& report, const Options& options) {
  bool enough = true;
  for (const std::string& floor : options.at_least) {
    const std::size_t equals = floor.find('=');
    const std::uint64_t value = value_of(report, floor.substr(0, equals));
    if (equals == std::string::npos || value < std::stoull(floor.substr(equals + 1))) {
      std::cout << "FAILED: at least " << floor << " is wanted, found " << value << "\n";
      enough = false;
    }
  }
  return enough;
}

int run_fleet(const Options& options) {
  const Report report = options.device ? live(options, *options.device) : live_all(options);
  std::cout << table(report) << json_line(report, options.seed) << std::endl;
  return met_enough(report, options) && report.lost == 0 ? 0 : 1;
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app("Lets many simulated devices live and counts those that do not come back.", "fleet");
  app.add_option("--devices", options.devices, "how many")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{100000000}))
      ->capture_default_str();
  app.add_option("--seed", options.seed, "of everything that is random")->capture_default_str();
  app.add_option("--jobs", options.jobs, "processes that share the work")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{64}))
      ->capture_default_str();
  app.add_option("--device", options.device, "only this one, counted from 0");
  app.add_option("--at-least", options.at_least,
                 "KEY=N: fail when that number of the JSON line is less");
  CLI11_PARSE(app, argc, argv);
  return run_fleet(options);
}

}  // namespace
}  // namespace fleet

int main(int argc, char** argv) {
  try {
    return fleet::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "fleet: " << error.what() << "\n";
    return 2;
  }
}
