// SPDX-License-Identifier: Apache-2.0
//
// The platform's configuration store and the shell command that restarts the device.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <map>
#include <string>
#include <utility>

#include "sim/process.h"

namespace sim {
namespace {

// What this process set and did not save, and what it did so far.
struct ProcessStore {
  std::map<std::string, std::string, std::less<>> unsaved;
  std::vector<std::pair<std::string, std::string>> sets;
  std::uint64_t saves = 0;
};

ProcessStore& process_store() {
  static auto* const store = new ProcessStore;
  return *store;
}

int result_of(const Struck& struck) {
  if (struck.error != 0) {
    errno = struck.error;
    return -1;
  }
  return 0;
}

std::optional<std::string> current_value(std::string_view name) {
  const auto unsaved = process_store().unsaved.find(name);
  return unsaved != process_store().unsaved.end() ? std::optional(unsaved->second)
                                                  : g_device->store().get(name);
}

int get_value(const char* name, char* buffer, int length) {
  const auto value = current_value(name);
  if (!value || length <= 0) {
    return -1;
  }
  const std::size_t copied = std::min(value->size() + 1, static_cast<std::size_t>(length));
  std::memcpy(buffer, value->c_str(), copied);
  return 0;
}

int set_value(const char* name, const char* value) {
  process_store().sets.emplace_back(name, value);
  const int result = result_of(meet_plain(Op::store_set, name));
  if (result == 0) {
    process_store().unsaved.insert_or_assign(name, value);
  }
  return result;
}

int save_values() {
  ++process_store().saves;
  const int result = result_of(meet_plain(Op::store_save));
  if (result != 0) {
    return result;
  }
  try {
    for (const auto& [name, value] : process_store().unsaved) {
      g_device->store().put(name, value);
    }
  } catch (const std::exception&) {
    errno = EIO;
    return -1;
  }
  process_store().unsaved.clear();
  return 0;
}

void note_store(Op op, std::string_view text, int result) {
  Details details;
  details.text = text;
  note(op, {}, {}, details, result < 0 ? -errno : result);
}

// A store call that did its work leaves errno alone.
int finish(const Errno& outcome, int result) {
  return result < 0 ? result : static_cast<int>(outcome.give(result));
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\n");
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(" \t\n") - first + 1);
}

}  // namespace

int process_store_get(const char* name, char* buffer, int length) {
  const InSimulator in_simulator;
  const Errno outcome;
  int result = name == nullptr ? -1 : result_of(meet_plain(Op::store_get, name));
  if (result == 0) {
    result = get_value(name, buffer, length);
  }
  note_store(Op::store_get, name == nullptr ? "" : name, result);
  return finish(outcome, result);
}

int process_store_set(const char* name, const char* value) {
  if (name == nullptr || value == nullptr) {
    return -1;
  }
  const InSimulator in_simulator;
  const Errno outcome;
  const int result = set_value(name, value);
  note_store(Op::store_set, std::string(name) + "=" + value, result);
  return finish(outcome, result);
}

int process_store_save() {
  const InSimulator in_simulator;
  const Errno outcome;
  const int result = save_values();
  note_store(Op::store_save, {}, result);
  return finish(outcome, result);
}

void forget_store() {
  process_store() = ProcessStore{};
}

const std::vector<std::pair<std::string, std::string>>& store_sets() {
  return process_store().sets;
}

std::uint64_t store_saves() {
  return process_store().saves;
}

bool process_reboot(const char* command) {
  if (g_device == nullptr || command == nullptr) {
    return false;
  }
  const std::string_view text = trimmed(command);
  if (text != "reboot" && text != "/sbin/reboot") {
    return false;
  }
  const InSimulator in_simulator;
  meet_plain(Op::reboot);
  g_device->set_power(Power::rebooting);
  Details details;
  details.text = text;
  note(Op::reboot, {}, {}, details, 0);
  return true;
}

}  // namespace sim
