// SPDX-License-Identifier: Apache-2.0
#include "common/partition_table.h"

#include <cstring>
#include <limits>
#include <utility>

#include "common/file.h"
#include "common/partition_name.h"
#include "common/text.h"
#include "common/text_scanner.h"

namespace zozale {
namespace {

constexpr std::string_view kMagic = "SUPI";
constexpr size_t kNameWidth = 31;
constexpr size_t kFileLimit = 1024UL * 1024;

// Reads a table item by item; the first item that a device refuses ends it with an error.
class TableReader {
 public:
  explicit TableReader(std::string_view text) : scanner_(text) {}

  TableReading read();

 private:
  bool read_all();
  bool read_section(const std::string& line, const std::string& device_message);
  bool read_head();
  bool check_head();
  bool check_magic_length();
  bool check_count(const char* key, int32_t count);
  bool read_entries(std::vector<TableEntry>& entries, int32_t count, const std::string& message);
  bool read_entry(TableEntry& entry);
  bool read_word(const std::string& key, size_t width, std::string& word);
  bool read_integer(const std::string& key, int32_t& value);
  bool read_key(const std::string& key, const char* kind);
  bool refuse(const std::string& field, const std::string& value, const std::string& reason,
              const std::string& device_message);
  bool refuse_here(const std::string& device_message);
  std::string here() const { return "line " + std::to_string(scanner_.line_number()); }
  std::string found_here() const;
  void check_entries();
  void check_entry(const std::string& field, const TableEntry& entry);
  void check_rest();

