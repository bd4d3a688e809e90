// SPDX-License-Identifier: Apache-2.0
#include "zozale/command_line.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <string_view>

namespace zozale::tool {
namespace {

std::optional<System> system_of_parameter(std::string_view parameter) {
  constexpr std::string_view kA = "system=system_a";
  constexpr std::string_view kB = "system=system_b";
  if (parameter.substr(0, kA.size()) == kA) {
    return System::kA;
  }
  if (parameter.substr(0, kB.size()) == kB) {
    return System::kB;
  }
  return std::nullopt;
}

// The command line in pieces of 1,023 characters, as the library reads it: a parameter that lies
// across two of them is recognised by neither.
void for_each_piece(const std::function<void(std::string_view)>& take) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen("/proc/cmdline", "re"), &fclose);
  std::array<char, 1024> piece{};
  while (file && fgets(piece.data(), static_cast<int>(piece.size()), file.get()) != nullptr) {
    take(piece.data());
  }
}

std::optional<System> system_of_piece(std::string_view piece) {
  for (size_t start = 0; start < piece.size();) {
    const size_t end = std::min(piece.find(' ', start), piece.size());
    if (const auto system = system_of_parameter(piece.substr(start, end - start))) {
      return system;
    }
    start = end + 1;
  }
  return std::nullopt;
}

}  // namespace

std::string kernel_command_line() {
  std::string line;
  for_each_piece([&line](std::string_view piece) { line += piece; });
  line.erase(std::find(line.begin(), line.end(), '\n'), line.end());
  return line;
}

std::optional<System> running_by_command_line() {
  std::optional<System> running;
  for_each_piece([&running](std::string_view piece) {
    if (!running) {
      running = system_of_piece(piece);
    }
  });
  return running;
}

}  // namespace zozale::tool
