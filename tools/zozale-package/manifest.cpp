// SPDX-License-Identifier: Apache-2.0
#include "manifest.h"

#include <toml++/toml.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <sstream>

#include "common/error.h"
#include "common/file.h"
#include "common/text.h"

namespace zozale {
namespace {

constexpr size_t kFileLimit = 1024UL * 1024;

// The value as TOML writes it, shortened.
std::string excerpt_of(const toml::node& node) {
  constexpr size_t kExcerpt = 60;
  std::ostringstream value;
  node.visit([&value](const auto& held) { value << held; });
  return printable(value.str().substr(0, kExcerpt));
}

class ManifestReader {
 public:
  explicit ManifestReader(const std::string& path) : path_(path) {}

  PackagePlan read();

 private:
  toml::table parse() const;
  void read_numbers(const toml::table& root, PackagePlan& plan) const;
  void read_texts(const toml::table& root, PackagePlan& plan) const;
  std::vector<PlannedFile> read_files(const toml::table& root, const std::string& key) const;
  PlannedFile read_file(const toml::node& node, const std::string& key) const;
  void refuse_unknown_keys(const toml::table& table,
                           std::initializer_list<std::string_view> known) const;
  std::optional<int64_t> integer(const toml::table& table, const std::string& key, int64_t lowest,
                                 int64_t highest) const;
  int32_t integer32(const toml::table& table, const std::string& key, int32_t fallback) const;
  std::string text(const toml::table& table, const std::string& key) const;
  std::string required_text(const toml::table& table, const std::string& key) const;
  int32_t upgrade_type(const toml::table& root) const;
  // The path of a file that the manifest names.
  std::string resolve(const std::string& file) const;
  Error error(const toml::source_region& place, const std::string& text) const;
  Error wrong_value(const toml::node& node, const std::string& key,
                    const std::string& allowed) const;

