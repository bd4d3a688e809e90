// SPDX-License-Identifier: Apache-2.0
//
// The commands that change the boot flag record.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <functional>

#include "zozale/flags.h"
#include "zozale/session.h"

namespace zozale::tool {
namespace {

System asked_system(const Options& options) {
  return options.system == "A" ? System::kA : System::kB;
}

const T_DualSystem_Status& entry_of(const FlagCopy& copy, System system) {
  return system == System::kA ? copy.record.boot_flag.system : copy.record.boot_flag.system2;
}

bool boots_next(const FlagCopy& copy, System system) {
  return copy.record.boot_flag.boot_to == code_of(system);
}

using Test = std::function<bool(const FlagCopy&)>;

Failure change_failure(const Library& library, const std::string& change) {
  return {kExitFailed,
          {change + " failed",
           "the boot flag record rewritten",
           "it is not",
           "run 'zozale doctor' to see the state of the flags partition",
           {},
           library.trail().lines()}};
}

// Lets the library change the record and looks whether it did: the library can report success with
// a flags partition that takes no write.
void change(Session& session, const std::string& what, const std::function<int()>& call,
            const Test& changed) {
  const int result = session.library.run(call);
  const Flags flags = read_flags(MtdTable::read());
  const FlagCopy* copy = flags.read();
  if (result != 0 || copy == nullptr || !changed(*copy)) {
    throw change_failure(session.library, what);
  }
}

Flags require_flags() {
  Flags flags = read_flags(MtdTable::read());
  require_usable(flags);
  return flags;
}

// Whether both copies say already what is asked for.
bool already(const Flags& flags, const Test& test) {
  return flags.agree() && test(*flags.read());
}

void tell(Session& session, bool nothing_to_do, const std::string& text) {
  session.report.data()["nothing_to_do"] = nothing_to_do;
  session.report.say(text + (nothing_to_do ? " already; nothing was written." : "."));
}

void warn_of_dead_target(Session& session, const Flags& flags, System target) {
  if (entry_of(*flags.read(), target).status == DUALSYSTEM_STATUS_UNBOOTABLE) {
    session.report.warn(in_words(target) +
                        " is marked unbootable: the boot loader will not start "
                        "it; install or synchronise it first");
  }
}

void warn_of_own_end(Session& session, System system) {
  if (session.library.running() == system) {
    session.report.warn(in_words(system) + " is running: without a bootable " +
                        in_words(other(system)) + " the device will not start again");
  }
}

bool asks_on_a_terminal(const std::string& question) {
  fprintf(stderr, "%s [y/N] ", question.c_str());
  fflush(stderr);
  std::array<char, 16> answer{};
  return fgets(answer.data(), static_cast<int>(answer.size()), stdin) != nullptr &&
         (answer[0] == 'y' || answer[0] == 'Y');
}

void require_consent() {
  if (isatty(STDIN_FILENO) != 1) {
    throw Failure(kExitUsage,
                  {"the flags partition holds a valid record, which would be lost",
                   "--force, or a terminal to ask on", "neither", "give --force to overwrite it"});
  }
  if (!asks_on_a_terminal("The flags partition holds a valid record. Overwrite it?")) {
    throw Failure(kExitFailed, {"the boot flag record was kept", "the answer y", "another answer",
                                "run 'zozale init-flags' again to overwrite it"});
  }
}

bool is_fresh(const FlagCopy& copy) {
  return boots_next(copy, System::kA) && copy.record.boot_flag.fota_status == 0 &&
         entry_of(copy, System::kA).status == DUALSYSTEM_STATUS_BOOTABLE &&
         entry_of(copy, System::kB).status == DUALSYSTEM_STATUS_BOOTABLE;
}

}  // namespace

ExitCode switch_system(Session& session) {
  const System target = asked_system(session.options);
  const bool reboot = session.options.reboot;
  const Flags flags = require_flags();
  const Test switched = [target](const FlagCopy& copy) { return boots_next(copy, target); };
  session.report.data()["boot_target"] = letter(target);
  session.report.data()["reboot"] = reboot;
  warn_of_dead_target(session, flags, target);
  const bool nothing_to_do = already(flags, switched);
  if (reboot || !nothing_to_do) {
    change(
        session, "switching to " + in_words(target),
        [target, reboot] { return vemk_dual_set_boot_to_system(code_of(target), reboot ? 1 : 0); },
        switched);
  }
  tell(session, nothing_to_do && !reboot, "System " + letter(target) + " boots next");
  if (reboot) {
    session.report.say("The device reboots.");
  }
  return kExitDone;
}

ExitCode mark(Session& session) {
  const System system = asked_system(session.options);
  const int status = *health_code(session.options.health);
  const Flags flags = require_flags();
  const Test marked = [system, status](const FlagCopy& copy) {
    return entry_of(copy, system).status == status;
  };
  session.report.data()["system"] = letter(system);
  session.report.data()["status"] = session.options.health;
  if (status == DUALSYSTEM_STATUS_UNBOOTABLE) {
    warn_of_own_end(session, system);
  }
  const bool nothing_to_do = already(flags, marked);
  if (!nothing_to_do) {
    change(
        session, "marking " + in_words(system) + " " + session.options.health,
        [system, status] { return vemk_dual_set_system_status(code_of(system), status); }, marked);
  }
  tell(session, nothing_to_do, "System " + letter(system) + " is marked " + session.options.health);
  return kExitDone;
}

ExitCode acknowledge(Session& session) {
  const Flags flags = require_flags();
  const Test cleared = [](const FlagCopy& copy) { return copy.record.boot_flag.fota_status == 0; };
  const bool nothing_to_do = already(flags, cleared);
  if (!nothing_to_do) {
    change(
        session, "clearing the fota status", [] { return vemk_dual_set_fota_status_for_nv(0); },
        cleared);
  }
  session.report.data()["fota_status"] = 0;
  tell(session, nothing_to_do, "The fota status is clear");
  return kExitDone;
}

ExitCode init_flags(Session& session) {
  const bool had_record = read_flags(MtdTable::read()).read() != nullptr;
  session.report.data()["overwritten"] = had_record;
  if (had_record && !session.options.force) {
    require_consent();
  }
  change(
      session, "writing a fresh boot flag record", [] { return vemk_init_flag_partition(); },
      is_fresh);
  session.report.say(
      "The flags partition holds a fresh record: system A boots next, both systems "
      "are bootable.");
  return kExitDone;
}

}  // namespace zozale::tool
