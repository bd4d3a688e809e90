// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include <algorithm>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace fleet {
namespace {

// Every number that is a sum over devices, in the order of the table.
struct Row {
  const char* key;
  const char* text;
  std::uint64_t Report::*value;
};
const std::vector<Row>& rows() {
  static const std::vector<Row> kRows = {
      {"devices", "devices", &Report::devices},
      {"lost", "devices that did not come back", &Report::lost},
      {"updates", "updates", &Report::updates},
      {"switches", "switches to a new release", &Report::switches},
      {"fall_backs", "fall-backs from one that does not come up", &Report::fall_backs},
      {"syncs", "synchronisations", &Report::syncs},
      {"calls", "calls of the library", &Report::calls},
      {"cuts", "power cuts in them, survived", &Report::cuts},
      {"boot_cuts", "power cuts in the boot loader, survived", &Report::boot_cuts},
      {"faults", "faults that struck", &Report::faults},
      {"mended_records", "boot flag records made anew", &Report::mended_records},
      {"bad_blocks", "bad blocks from the factory", &Report::bad_blocks},
      {"died_blocks", "blocks that turned bad in use", &Report::died_blocks},
  };
  return kRows;
}

void add_line(std::ostringstream& out, const std::string& text, std::uint64_t value) {
  out << std::left << std::setw(44) << text << std::right << std::setw(12) << value << "\n";
}

}  // namespace

void Report::count_update(std::uint64_t tries) {
  ++updates;
  const auto last = static_cast<std::size_t>(std::min<std::uint64_t>(tries, kTries));
  ++finished_at.at(last - 1);
  most_tries = std::max(most_tries, tries);
}

Report& Report::operator+=(const Report& that) {
  for (const Row& row : rows()) {
    this->*row.value += that.*row.value;
  }
  for (std::size_t i = 0; i < kTries; ++i) {
    finished_at.at(i) += that.finished_at.at(i);
  }
  most_tries = std::max(most_tries, that.most_tries);
  return *this;
}

std::uint64_t value_of(const Report& report, const std::string& key) {
  std::string known;
  for (const Row& row : rows()) {
    if (key == row.key) {
      return report.*row.value;
    }
    known += std::string(" ") + row.key;
  }
  throw std::runtime_error("key: found \"" + key + "\", expected one of:" + known);
}

std::string table(const Report& report) {
  std::ostringstream out;
  for (const Row& row : rows()) {
    add_line(out, row.text, report.*row.value);
    if (row.value == &Report::updates) {
      for (std::size_t i = 0; i < Report::kTries; ++i) {
        const bool last = i + 1 == Report::kTries;
        add_line(out, "  finished at try " + std::to_string(i + 1) + (last ? " or later" : ""),
                 report.finished_at.at(i));
      }
    }
  }
  add_line(out, "most tries of an update", report.most_tries);
  return out.str();
}

std::string json_line(const Report& report, std::uint64_t seed) {
  nlohmann::ordered_json json;
  json["schema"] = "zozale.fleet";
  json["version"] = 1;
  json["seed"] = seed;
  for (const Row& row : rows()) {
    json[row.key] = report.*row.value;
  }
  json["finished_at"] = report.finished_at;
  json["most_tries"] = report.most_tries;
  return json.dump();
}

}  // namespace fleet
