// SPDX-License-Identifier: Apache-2.0
//
// Cuts the power at every flash operation of the library's operations and looks whether the device
// survives.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "cut_name.h"
#include "sweep.h"

namespace cuts {
namespace {

struct Options {
  std::string operation;
  std::string system;
  std::string replay;
  std::uint64_t at_least = 1;
  bool full = false;
  bool stop_at_failure = false;
  SweepOptions sweep;
};

void say_failure(const std::string& name, const std::string& what) {
  std::cout << "FAILED script/power-cut --replay '" << name << "': " << what << std::endl;
}

int replay(const Options& options) {
  const NamedCut cut = parse_cut(options.replay);
  try {
    Trial(cut.scenario).run(cut.first, cut.second);
  } catch (const Lost& lost) {
    say_failure(options.replay, lost.what());
    return 1;
  }
  std::cout << options.replay << ": the device survived\n";
  return 0;
}

// Each geometry meets one or two of the bad-block maps, so that all of both are met, or every one.
bool meets(std::size_t shape, std::size_t map, bool full) {
  return full || map == shape % bad_maps().size();
}

std::vector<Scenario> scenarios(const Operation& operation, sim::System running, bool full) {
  std::vector<Scenario> all;
  for (std::size_t shape = 0; shape < shapes().size(); ++shape) {
    for (std::size_t map = 0; map < bad_maps().size(); ++map) {
      if (meets(shape, map, full)) {
        all.push_back({&operation, running, &shapes()[shape], &bad_maps()[map]});
      }
    }
  }
  return all;
}

void show_progress(const Scenario& scenario, const Tally& tally) {
  if (isatty(STDERR_FILENO) != 0) {
    std::cerr << "\r\033[K" << scenario.name() << ", " << tally.tried() << " cuts so far"
              << std::flush;
  }
}

void hide_progress() {
  if (isatty(STDERR_FILENO) != 0) {
    std::cerr << "\r\033[K";
  }
}

void print_head() {
  std::printf("%-24s %6s %9s %10s %8s %8s %8s %8s\n", "operation", "system", "scenarios",
              "flash ops", "cuts", "words", "second", "failed");
}

void print_row(const std::string& operation, const std::string& system, const Tally& tally) {
  std::printf("%-24s %6s %9llu %10llu %8llu %8llu %8llu %8llu\n", operation.c_str(), system.c_str(),
              static_cast<unsigned long long>(tally.scenarios),
              static_cast<unsigned long long>(tally.flash_operations),
              static_cast<unsigned long long>(tally.cuts),
              static_cast<unsigned long long>(tally.word_cuts),
              static_cast<unsigned long long>(tally.second_cuts),
              static_cast<unsigned long long>(tally.failures));
  static_cast<void>(std::fflush(stdout));
}

Tally try_all(const Operation& operation, sim::System running, const Options& options,
              const Tally& before) {
  Tally tally;
  for (const Scenario& scenario : scenarios(operation, running, options.full)) {
    Tally shown = before;
    show_progress(scenario, shown += tally);
    tally += sweep(scenario, options.sweep, [&](const std::string& name, const std::string& what) {
      say_failure(name, what);
      if (options.stop_at_failure) {
        std::exit(1);
      }
    });
  }
  hide_progress();
  print_row(operation.name, std::string(1, sim::letter(running)), tally);
  return tally;
}

int try_cuts(const Options& options) {
  std::cout << "seed " << options.sweep.seed << std::endl;
  print_head();
  Tally total;
  for (const Operation& operation : operations()) {
    for (const sim::System running : {sim::System::a, sim::System::b}) {
      const bool wanted = (options.operation.empty() || options.operation == operation.name) &&
                          (options.system.empty() || parse_system(options.system) == running);
      if (wanted) {
        total += try_all(operation, running, options, total);
      }
    }
  }
  print_row("all", "", total);
  std::cout << total.tried() << " power cuts tried, " << total.failures << " failed\n";
  if (total.tried() < options.at_least) {
    std::cout << "FAILED: fewer cuts than " << options.at_least << "\n";
    return 1;
  }
  return total.failures == 0 ? 0 : 1;
}

std::vector<std::string> operation_names() {
  std::vector<std::string> names;
  for (const Operation& operation : operations()) {
    names.push_back(operation.name);
  }
  return names;
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app("Cuts the power of a simulated device at every flash operation.", "power-cut");
  app.add_option("--operation", options.operation, "only this operation")
      ->check(CLI::IsMember(operation_names()));
  app.add_option("--system", options.system, "only from this running system")
      ->check(CLI::IsMember({"A", "B"}));
  app.add_option("--replay", options.replay, "try one cut, by the name that a failure shows");
  app.add_flag("--full", options.full, "every geometry with every bad-block map");
  app.add_flag("--stop-at-failure", options.stop_at_failure, "end with the first failure");
  app.add_option("--at-least", options.at_least, "fail when fewer cuts are tried")
      ->capture_default_str();
  app.add_option("--seed", options.sweep.seed, "of the sampled second cuts")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  options.sweep.every_word = options.full;
  return options.replay.empty() ? try_cuts(options) : replay(options);
}

}  // namespace
}  // namespace cuts

int main(int argc, char** argv) {
  try {
    return cuts::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "power-cut: " << error.what() << "\n";
    return 2;
  }
}
