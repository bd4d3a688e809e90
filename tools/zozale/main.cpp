// SPDX-License-Identifier: Apache-2.0
//
// The command line of zozale.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

#include "common/exit_codes.h"
#include "zozale-package/demand_options.h"
#include "zozale/capture.h"
#include "zozale/session.h"

namespace {

using zozale::tool::Options;
using zozale::tool::Session;
using Command = std::function<zozale::ExitCode(Session&)>;

class CommandLine {
 public:
  CommandLine();
  // Returns the exit code.
  int run(int argc, char** argv);

 private:
  CLI::App* add(const std::string& name, const std::string& what, Command command);
  void add_system(CLI::App* command);
  void add_package_commands();
  void add_boot_commands();
  void add_observers();
  int run_command();

  CLI::App app_{"Steers and upgrades the two systems, A and B, of this device.", "zozale"};
  Options options_;
  Command command_;
};

CommandLine::CommandLine() {
  app_.set_version_flag("--version", ZOZALE_VERSION);
  app_.require_subcommand(0, 1);
  app_.footer(
      "Exit codes: 0 done, 1 the operation failed, 2 wrong usage, 3 the package is bad,\n"
      "4 the device is not fit, 5 the package was exchanged between check and use.");
  add_package_commands();
  add_boot_commands();
  add_observers();
}

CLI::App* CommandLine::add(const std::string& name, const std::string& what, Command command) {
  CLI::App* sub = app_.add_subcommand(name, what);
  sub->add_flag("--json", options_.json, "Tell the result as one JSON document");
  sub->add_flag("--verbose", options_.verbose, "Show the library's log lines on standard error");
  sub->callback([this, name, command = std::move(command)] {
    options_.command = name;
    command_ = command;
  });
  return sub;
}

void CommandLine::add_system(CLI::App* command) {
  command->add_option("system", options_.system, "A or B")
      ->required()
      ->transform(CLI::IsMember({"A", "B"}, CLI::ignore_case));
}

void CommandLine::add_package_commands() {
  add_demand_options(
      *add("verify", "Verify the package at its place on this device", zozale::tool::verify),
      options_.demands);
  add("type", "Tell which partitions the package carries", zozale::tool::show_type);
  CLI::App* install_command =
      add("install", "Verify the package and install it into the system that does not run",
          zozale::tool::install);
  install_command->add_flag("--dry-run", options_.dry_run, "Show the plan; write nothing");
  add_demand_options(*install_command, options_.demands);
  add("sync", "Make the system that does not run a copy of the running one", zozale::tool::sync)
      ->add_flag("--dry-run", options_.dry_run, "Show the plan; write nothing");
}

void CommandLine::add_boot_commands() {
  CLI::App* switch_command =
      add("switch", "Choose the system that boots next", zozale::tool::switch_system);
  add_system(switch_command);
  switch_command->add_flag("--reboot", options_.reboot, "Reboot into it");
  CLI::App* mark_command = add("mark", "Record the health of a system", zozale::tool::mark);
  add_system(mark_command);
  mark_command->add_option("status", options_.health, "bootable, successful or unbootable")
      ->required()
      ->check(CLI::IsMember({"bootable", "successful", "unbootable"}));
  add("acknowledge", "Acknowledge a switch: clear the fota status", zozale::tool::acknowledge);
  add("init-flags", "Write a fresh boot flag record", zozale::tool::init_flags)
      ->add_flag("--force", options_.force, "Overwrite a valid record without asking");
}

void CommandLine::add_observers() {
  add("status", "Show both systems and the last operations", zozale::tool::show_status);
  CLI::App* watch_command =
      add("watch", "Follow the operation that is under way", zozale::tool::watch);
  watch_command->add_option("--interval", options_.interval, "Seconds between two looks")
      ->check(CLI::Range(0.01, 3600.0))
      ->capture_default_str();
  watch_command
      ->add_option("--timeout", options_.timeout,
                   "Give up after so many seconds without a change; 0 never does")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  add("doctor", "Examine everything that an upgrade relies on", zozale::tool::doctor);
}

int CommandLine::run(int argc, char** argv) {
  try {
    app_.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app_.exit(error) == 0 ? zozale::kExitDone : zozale::kExitUsage;
  }
  if (!command_) {
    fputs(
        "zozale: no command is given\n"
        "  expected: one command\n  found:    none\n  next:     see 'zozale --help'\n",
        stderr);
    return zozale::kExitUsage;
  }
  return run_command();
}

int CommandLine::run_command() {
  Session session(options_);
  zozale::ExitCode code = zozale::kExitFailed;
  try {
    code = command_(session);
  } catch (const zozale::Error& error) {
    session.report.fail(zozale::tool::trouble_of(error));
    code = error.code();
  } catch (const std::exception& error) {
    session.report.fail({error.what(), "", "", "report this as a fault of zozale"});
  }
  return session.report.finish(code);
}

}  // namespace

int main(int argc, char** argv) {
  zozale::tool::prepare_standard_streams();
  try {
    return CommandLine().run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "zozale: %s\n", error.what());
    return zozale::kExitFailed;
  }
}
