// SPDX-License-Identifier: Apache-2.0
#include "sim/toml_reader.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace sim {
namespace {

std::string shown(const toml::node* node) {
  if (node == nullptr) {
    return "nothing";
  }
  std::ostringstream text;
  node->visit([&text](const auto& value) { text << value; });
  return text.str();
}

std::string place(const std::string& file, const toml::source_region& source) {
  return source.begin.line == 0 ? file : file + ":" + std::to_string(source.begin.line);
}

std::string range_text(std::int64_t least, std::int64_t most) {
  return "a number from " + std::to_string(least) + " to " + std::to_string(most);
}

toml::table parse(const std::filesystem::path& file) {
  if (!std::filesystem::exists(file)) {
    throw std::runtime_error(file.string() + ": no such file");
  }
  try {
    return toml::parse_file(file.string());
  } catch (const toml::parse_error& error) {
    throw std::runtime_error(place(file.string(), error.source()) + ": " +
                             std::string(error.description()));
  }
}

const toml::table& empty_table() {
  static const toml::table table;
  return table;
}

}  // namespace

TomlFile::TomlFile(const std::filesystem::path& file) : file_(file.string()), table_(parse(file)) {}

std::string TomlTable::full(std::string_view key) const {
  return key_.empty() ? std::string(key) : key_ + "." + std::string(key);
}

void TomlTable::refuse_node(const toml::node* node, std::string_view key,
                            const std::string& expected) const {
  const toml::source_region source = node == nullptr ? table_->source() : node->source();
  throw std::runtime_error(place(file_, source) + ": " + full(key) + ": found " + shown(node) +
                           ", expected " + expected);
}

void TomlTable::refuse(std::string_view key, const std::string& expected) const {
  refuse_node(table_->get(key), key, expected);
}

std::int64_t TomlTable::integer(std::string_view key, std::int64_t least, std::int64_t most) const {
  const toml::node* node = table_->get(key);
  const auto value = node == nullptr ? std::nullopt : node->value_exact<std::int64_t>();
  if (!value || *value < least || *value > most) {
    refuse_node(node, key, range_text(least, most));
  }
  return *value;
}

std::int64_t TomlTable::integer(std::string_view key, std::int64_t least, std::int64_t most,
                                std::int64_t otherwise) const {
  return has(key) ? integer(key, least, most) : otherwise;
}

std::string TomlTable::text(std::string_view key) const {
  const toml::node* node = table_->get(key);
  const auto value = node == nullptr ? std::nullopt : node->value_exact<std::string>();
  if (!value) {
    refuse_node(node, key, "a text in quotes");
  }
  return *value;
}

std::string TomlTable::text(std::string_view key, const std::string& otherwise) const {
  return has(key) ? text(key) : otherwise;
}

bool TomlTable::flag(std::string_view key, bool otherwise) const {
  const toml::node* node = table_->get(key);
  if (node == nullptr) {
    return otherwise;
  }
  const auto value = node->value_exact<bool>();
  if (!value) {
    refuse_node(node, key, "true or false");
  }
  return *value;
}

const toml::array* TomlTable::array(std::string_view key) const {
  const toml::node* node = table_->get(key);
  if (node != nullptr && node->as_array() == nullptr) {
    refuse_node(node, key, "a list");
  }
  return node == nullptr ? nullptr : node->as_array();
}

std::vector<std::int64_t> TomlTable::integers(std::string_view key, std::int64_t least,
                                              std::int64_t most) const {
  std::vector<std::int64_t> values;
  const toml::array* list = array(key);
  for (std::size_t i = 0; list != nullptr && i < list->size(); ++i) {
    const auto value = (*list)[i].value_exact<std::int64_t>();
    if (!value || *value < least || *value > most) {
      refuse_node(list->get(i), key, range_text(least, most));
    }
    values.push_back(*value);
  }
  return values;
}

TomlTable TomlTable::table(std::string_view key) const {
  const toml::node* node = table_->get(key);
  if (node != nullptr && node->as_table() == nullptr) {
    refuse_node(node, key, "a table");
  }
  return {file_, full(key), node == nullptr ? empty_table() : *node->as_table()};
}

std::vector<TomlTable> TomlTable::tables(std::string_view key) const {
  std::vector<TomlTable> out;
  const toml::array* list = array(key);
  for (std::size_t i = 0; list != nullptr && i < list->size(); ++i) {
    const toml::table* entry = (*list)[i].as_table();
    if (entry == nullptr) {
      refuse_node(list->get(i), key, "a table");
    }
    out.emplace_back(file_, full(key) + "[" + std::to_string(i) + "]", *entry);
  }
  return out;
}

void TomlTable::allow(std::initializer_list<std::string_view> keys) const {
  for (const auto& [key, node] : *table_) {
    if (std::find(keys.begin(), keys.end(), key.str()) != keys.end()) {
      continue;
    }
    std::string known;
    for (const std::string_view name : keys) {
      known += (known.empty() ? "" : ", ") + std::string(name);
    }
    throw std::runtime_error(place(file_, node.source()) + ": " + full(key.str()) +
                             ": no such key; expected one of: " + known);
  }
}

}  // namespace sim
