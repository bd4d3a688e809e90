// SPDX-License-Identifier: Apache-2.0
//
// Reads the simulator's TOML files so that every mistake is told with file, line, key, the value
// found and the value expected.
#ifndef SIM_TOML_READER_H
#define SIM_TOML_READER_H

#include <toml++/toml.h>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// A table of a file, with its key for messages. Every member throws std::runtime_error.
class TomlTable {
 public:
  TomlTable(std::string file, std::string key, const toml::table& table)
      : file_(std::move(file)), key_(std::move(key)), table_(&table) {}

  bool has(std::string_view key) const { return table_->contains(key); }
  std::int64_t integer(std::string_view key, std::int64_t least, std::int64_t most) const;
  std::int64_t integer(std::string_view key, std::int64_t least, std::int64_t most,
                       std::int64_t otherwise) const;
  std::string text(std::string_view key) const;
  std::string text(std::string_view key, const std::string& otherwise) const;
  bool flag(std::string_view key, bool otherwise) const;
  // A list of numbers; empty when the key is not there.
  std::vector<std::int64_t> integers(std::string_view key, std::int64_t least,
                                     std::int64_t most) const;
  // A table; an empty one when the key is not there.
  TomlTable table(std::string_view key) const;
  // A list of tables ("[[key]]"); where `name_key` is given, a plain string stands for a table
  // with that key only.
  std::vector<TomlTable> tables(std::string_view key) const;
  // The list's strings and tables, as they are: for lists that allow both.
  const toml::array* array(std::string_view key) const;

  // Fails when the table holds a key that is not in the list.
  void allow(std::initializer_list<std::string_view> keys) const;
  // Fails about a key's value.
  [[noreturn]] void refuse(std::string_view key, const std::string& expected) const;

  const std::string& file() const { return file_; }
  std::string full(std::string_view key) const;

 private:
  [[noreturn]] void refuse_node(const toml::node* node, std::string_view key,
                                const std::string& expected) const;
  std::string file_;
  std::string key_;  // of this table; empty for the whole file
  const toml::table* table_;
};

// A whole file, parsed.
class TomlFile {
 public:
  explicit TomlFile(const std::filesystem::path& file);
  TomlTable root() const { return {file_, {}, table_}; }

 private:
  std::string file_;
  toml::table table_;
};

}  // namespace sim

#endif
