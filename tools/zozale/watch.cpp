// SPDX-License-Identifier: Apache-2.0
//
// Follows an operation of another process by what it leaves in the store.
#include <chrono>
#include <thread>

#include "zozale/session.h"
#include "zozale/store.h"

namespace zozale::tool {
namespace {

// An installation passes through "verified" on its way: so many looks must find an operation ended
// before it counts as ended.
constexpr int kSettledLooks = 3;

bool same(const StoreState& one, const StoreState& two) {
  return one.upgrade_status == two.upgrade_status && one.total_size == two.total_size &&
         one.upgraded_size == two.upgraded_size && one.sync_status == two.sync_status;
}

bool under_way(const StoreState& state, bool sync) {
  return sync ? state.sync_under_way() : state.upgrade_under_way();
}

std::string upgrade_line(const StoreState& state) {
  std::string text = "upgrade: " + upgrade_word(state.upgrade_status.value_or(-1));
  const int total = state.total_size.value_or(0);
  if (state.upgrade_status == UPGRADE_STATUS_UPDATING && total > 0) {
    const int64_t done = state.upgraded_size.value_or(0);
    text += ", " + short_size(static_cast<uint64_t>(done)) + " of " +
            short_size(static_cast<uint64_t>(total)) + ", " + std::to_string(done * 100 / total) +
            " %";
  }
  return text;
}

std::string line_of(const StoreState& state, bool sync) {
  return sync ? "synchronisation: " + sync_word(state.sync_status.value_or(-1))
              : upgrade_line(state);
}

Json json_of(const StoreState& state, bool sync) {
  Json json;
  json["operation"] = sync ? "sync" : "upgrade";
  json["status"] = sync ? sync_word(state.sync_status.value_or(-1))
                        : upgrade_word(state.upgrade_status.value_or(-1));
  if (!sync) {
    json["total_bytes"] = state.total_size.value_or(0);
    json["done_bytes"] = state.upgraded_size.value_or(0);
  }
  return json;
}

bool failed(const StoreState& state, bool sync) {
  if (sync) {
    return state.sync_status == SYNC_STATUS_FAIL;
  }
  const int status = state.upgrade_status.value_or(-1);
  return status == UPGRADE_STATUS_VERIFY_FAIL || status == UPGRADE_STATUS_UPDATE_FAIL;
}

// Follows one operation: an upgrade, or a synchronisation.
class Watch {
 public:
  Watch(Session& session, bool sync) : session_(session), sync_(sync) {}

  // Looks until the operation, which `state` shows under way, has ended; returns the last look.
  StoreState follow(StoreState state);

 private:
  void show(const StoreState& state) const;
  void sleep() const;
  void count_unchanged();

  Session& session_;
  bool sync_;
  double unchanged_seconds_ = 0.0;
};

StoreState Watch::follow(StoreState state) {
  show(state);
  for (int settled = 0; settled < kSettledLooks;) {
    sleep();
    const StoreState now = read_store();
    settled = under_way(now, sync_) ? 0 : settled + 1;
    if (same(now, state)) {
      count_unchanged();
    } else {
      unchanged_seconds_ = 0.0;
      show(now);
    }
    state = now;
  }
  return state;
}

void Watch::show(const StoreState& state) const {
  if (session_.options.json) {
    session_.report.tell_event("progress", json_of(state, sync_));
  } else {
    session_.report.say(line_of(state, sync_));
  }
}

void Watch::sleep() const {
  std::this_thread::sleep_for(std::chrono::duration<double>(session_.options.interval));
}

void Watch::count_unchanged() {
  unchanged_seconds_ += session_.options.interval;
  const double limit = session_.options.timeout;
  if (limit > 0.0 && unchanged_seconds_ >= limit) {
    throw Failure(kExitFailed,
                  {"the operation does not go on", "a change in the store", "none for too long",
                   "the process that ran it may be gone: run the operation again"});
  }
}

ExitCode tell_end(Session& session, const StoreState& state, bool sync) {
  session.report.data() = json_of(state, sync);
  if (failed(state, sync)) {
    throw Failure(kExitFailed, {line_of(state, sync), "the operation to succeed", "it failed",
                                "look into the library's log, /cache/ovu_fota_ab/upi_ab.log"});
  }
  return kExitDone;
}

ExitCode tell_nothing_under_way(Session& session, const StoreState& state) {
  session.report.data()["nothing_to_do"] = true;
  session.report.say("No operation is under way. Last:");
  for (const bool sync : {false, true}) {
    const bool known = sync ? state.sync_status.has_value() : state.upgrade_status.has_value();
    session.report.say("  " +
                       (known ? line_of(state, sync)
                              : std::string(sync ? "synchronisation" : "upgrade") + ": none yet"));
  }
  return kExitDone;
}

}  // namespace

ExitCode watch(Session& session) {
  session.report.follow_events();
  require_store();
  const StoreState first = read_store();
  const bool sync = !first.upgrade_under_way();
  if (!under_way(first, sync)) {
    return tell_nothing_under_way(session, first);
  }
  return tell_end(session, Watch(session, sync).follow(first), sync);
}

}  // namespace zozale::tool
