// SPDX-License-Identifier: Apache-2.0
//
// zozale-sim: makes a simulated device, runs programs on it, restarts it, shows it.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "sim/boot_loader.h"
#include "sim/power.h"
#include "sim/report.h"
#include "sim/run_program.h"

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kDoesNotComeUp = 3;

struct Options {
  std::string device;
  std::string layout;
  std::string partition;
  std::string file;
  bool raw = false;
  bool json = false;
  std::vector<std::string> dead;
  int limit = 20;
  sim::RunOptions run;
};

int create(const Options& options) {
  const sim::Device device = sim::Device::create(options.device, sim::read_layout(options.layout));
  const sim::Geometry& geometry = device.layout().geometry;
  std::cout << "Made " << options.device << ": " << device.partition_count() << " partitions, "
            << geometry.blocks << " blocks of " << geometry.block_size() / 1024 << " KiB.\n";
  return kDone;
}

int run(const Options& options) {
  sim::RunOptions run = options.run;
  run.device = std::filesystem::absolute(options.device);
  if (!run.trace.empty()) {
    run.trace = std::filesystem::absolute(run.trace);
  }
  sim::Device device = sim::Device::open(options.device);
  return sim::run_program(device, run);
}

std::vector<sim::System> dead_systems(const Options& options) {
  std::vector<sim::System> dead;
  for (const std::string& name : options.dead) {
    dead.push_back(name == "A" ? sim::System::a : sim::System::b);
  }
  return dead;
}

// The boot loader writes flash too, so a power cut may strike it.
[[noreturn]] void power_went() {
  std::cerr << "zozale-sim: the power went while the boot loader wrote; start the device again.\n";
  std::_Exit(sim::kPowerCutStatus);
}

int reboot(const Options& options) {
  sim::Device device = sim::Device::open(options.device);
  sim::on_power_cut(power_went);
  const auto history = sim::boot_until_up(device, dead_systems(options), options.limit);
  int number = 0;
  for (const sim::BootResult& result : history.boots) {
    const bool last = ++number == static_cast<int>(history.boots.size());
    std::cout << "Start " << number << ", " << sim::boot_text(result) << ".\n";
    if (!(last && history.up)) {
      std::cout << "  It does not come up; the watchdog restarts the device.\n";
    }
  }
  if (!history.up) {
    std::cerr << "zozale-sim: the device did not come up in " << options.limit << " starts.\n";
    return kDoesNotComeUp;
  }
  std::cout << "The device runs system " << sim::letter(device.running()) << ".\n";
  return kDone;
}

int show(const Options& options) {
  sim::Device device = sim::Device::open(options.device);
  std::cout << (options.json ? sim::device_json(device) : sim::device_text(device));
  return kDone;
}

sim::Partition named_partition(sim::Device& device, const std::string& name) {
  const auto number = device.find_partition(name);
  if (!number) {
    std::string names;
    for (std::uint32_t i = 0; i < device.partition_count(); ++i) {
      names += " " + device.partition(i).name();
    }
    throw std::runtime_error("no partition \"" + name + "\"; the device has:" + names);
  }
  return device.partition(*number);
}

int dump(const Options& options) {
  sim::Device device = sim::Device::open(options.device);
  const sim::Partition partition = named_partition(device, options.partition);
  const sim::Bytes bytes = options.raw ? partition.raw() : partition.good();
  std::ofstream out(options.file, std::ios::binary | std::ios::trunc);
  std::copy(bytes.begin(), bytes.end(), std::ostreambuf_iterator<char>(out));
  out.close();
  if (!out) {
    throw std::runtime_error(options.file + ": cannot be written");
  }
  std::cout << "Wrote " << bytes.size() << " bytes of \"" << options.partition << "\" to "
            << options.file << ".\n";
  return kDone;
}

int flash(const Options& options) {
  std::ifstream in(options.file, std::ios::binary);
  if (!in) {
    throw std::runtime_error(options.file + ": cannot be read");
  }
  const sim::Bytes bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  sim::Device device = sim::Device::open(options.device);
  named_partition(device, options.partition).flash(bytes);
  std::cout << "Put " << bytes.size() << " bytes into \"" << options.partition << "\".\n";
  return kDone;
}

using Command = int (*)(const Options&);

// Adds a subcommand that works on a device folder.
CLI::App* add(CLI::App& app, Options& options, const char* name, const char* what, Command command,
              Command& chosen) {
  CLI::App* sub = app.add_subcommand(name, what);
  sub->add_option("DEVICE", options.device, "The device's folder")->required();
  sub->callback([command, &chosen] { chosen = command; });
  return sub;
}

void add_device_commands(CLI::App& app, Options& options, Command& chosen) {
  add(app, options, "create", "Make a device", create, chosen)
      ->add_option("--layout", options.layout, "TOML file: geometry, partitions, bad blocks")
      ->required();
  CLI::App* restart = add(app, options, "reboot", "Start the device again", reboot, chosen);
  restart
      ->add_option("--does-not-come-up", options.dead,
                   "Play a system that never comes up: restart until another one is started")
      ->check(CLI::IsMember({"A", "B"}));
  restart->add_option("--limit", options.limit, "Most starts to try")->check(CLI::Range(1, 1000));
  add(app, options, "show", "Show slots, boot flags, wear, bad blocks and store", show, chosen)
      ->add_flag("--json", options.json, "For programs");
}

void add_flash_commands(CLI::App& app, Options& options, Command& chosen) {
  CLI::App* read = add(app, options, "dump", "Read a partition past its bad blocks", dump, chosen);
  read->add_option("PARTITION", options.partition)->required();
  read->add_option("FILE", options.file, "File to write")->required();
  read->add_flag("--raw", options.raw, "Every block, bad ones too");
  CLI::App* fill = add(app, options, "flash", "Fill a partition as a factory would", flash, chosen);
  fill->add_option("PARTITION", options.partition)->required();
  fill->add_option("FILE", options.file, "File to put into it")->required();
}

void add_run_command(CLI::App& app, Options& options, Command& chosen) {
  CLI::App* sub = add(app, options, "run", "Run a program on the device", run, chosen);
  sub->add_option("--trace", options.run.trace, "Append a line for each call to this file");
  sub->add_option("--library", options.run.library, "The libzozale_sim.so to preload");
  sub->add_option("PROGRAM", options.run.command, "Program and arguments, after \"--\"")
      ->required();
}

int main_guarded(int argc, char** argv) {
  CLI::App app("A simulated A/B device with raw NAND flash", "zozale-sim");
  app.set_version_flag("--version", ZOZALE_VERSION);
  app.require_subcommand(1);
  Options options;
  Command chosen = nullptr;
  add_device_commands(app, options, chosen);
  add_flash_commands(app, options, chosen);
  add_run_command(app, options, chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUsage;
  }
  return chosen(options);
}

bool runs_a_program(int argc, char** argv) {
  return argc > 1 && std::string_view(argv[1]) == "run";
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return main_guarded(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "zozale-sim: " << error.what() << "\n";
    return runs_a_program(argc, argv) ? sim::kRunCannotStart : kFailed;
  }
}
