// SPDX-License-Identifier: Apache-2.0
//
// Bytes and numbers as people read them.
#ifndef ZOZALE_TOOLS_COMMON_TEXT_H
#define ZOZALE_TOOLS_COMMON_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zozale {

// Two lower-case hex digits a byte.
std::string hex(const uint8_t* bytes, size_t len);

// Printable ASCII as it is, every other byte as \xNN, a backslash as \\: safe for a terminal, and
// no two texts look alike.
std::string printable(std::string_view bytes);

// printable() in double quotes.
std::string in_quotes(std::string_view bytes);

// "1 byte", "512 bytes", "1.5 MiB (1572864 bytes)".
std::string human_size(uint64_t bytes);

// The text of a fixed-width field: up to its first NUL, or all of it.
std::string field_text(const char* field, size_t width);

template <size_t N>
std::string field_text(const char (&field)[N]) {
  return field_text(field, N);
}

}  // namespace zozale

#endif
