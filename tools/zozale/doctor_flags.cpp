// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstdio>

#include "zozale/doctor.h"

namespace zozale::tool {
namespace {

constexpr uint32_t kNeededBlocks = 2;
constexpr const char* kRewrite =
    "run 'zozale init-flags --force' to write a fresh record, then set "
    "what 'zozale status' shows now";

std::string word_of(uint32_t word) {
  std::array<char, 16> text{};
  snprintf(text.data(), text.size(), "0x%08x", word);
  return text.data();
}

std::string target_word(const T_BOOT_FOTA_FLAG& flag) {
  const std::optional<System> target = system_of_code(flag.boot_to);
  return target ? letter(*target)
                : "unknown (" + word_of(static_cast<uint32_t>(flag.boot_to)) + ")";
}

std::string status_text(const T_DualSystem_Status& system) {
  const std::string word = health_word(system.status);
  const std::string raw =
      word == "unknown" ? " (" + word_of(static_cast<uint32_t>(system.status)) + ")" : "";
  return word + raw + ", " + std::to_string(system.try_cnt) + " boot attempts";
}

std::string arrangement_word(T_BOOT_DUALSYSTEM_TYPE type) {
  switch (type) {
    case DUALSYSTEM_AB:
      return "A and B";
    case DUALSYSTEM_AA:
      return "A and A";
    case DUALSYSTEM_RECOVERY:
      return "A and recovery";
  }
  return "unknown";
}

std::string decoded(const T_FOTA_FLAG_INFO& record) {
  const T_BOOT_FOTA_FLAG& flag = record.boot_flag;
  return "boots next: " + target_word(flag) + "; fota status " + std::to_string(flag.fota_status) +
         "; A " + status_text(flag.system) + "; B " + status_text(flag.system2) +
         "; arrangement: " + arrangement_word(record.boot_env.dualsys_type);
}

std::string state_of(const FlagCopy& copy) {
  if (copy.valid()) {
    return "valid";
  }
  const auto fits = [](bool yes) { return yes ? " fits" : " does not fit"; };
  return std::string("not valid: its boot flag's magic word") + fits(copy.boot_magic_fits()) +
         " (" + word_of(copy.record.boot_flag.magic) + "), its boot environment's" +
         fits(copy.record.boot_env.magic == FOTA_FLAG_MAGIC) + " (" +
         word_of(copy.record.boot_env.magic) + ")";
}

Json to_json(const std::optional<FlagCopy>& copy) {
  if (!copy) {
    return nullptr;
  }
  Json json = {{"block", copy->block}, {"valid", copy->valid()}};
  if (copy->boot_magic_fits()) {
    const T_BOOT_FOTA_FLAG& flag = copy->record.boot_flag;
    json["boot_target"] = letter_or_null(system_of_code(flag.boot_to));
    json["fota_status"] = flag.fota_status;
    json["systems"] = {{"A", health_json(flag.system.status, flag.system.try_cnt)},
                       {"B", health_json(flag.system2.status, flag.system2.try_cnt)}};
    json["arrangement"] = arrangement_word(copy->record.boot_env.dualsys_type);
  }
  return json;
}

std::string role_of(const Flags& flags, const FlagCopy* copy) {
  if (copy == nullptr) {
    return "none";
  }
  return flags.main && copy == &*flags.main ? "main" : "backup";
}

void examine_copy(Examination& examination, const char* role, const std::optional<FlagCopy>& copy) {
  if (!copy) {
    return;
  }
  const std::string text = std::string(role) + " copy in block " + std::to_string(copy->block) +
                           " is " + state_of(*copy);
  if (copy->valid()) {
    examination.ok(text + "; " + decoded(copy->record));
  } else {
    examination.warn(text,
                     "the next change of the record writes both copies anew, if one is valid");
  }
}

void examine_blocks(Examination& examination, const Flags& flags) {
  const std::string text = "flags has " + std::to_string(flags.good_blocks) + " good of " +
                           counted(flags.blocks, "block");
  if (flags.good_blocks < kNeededBlocks) {
    examination.error(text + ", the record needs two",
                      "use a larger flags partition: with one copy a power cut loses the record");
  } else {
    examination.ok(text);
  }
}

void examine_choice(Examination& examination, const Flags& flags) {
  if (flags.read() == nullptr) {
    examination.error("no valid boot flag record: the boot loader and every command go without",
                      "run 'zozale init-flags' to write a fresh one");
    return;
  }
  if (!flags.rewritten()->valid()) {
    examination.error(
        "the backup copy counts now, but the next change would start from the "
        "damaged main copy and spread it to both",
        kRewrite);
    return;
  }
  const bool main = role_of(flags, flags.read()) == "main";
  examination.ok(main ? "the main copy counts, since it is valid"
                      : "the backup copy counts, since the main copy is not valid");
  if (flags.main->valid() && flags.backup && flags.backup->valid() && !flags.agree()) {
    examination.warn("the copies differ: a change was cut off between them",
                     "the next change makes them equal; 'zozale status' shows what counts");
  }
}

void examine_systems(Examination& examination, const T_BOOT_FOTA_FLAG& flag,
                     const std::optional<System>& running) {
  const std::string forecast = boot_forecast(flag);
  examination.data()["record"]["boot_loader"] = forecast;
  const bool dead = flag.system.status == DUALSYSTEM_STATUS_UNBOOTABLE &&
                    flag.system2.status == DUALSYSTEM_STATUS_UNBOOTABLE;
  if (dead) {
    examination.error(forecast,
                      "mark the system that you know to be whole: 'zozale mark A "
                      "bootable' or 'zozale mark B bootable'");
  } else {
    examination.ok(forecast);
  }
  const std::optional<System> target = system_of_code(flag.boot_to);
  if (running && target && *running != *target) {
    examination.note(in_words(*running) + " runs, " + in_words(*target) + " boots next",
                     "reboot to switch; after a reboot it means that the boot loader fell back");
  }
  if (flag.fota_status != 0) {
    examination.note("a switch waits to be acknowledged",
                     "run 'zozale acknowledge' once the new system works");
  }
}

bool is_good(const T_DualSystem_Status& system) {
  return system.status == DUALSYSTEM_STATUS_BOOTABLE ||
         system.status == DUALSYSTEM_STATUS_SUCCESSFUL;
}

// What it does with a boot target and the other system, in this order.
std::string forecast(const std::string& first, const T_DualSystem_Status& wanted,
                     const std::string& second, const T_DualSystem_Status& spare) {
  const bool spare_boots = spare.status != DUALSYSTEM_STATUS_UNBOOTABLE;
  if (wanted.status == DUALSYSTEM_STATUS_SUCCESSFUL) {
    return "starts " + first + ", which has booted successfully";
  }
  if (wanted.status == DUALSYSTEM_STATUS_UNBOOTABLE && !spare_boots) {
    return "finds both systems unbootable: what it starts is its own choice";
  }
  if (wanted.status == DUALSYSTEM_STATUS_UNBOOTABLE) {
    return "passes over " + first + ", which is unbootable, and starts " + second;
  }
  if (!is_good(wanted) && is_good(spare)) {
    return "passes over " + first + ", whose status is unknown, and starts " + second;
  }
  return "starts " + first + " (" + std::to_string(wanted.try_cnt) + " attempts made)" +
         (spare_boots ? ", and " + second + " once its attempts are used up"
                      : "; there is no other system to fall back to");
}

}  // namespace

std::string boot_forecast(const T_BOOT_FOTA_FLAG& flag) {
  const std::optional<System> target = system_of_code(flag.boot_to);
  if (!target) {
    return "the boot loader finds a boot target that is neither system: what it starts is its own "
           "choice";
  }
  const T_DualSystem_Status& wanted = *target == System::kA ? flag.system : flag.system2;
  const T_DualSystem_Status& spare = *target == System::kA ? flag.system2 : flag.system;
  return "the boot loader " + forecast(in_words(*target), wanted, in_words(other(*target)), spare);
}

void examine_flags(Examination& examination, const MtdTable& table,
                   const std::optional<System>& running) {
  examination.enter("boot flag record");
  try {
    const Flags flags = read_flags(table);
    examination.data()["record"] = {{"blocks", flags.blocks},
                                    {"good_blocks", flags.good_blocks},
                                    {"main", to_json(flags.main)},
                                    {"backup", to_json(flags.backup)},
                                    {"counts", role_of(flags, flags.read())},
                                    {"rewritten", role_of(flags, flags.rewritten())}};
    examine_blocks(examination, flags);
    examine_copy(examination, "main", flags.main);
    examine_copy(examination, "backup", flags.backup);
    examine_choice(examination, flags);
    if (flags.read() != nullptr) {
      examine_systems(examination, flags.read()->record.boot_flag, running);
    }
  } catch (const Error& error) {
    examination.error(error);
  }
}

}  // namespace zozale::tool
