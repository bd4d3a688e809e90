// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "zozale/flags.h"
#include "zozale/session.h"
#include "zozale/store.h"

namespace zozale::tool {
namespace {

std::string letter_or_unknown(const std::optional<System>& system) {
  return system ? letter(*system) : "unknown";
}

void tell_running(Report& report, const std::optional<System>& running) {
  const auto target = running ? std::optional<System>(other(*running)) : std::nullopt;
  report.data()["running"] = letter_or_null(running);
  report.data()["upgrade_target"] = letter_or_null(target);
  report.say("Running system:   " + letter_or_unknown(running));
  report.say("Upgrade target:   " + letter_or_unknown(target));
}

void tell_system(Report& report, const BootState& state, System system) {
  const SystemHealth& health = state.of(system);
  report.data()["systems"][letter(system)] = health_json(health.status, health.attempts);
  report.say("System " + letter(system) + ":         " + health_word(health.status) +
             ", boot attempts: " + std::to_string(health.attempts));
}

void tell_boot_state(Report& report, const std::optional<BootState>& state) {
  if (!state) {
    report.data()["boot_target"] = nullptr;
    report.data()["systems"] = nullptr;
    report.data()["fota_status"] = nullptr;
    report.say("Boots next:       unknown, there is no valid boot flag record");
    return;
  }
  report.data()["boot_target"] = letter_or_null(state->target);
  report.say("Boots next:       " + letter_or_unknown(state->target));
  tell_system(report, *state, System::kA);
  tell_system(report, *state, System::kB);
  report.data()["fota_status"] = state->fota_status;
  report.say("Fota status:      " + std::to_string(state->fota_status) +
             (state->fota_status == 0 ? ", nothing to acknowledge"
                                      : ", a switch waits for 'zozale acknowledge'"));
}

std::string upgrade_text(const StoreState& store) {
  if (!store.upgrade_status) {
    return "none yet";
  }
  std::string text = upgrade_word(*store.upgrade_status);
  if (store.total_size.value_or(0) > 0) {
    text += ", " + short_size(static_cast<uint64_t>(std::max(0, store.upgraded_size.value_or(0)))) +
            " of " + short_size(static_cast<uint64_t>(*store.total_size));
  }
  return text;
}

Json word_or_null(const std::optional<int>& status, std::string (*word)(int)) {
  return status ? Json(word(*status)) : Json();
}

void tell_store(Report& report, const StoreState& store) {
  report.data()["upgrade"] = {{"status", word_or_null(store.upgrade_status, upgrade_word)},
                              {"total_bytes", value_or_null(store.total_size)},
                              {"done_bytes", value_or_null(store.upgraded_size)}};
  report.data()["sync"] = {{"status", word_or_null(store.sync_status, sync_word)}};
  report.say("Upgrade:          " + upgrade_text(store));
  report.say("Synchronisation:  " +
             (store.sync_status ? sync_word(*store.sync_status) : std::string("none yet")));
}

}  // namespace

// Why the library found no record.
[[noreturn]] void fail_without_record(const Library& library) {
  require_usable(read_flags(MtdTable::read()));
  throw Failure(kExitFailed, {"the boot flag record cannot be read",
                              "the flags partition readable",
                              "a failure in the library",
                              "run 'zozale doctor' as root",
                              {},
                              library.trail().lines()});
}

ExitCode show_status(Session& session) {
  const std::optional<System> running = session.library.running();
  const std::optional<BootState> state = session.library.boot_state();
  tell_running(session.report, running);
  tell_boot_state(session.report, state);
  if (store_is_there()) {
    tell_store(session.report, read_store());
  }
  require_running(running);
  if (!state) {
    fail_without_record(session.library);
  }
  require_store();
  return kExitDone;
}

}  // namespace zozale::tool
