// SPDX-License-Identifier: Apache-2.0
#include "package_view.h"

#include <algorithm>
#include <cstring>

#include "common/text.h"

namespace zozale {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the records are read as they lie");

constexpr uint64_t kMostHeadAndTables =
    kHeadSize + kMaxPackageEntries * (sizeof(partition_head_info_t) + sizeof(extra_head_info_t));

Digest to_digest(const uint8_t (&bytes)[64]) {
  Digest digest{};
  std::copy(std::begin(bytes), std::end(bytes), digest.begin());
  return digest;
}

// What the records of both tables have in common.
template <typename Record>
PackageEntry common_entry(const Record& record, PackageEntry::Kind kind, size_t index) {
  PackageEntry entry;
  entry.kind = kind;
  entry.index = index;
  entry.name = field_text(record.name);
  entry.terminated = entry.name.size() < sizeof(record.name);
  entry.len = record.len;
  entry.offset = record.offset;
  entry.hash = to_digest(record.hash);
  return entry;
}

PackageEntry to_entry(const partition_head_info_t& record, size_t index) {
  PackageEntry entry = common_entry(record, PackageEntry::Kind::kPartition, index);
  entry.partition_type = record.partition_type;
  entry.zipped = record.zipped;
  return entry;
}

PackageEntry to_entry(const extra_head_info_t& record, size_t index) {
  return common_entry(record, PackageEntry::Kind::kExtra, index);
}

// Reads `count` records at `offset`; false when the file ends before the last one does.
template <typename Record>
bool read_table(const ByteSource& source, uint64_t offset, int32_t count,
                std::vector<PackageEntry>& entries) {
  const size_t entry_count = count > 0 ? static_cast<size_t>(count) : 0;
  if (source.size() - offset < entry_count * sizeof(Record)) {
    return false;
  }
  std::vector<Record> records(entry_count);
  source.read_at(offset, records.data(), entry_count * sizeof(Record));
  for (size_t i = 0; i < entry_count; ++i) {
    entries.push_back(to_entry(records[i], i));
  }
  return true;
}

bool check_magic(const upgrade_package_head_info_t& head, Findings& findings) {
  if (memcmp(head.magic_word, "FOTA", sizeof(head.magic_word)) == 0) {
    return true;
  }
  add_error(findings, "head.magic_word", in_quotes({head.magic_word, sizeof(head.magic_word)}),
            "it must be \"FOTA\": this is not an upgrade package");
  return false;
}

bool check_count(const std::string& field, int32_t count, Findings& findings) {
  if (count <= kMaxPackageEntries) {
    return true;
  }
  add_error(findings, field, std::to_string(count),
            "at most " + std::to_string(kMaxPackageEntries) +
                " entries are allowed; a device refuses the package");
  return false;
}

void add_table_cut(const std::string& field, int32_t count, uint64_t file_size,
                   Findings& findings) {
  add_error(findings, field, std::to_string(count),
            "the file ends within the table of these entries, it has only " +
                human_size(file_size) + "; it was cut or damaged");
}

bool read_head(const ByteSource& source, PackageView& package, Findings& findings) {
  package.file_size = source.size();
  if (package.file_size < kHeadSize) {
    add_error(findings, "file size", human_size(package.file_size),
              "a package has at least " + human_size(kHeadSize) + ", its head");
    return false;
  }
  source.read_at(0, &package.head, sizeof(package.head));
  return check_magic(package.head, findings) &&
         check_count("head.partition_num", package.head.partition_num, findings) &&
         check_count("head.extra_num", package.head.extra_num, findings);
}

bool read_tables(const ByteSource& source, PackageView& package, Findings& findings) {
  const upgrade_package_head_info_t& head = package.head;
  if (!read_table<partition_head_info_t>(source, kHeadSize, head.partition_num,
                                         package.partitions)) {
    add_table_cut("head.partition_num", head.partition_num, package.file_size, findings);
    return false;
  }
  if (!read_table<extra_head_info_t>(source, package.tables_end(), head.extra_num,
                                     package.extras)) {
    add_table_cut("head.extra_num", head.extra_num, package.file_size, findings);
    return false;
  }
  return true;
}

}  // namespace

std::string PackageEntry::field(const std::string& member) const {
  const std::string table = kind == Kind::kPartition ? "partition" : "extra";
  return table + "[" + std::to_string(index) + "]" + (member.empty() ? "" : "." + member);
}

bool PackageEntry::is_within(uint64_t file_size) const {
  return len > 0 && offset >= 0 && end() <= file_size;
}

Digest PackageView::content_hash() const {
  return to_digest(head.hash);
}

uint64_t PackageView::tables_end() const {
  return kHeadSize + partitions.size() * sizeof(partition_head_info_t) +
         extras.size() * sizeof(extra_head_info_t);
}

std::vector<PackageEntry> PackageView::entries() const {
  std::vector<PackageEntry> all = partitions;
  all.insert(all.end(), extras.begin(), extras.end());
  return all;
}

PackageStart::PackageStart(const ByteSource& package)
    : size_(package.size()),
      bytes_(static_cast<size_t>(std::min(package.size(), kMostHeadAndTables))) {
  package.read_at(0, bytes_.data(), bytes_.size());
}

void PackageStart::read_at(uint64_t offset, void* buffer, size_t len) const {
  MemorySource(bytes_.data(), bytes_.size()).read_at(offset, buffer, len);
}

Sha512 PackageStart::hash_with_rest_of(const ByteSource& package) const {
  Sha512 hash;
  hash.update(bytes_.data(), bytes_.size());
  for_each_chunk(package, bytes_.size(), size_ - bytes_.size(),
                 [&hash](const uint8_t* bytes, size_t count) { hash.update(bytes, count); });
  return hash;
}

PackageReading read_package(const ByteSource& source) {
  PackageReading reading;
  PackageView package;
  if (read_head(source, package, reading.findings) &&
      read_tables(source, package, reading.findings)) {
    reading.package = std::move(package);
  }
  return reading;
}

}  // namespace zozale