  TextScanner scanner_;
  std::string expected_;  // what the item that did not match should have been
  std::string magic_;
  int32_t platform_count_ = 0;
  int32_t oem_count_ = 0;
  PartitionTable table_;
  Findings findings_;
};

TableReading TableReader::read() {
  if (!read_all()) {
    return {std::nullopt, std::move(findings_)};
  }
  check_entries();
  check_rest();
  return {std::move(table_), std::move(findings_)};
}

bool TableReader::read_all() {
  return read_section("[Head]", "Read [Head] fail") && read_head() && check_head() &&
         read_section("[Platform_Partition_Info]", "Read [Platform_Partition_Info] fail") &&
         read_entries(table_.platform, platform_count_, "Read Platform_Partition_Info fail") &&
         read_section("[Oem_Partition_Info]", "Read [Oem_Partition_Info] fail") &&
         read_entries(table_.oem, oem_count_, "Read Oem_Partition_Info fail");
}

// A device notices a section line only when there is none at all: one that differs is found by
// the item after it, or by nobody when no item follows.
bool TableReader::read_section(const std::string& line, const std::string& device_message) {
  const std::string place = here();
  const std::string found = found_here();
  const TextScanner::Match match = scanner_.literal(line);
  if (match == TextScanner::Match::kEnded) {
    expected_ = in_quotes(line);
    return refuse_here(device_message);
  }
  if (match == TextScanner::Match::kDiffered) {
    add_warning(findings_, place, found, in_quotes(line) + " is expected here");
    return true;
  }
  scanner_.space();
  return true;
}

bool TableReader::read_head() {
  const bool complete = read_word("magic", kMagic.size(), magic_) &&
                        read_integer("plat", table_.plat) &&
                        read_integer("plat_partition_num", platform_count_) &&
                        read_integer("oem_partition_num", oem_count_);
  return complete || refuse_here("Read [Head Info] fail");
}

bool TableReader::check_head() {
  if (!check_magic_length()) {
    return false;
  }
  if (magic_ != kMagic) {
    return refuse("magic", in_quotes(magic_), "it must be " + in_quotes(kMagic),
                  "fail system partition info magic word invalid: " + printable(magic_));
  }
  return check_count("plat_partition_num", platform_count_) &&
         check_count("oem_partition_num", oem_count_);
}

// On a device the magic has no terminator of its own: its length runs on into the lowest byte of
// plat, which lies behind it.
bool TableReader::check_magic_length() {
  constexpr const char* kMessage = "magic len invalid";
  if (strnlen(magic_.c_str(), kMagic.size()) != kMagic.size()) {
    return refuse("magic", in_quotes(magic_), "it must be " + in_quotes(kMagic), kMessage);
  }
  if ((static_cast<uint32_t>(table_.plat) & 0xFFU) != 0) {
    return refuse("plat", std::to_string(table_.plat),
                  "its lowest byte must be 0, since a device reads the magic on into it; use 0 or "
                  "a multiple of 256",
                  kMessage);
  }
  return true;
}

bool TableReader::check_count(const char* key, int32_t count) {
  if (static_cast<uint32_t>(count) <= kMaxTableEntries) {
    return true;
  }
  return refuse(key, std::to_string(count), "0 to 7 are allowed", std::string(key) + " invalid");
}

bool TableReader::read_entries(std::vector<TableEntry>& entries, int32_t count,
                               const std::string& message) {
  for (int32_t i = 0; i < count; ++i) {
    if (!read_entry(entries.emplace_back())) {
      return refuse_here(message);
    }
  }
  return true;
}

bool TableReader::read_entry(TableEntry& entry) {
  return read_word("name", kNameWidth, entry.name) &&
         read_integer("system_type", entry.system_type) &&
         read_integer("partition_type", entry.partition_type);
}

bool TableReader::read_word(const std::string& key, size_t width, std::string& word) {
  if (!read_key(key, "text")) {
    return false;
  }
  std::optional<std::string> found = scanner_.word(width);
  if (!found) {
    return false;
  }
  word = std::move(*found);
  scanner_.space();
  return true;
}

// What a device makes of a number beyond 32 bits depends on its libc: such a number is refused.
bool TableReader::read_integer(const std::string& key, int32_t& value) {
  if (!read_key(key, "number of 32 bits")) {
    return false;
  }
  const std::optional<int64_t> found = scanner_.integer();
  if (!found || *found < std::numeric_limits<int32_t>::min() ||
      *found > std::numeric_limits<int32_t>::max()) {
    return false;
  }
  value = static_cast<int32_t>(*found);
  scanner_.space();
  return true;
}

bool TableReader::read_key(const std::string& key, const char* kind) {
  expected_ = in_quotes(key + "=") + " and a " + kind;
  return scanner_.literal(key + "=") == TextScanner::Match::kMatched;
}

bool TableReader::refuse(const std::string& field, const std::string& value,
                         const std::string& reason, const std::string& device_message) {
  add_error(findings_, field, value,
            reason + "; a device refuses the table with \"" + device_message + "\"");
  return false;
}

bool TableReader::refuse_here(const std::string& device_message) {
  return refuse(here(), found_here(), expected_ + " is expected here", device_message);
}

std::string TableReader::found_here() const {
  constexpr size_t kExcerpt = 80;
  return scanner_.at_end() ? "end of file" : in_quotes(scanner_.line().substr(0, kExcerpt));
}

void TableReader::check_entries() {
  std::vector<NamedField> names;
  const auto check_list = [this, &names](const char* list, const std::vector<TableEntry>& entries) {
    for (size_t i = 0; i < entries.size(); ++i) {
      const std::string field = std::string(list) + "[" + std::to_string(i) + "]";
      check_entry(field, entries[i]);
      names.push_back({field + ".name", entries[i].name});
    }
  };
  check_list("platform", table_.platform);
  check_list("oem", table_.oem);
  append(findings_, find_repeated_names(names));
  append(findings_, find_twin_names(names));
}

void TableReader::check_entry(const std::string& field, const TableEntry& entry) {
  if (const auto fault = partition_name_fault(entry.name)) {
    add_error(findings_, field + ".name", in_quotes(entry.name), *fault);
  }
  if (entry.partition_type != 0) {
    add_warning(findings_, field + ".partition_type", std::to_string(entry.partition_type),
                "only partitions of type 0, raw MTD, can be upgraded and synchronised");
  }
}

void TableReader::check_rest() {
  if (!scanner_.at_end()) {
    add_warning(findings_, here(), found_here(),
                "a device ignores what follows the last entry that the head announces");
  }
}

}  // namespace

TableReading parse_partition_table(std::string_view text) {
  return TableReader(text).read();
}

TableReading read_partition_table(const std::string& path) {
  return parse_partition_table(read_text_file(path, kFileLimit));
}

}  // namespace zozale
