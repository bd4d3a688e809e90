// SPDX-License-Identifier: Apache-2.0
//
// The saved store: one line per value, "name=value" with "\\", "\n" and "\e" (an equals sign in a
// name) written for the characters that would end a field. Replaced as a whole by a rename, so
// that a reader in another process finds the old values or the new ones.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>

#include "sim/device.h"

namespace sim {
namespace {

using Values = std::map<std::string, std::string, std::less<>>;

std::string escape(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '=') {
      out += "\\e";
    } else {
      out += c;
    }
  }
  return out;
}

char meaning(char escaped) {
  if (escaped == 'n') {
    return '\n';
  }
  return escaped == 'e' ? '=' : escaped;
}

std::string unescape(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escaped = text[i] == '\\' && i + 1 < text.size();
    out += escaped ? meaning(text[++i]) : text[i];
  }
  return out;
}

Values read_values(const std::filesystem::path& file) {
  Values values;
  std::ifstream in(file, std::ios::binary);
  for (std::string line; std::getline(in, line);) {
    const std::size_t mark = line.find('=');
    if (mark != std::string::npos) {
      values[unescape(line.substr(0, mark))] = unescape(line.substr(mark + 1));
    }
  }
  return values;
}

void write_values(const std::filesystem::path& file, const Values& values) {
  const std::string next = file.string() + "." + std::to_string(getpid());
  std::ofstream out(next, std::ios::binary | std::ios::trunc);
  for (const auto& [name, value] : values) {
    out << escape(name) << '=' << escape(value) << '\n';
  }
  out.close();
  if (!out || std::rename(next.c_str(), file.c_str()) != 0) {
    throw std::runtime_error(file.string() + ": cannot be written");
  }
}

}  // namespace

std::optional<std::string> SavedStore::get(std::string_view name) const {
  const Values values = read_values(file_);
  const auto found = values.find(name);
  return found == values.end() ? std::nullopt : std::optional(found->second);
}

void SavedStore::put(const std::string& name, const std::string& value) {
  Values values = read_values(file_);
  values[name] = value;
  write_values(file_, values);
}

void SavedStore::clear() {
  write_values(file_, {});
}

std::vector<std::pair<std::string, std::string>> SavedStore::all() const {
  const Values values = read_values(file_);
  return {values.begin(), values.end()};
}

}  // namespace sim