  std::string path_;
};

PackagePlan ManifestReader::read() {
  const toml::table root = parse();
  refuse_unknown_keys(
      root, {"type", "package_version", "package_type", "plat", "version_src", "version_dst",
             "erase_block", "block_size", "allow_zero_bytes", "table", "partition", "extra"});
  PackagePlan plan;
  read_numbers(root, plan);
  read_texts(root, plan);
  plan.partitions = read_files(root, "partition");
  plan.extras = read_files(root, "extra");
  return plan;
}

toml::table ManifestReader::parse() const {
  try {
    return toml::parse(read_text_file(path_, kFileLimit), path_);
  } catch (const toml::parse_error& fault) {
    throw error(fault.source(), printable(fault.description()));
  }
}

void ManifestReader::read_numbers(const toml::table& root, PackagePlan& plan) const {
  constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
  plan.upgrade_type = upgrade_type(root);
  plan.package_version = integer32(root, "package_version", plan.package_version);
  plan.package_type = integer32(root, "package_type", plan.package_type);
  plan.plat = integer32(root, "plat", plan.plat);
  plan.erase_block =
      static_cast<uint32_t>(integer(root, "erase_block", 0, kMax).value_or(plan.erase_block));
  if (root.contains("block_size")) {
    plan.block_size = integer32(root, "block_size", 0);
  }
  if (const toml::node* node = root.get("allow_zero_bytes")) {
    if (!node->is_boolean()) {
      throw wrong_value(*node, "allow_zero_bytes", "true and false");
    }
    plan.allow_zero_bytes = node->as_boolean()->get();
  }
}

void ManifestReader::read_texts(const toml::table& root, PackagePlan& plan) const {
  plan.version_src = text(root, "version_src");
  plan.version_dst = text(root, "version_dst");
  if (root.contains("table")) {
    plan.table_path = resolve(required_text(root, "table"));
  }
}

std::vector<PlannedFile> ManifestReader::read_files(const toml::table& root,
                                                    const std::string& key) const {
  std::vector<PlannedFile> files;
  const toml::node* node = root.get(key);
  if (node == nullptr) {
    return files;
  }
  if (!node->is_array()) {
    throw wrong_value(*node, key, "tables headed [[" + key + "]]");
  }
  for (const toml::node& element : *node->as_array()) {
    files.push_back(read_file(element, key));
  }
  return files;
}

PlannedFile ManifestReader::read_file(const toml::node& node, const std::string& key) const {
  const toml::table* table = node.as_table();
  if (table == nullptr) {
    throw wrong_value(node, key, "tables headed [[" + key + "]]");
  }
  refuse_unknown_keys(*table, {"name", "file"});
  return {required_text(*table, "name"), resolve(required_text(*table, "file"))};
}

void ManifestReader::refuse_unknown_keys(const toml::table& table,
                                         std::initializer_list<std::string_view> known) const {
  for (const auto& [key, value] : table) {
    if (std::find(known.begin(), known.end(), key.str()) == known.end()) {
      std::string list;
      for (const std::string_view name : known) {
        list += (list.empty() ? "" : ", ") + std::string(name);
      }
      throw error(key.source(), "unknown key " + in_quotes(key.str()) + "; known here are " + list);
    }
  }
}

std::optional<int64_t> ManifestReader::integer(const toml::table& table, const std::string& key,
                                               int64_t lowest, int64_t highest) const {
  const toml::node* node = table.get(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  const auto* value = node->as_integer();
  if (value == nullptr || value->get() < lowest || value->get() > highest) {
    throw wrong_value(
        *node, key,
        "whole numbers from " + std::to_string(lowest) + " to " + std::to_string(highest));
  }
  return value->get();
}

int32_t ManifestReader::integer32(const toml::table& table, const std::string& key,
                                  int32_t fallback) const {
  using Limits = std::numeric_limits<int32_t>;
  return static_cast<int32_t>(integer(table, key, Limits::min(), Limits::max()).value_or(fallback));
}

std::string ManifestReader::text(const toml::table& table, const std::string& key) const {
  const toml::node* node = table.get(key);
  if (node == nullptr) {
    return "";
  }
  if (!node->is_string()) {
    throw wrong_value(*node, key, "texts in quotes");
  }
  return node->as_string()->get();
}

std::string ManifestReader::required_text(const toml::table& table, const std::string& key) const {
  if (!table.contains(key)) {
    throw error(table.source(), "the key " + in_quotes(key) + " is missing");
  }
  return text(table, key);
}

int32_t ManifestReader::upgrade_type(const toml::table& root) const {
  const toml::node* node = root.get("type");
  if (node != nullptr && node->is_string()) {
    const auto type = upgrade_type_of(node->as_string()->get());
    if (!type) {
      throw wrong_value(*node, "type", "\"system\", \"platform\", \"oem\" and 0, 1, 2");
    }
    return *type;
  }
  return static_cast<int32_t>(integer(root, "type", 0, 2).value_or(0));
}

std::string ManifestReader::resolve(const std::string& file) const {
  if (file.empty() || file.find('\0') != std::string::npos) {
    throw Error(kExitUsage,
                in_quotes(path_) + ": " + in_quotes(file) + " is not the path of a file");
  }
  return (std::filesystem::path(path_).parent_path() / file).string();
}

Error ManifestReader::error(const toml::source_region& place, const std::string& text) const {
  return {kExitUsage,
          in_quotes(path_) + ", line " + std::to_string(place.begin.line) + ": " + text};
}

Error ManifestReader::wrong_value(const toml::node& node, const std::string& key,
                                  const std::string& allowed) const {
  return error(node.source(), "wrong value for " + in_quotes(key) + ": " + excerpt_of(node) +
                                  "; allowed are " + allowed);
}

}  // namespace

std::optional<int32_t> upgrade_type_of(std::string_view name) {
  static constexpr std::string_view kNames[] = {"system", "platform", "oem"};
  const auto* found = std::find(std::begin(kNames), std::end(kNames), name);
  if (found == std::end(kNames)) {
    return std::nullopt;
  }
  return static_cast<int32_t>(found - std::begin(kNames));
}

PackagePlan read_manifest(const std::string& path) {
  return ManifestReader(path).read();
}

}  // namespace zozale
