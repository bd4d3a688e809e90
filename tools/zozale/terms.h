// SPDX-License-Identifier: Apache-2.0
//
// How people name systems and states: the library's codes stay on the other side of this.
#ifndef ZOZALE_TOOL_TERMS_H
#define ZOZALE_TOOL_TERMS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zozale::tool {

enum class System { kA, kB };

System other(System system);
// "A" or "B".
std::string letter(System system);
// "system A" or "system B".
std::string in_words(System system);

// The library's code of a system, and back; nothing for any other code.
int code_of(System system);
std::optional<System> system_of_code(int code);

// MTD name of a system's partition by its table name, which must pass partition_name_fault().
std::string mtd_name(const std::string& table_name, System system);

// "bootable", "successful" or "unbootable"; "unknown" for what the library has no name for.
std::string health_word(int status);
// The library's code for the first three of these words.
std::optional<int> health_code(const std::string& word);

// What the store says of an upgrade, such as "installing"; "unknown" for any other value.
std::string upgrade_word(int status);
// The same of a synchronisation.
std::string sync_word(int status);

// Which partitions a package of this type carries.
std::string upgrade_type_word(int type);

// "1 block", "12 blocks".
std::string counted(uint64_t count, const std::string& noun);

// "3, 5, 17".
std::string listed(const std::vector<uint32_t>& numbers);

// A size as short as a progress line wants it: "1.5 MiB", "812 bytes".
std::string short_size(uint64_t bytes);

}  // namespace zozale::tool

#endif
