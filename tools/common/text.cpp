// SPDX-License-Identifier: Apache-2.0
#include "common/text.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace zozale {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

void append_hex(std::string& text, uint8_t byte) {
  text += kHexDigits[byte >> 4U];
  text += kHexDigits[byte & 0x0FU];
}

// `bytes` in the largest unit that leaves at least 1, with one decimal, cut and not rounded: a size
// is never shown larger than it is.
std::string in_largest_unit(uint64_t bytes) {
  static constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  size_t unit = 0;
  while (unit + 1 < kUnits.size() && (bytes >> (10 * (unit + 2))) != 0) {
    ++unit;
  }
  const uint64_t tenths = ((bytes >> (10 * unit)) * 10) >> 10U;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + kUnits.at(unit);
}

}  // namespace

std::string hex(const uint8_t* bytes, size_t len) {
  std::string text;
  text.reserve(len * 2);
  for (size_t i = 0; i < len; ++i) {
    append_hex(text, bytes[i]);
  }
  return text;
}

std::string printable(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    if (c == '\\') {
      text += "\\\\";
    } else if (c >= ' ' && c <= '~') {
      text += c;
    } else {
      text += "\\x";
      append_hex(text, static_cast<uint8_t>(c));
    }
  }
  return text;
}

std::string in_quotes(std::string_view bytes) {
  return "\"" + printable(bytes) + "\"";
}

std::string human_size(uint64_t bytes) {
  const std::string exact = std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  return bytes < 1024 ? exact : in_largest_unit(bytes) + " (" + exact + ")";
}

std::string field_text(const char* field, size_t width) {
  return std::string(field, strnlen(field, width));
}

}  // namespace zozale
