// SPDX-License-Identifier: Apache-2.0
#include "cut_name.h"

#include <charconv>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace cuts {
namespace {

template <typename Number>
Number parse_number(const std::string& text, const std::string& part) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) {
    throw std::runtime_error(part + ": found \"" + text + "\", expected a number");
  }
  return number;
}

std::string name_of(const sim::PowerCut& cut) {
  std::string name = std::to_string(cut.at) + "/" + sim::cut_name(cut.kind);
  return cut.byte ? name + "@" + std::to_string(*cut.byte) : name;
}

sim::PowerCut parse_one(const std::string& at, const std::string& kind) {
  sim::PowerCut cut;
  cut.at = parse_number<std::uint64_t>(at, "flash operation");
  const std::size_t mark = kind.find('@');
  const auto known = sim::cut_from_name(kind.substr(0, mark));
  if (!known || cut.at == 0) {
    throw std::runtime_error("cut: found \"" + at + "/" + kind +
                             "\", expected a number from 1 and before, after, torn or unstable");
  }
  cut.kind = *known;
  if (mark != std::string::npos) {
    cut.byte = parse_number<std::uint32_t>(kind.substr(mark + 1), "byte");
  }
  return cut;
}

std::vector<std::string> split(const std::string& name) {
  std::vector<std::string> parts;
  std::istringstream in(name);
  for (std::string part; std::getline(in, part, '/');) {
    parts.push_back(part);
  }
  return parts;
}

}  // namespace

std::string name_of(const NamedCut& cut) {
  const std::string name = cut.scenario.name() + "/" + name_of(cut.first);
  return cut.second ? name + "/" + name_of(*cut.second) : name;
}

sim::System parse_system(const std::string& name) {
  if (name != "A" && name != "B") {
    throw std::runtime_error("system: found \"" + name + "\", expected A or B");
  }
  return name == "A" ? sim::System::a : sim::System::b;
}

NamedCut parse_cut(const std::string& name) {
  constexpr std::size_t kOneCut = 6;
  constexpr std::size_t kTwoCuts = 8;
  const std::vector<std::string> parts = split(name);
  if (parts.size() != kOneCut && parts.size() != kTwoCuts) {
    throw std::runtime_error("power cut: found \"" + name +
                             "\", expected OPERATION/SYSTEM/GEOMETRY/BAD-BLOCKS/AT/KIND[/AT/KIND]");
  }
  NamedCut cut{{&operation_named(parts[0]), parse_system(parts[1]), &shape_named(parts[2]),
                &bad_map_named(parts[3])},
               parse_one(parts[4], parts[5]),
               std::nullopt};
  if (parts.size() == kTwoCuts) {
    cut.second = parse_one(parts[6], parts[7]);
  }
  return cut;
}

}  // namespace cuts
