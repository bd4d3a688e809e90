// SPDX-License-Identifier: Apache-2.0
#include "check.h"

#include <algorithm>
#include <limits>

#include "common/partition_name.h"
#include "common/text.h"
#include "rules.h"

namespace zozale {
namespace {

void warn_unterminated(const std::string& field, const char* text, size_t width,
                       Findings& findings) {
  const std::string found = field_text(text, width);
  if (found.size() == width) {
    add_warning(findings, field, in_quotes(found),
                "it fills its field without a terminator: a device's log shows what lies behind it "
                "too; at most " +
                    std::to_string(width - 1) + " bytes fit");
  }
}

Findings check_file_size(uint64_t size) {
  Findings findings;
  if (size == kHeadSize) {
    add_error(findings, "file size", human_size(size),
              "nothing follows the head: a device would hash past the end of the file for ever");
  }
  if (size > std::numeric_limits<uint32_t>::max()) {
    add_error(findings, "file size", human_size(size),
              "a device counts it in 32 bits and would hash only a part");
  }
  return findings;
}

void warn_of_negative_count(const std::string& field, int32_t count, Findings& findings) {
  if (count < 0) {
    add_warning(findings, field, std::to_string(count), "a device takes it for 0");
  }
}

Findings check_head(const PackageView& package) {
  const upgrade_package_head_info_t& head = package.head;
  Findings findings;
  warn_of_negative_count("head.partition_num", head.partition_num, findings);
  warn_of_negative_count("head.extra_num", head.extra_num, findings);
  if (package.partitions.empty()) {
    warn_of_no_partitions(findings);
  } else {
    append(findings, check_upgrade_type("head.upgrade_type", head.upgrade_type));
  }
  if (head.hash_type != 0) {
    add_warning(findings, "head.hash_type", std::to_string(head.hash_type),
                "a device takes every digest for SHA-512 (0) all the same");
  }
  warn_unterminated("head.version_src", head.version_src, sizeof(head.version_src), findings);
  warn_unterminated("head.version_dst", head.version_dst, sizeof(head.version_dst), findings);
  return findings;
}

Findings check_name(const PackageEntry& entry) {
  Findings findings;
  const std::string field = entry.field("name");
  if (!entry.terminated) {
    add_error(
        findings, field, in_quotes(entry.name),
        "it fills its field without a terminator: a device reads on into the bytes behind it");
    return findings;
  }
  const auto fault = entry.kind == PackageEntry::Kind::kPartition ? partition_name_fault(entry.name)
                                                                  : extra_name_fault(entry.name);
  if (fault) {
    add_error(findings, field, in_quotes(entry.name), *fault);
  }
  return findings;
}

Findings check_range(const PackageEntry& entry, uint64_t file_size) {
  Findings findings;
  if (entry.len <= 0) {
    add_error(findings, entry.field("len"), std::to_string(entry.len),
              "an entry needs at least 1 byte: a device would hash past the end of the file for "
              "ever");
    return findings;
  }
  if (entry.offset < 0) {
    add_error(findings, entry.field("offset"), std::to_string(entry.offset),
              "a device cannot read there; 0 to 2147483647 are allowed");
    return findings;
  }
  if (!entry.is_within(file_size)) {
    add_error(findings, entry.field("len"), std::to_string(entry.len),
              "with its offset " + std::to_string(entry.offset) + " the entry ends at byte " +
                  std::to_string(entry.end()) + ", the file at byte " + std::to_string(file_size) +
                  ": a device would hash past the end of the file for ever");
  } else if (entry.end() > kMaxRangeEnd) {
    add_error(findings, entry.field("len"), std::to_string(entry.len),
              "with its offset " + std::to_string(entry.offset) +
                  " the entry passes byte 2147483647, the last that a device reaches");
  }
  return findings;
}

Findings check_partition_kind(const PackageEntry& entry) {
  Findings findings;
  if (entry.kind != PackageEntry::Kind::kPartition) {
    return findings;
  }
  if (entry.partition_type != 0) {
    add_error(findings, entry.field("partition_type"), std::to_string(entry.partition_type),
              "only 0, raw MTD, can be upgraded; a device fails at this partition, after it has "
              "written those before it");
  }
  if (entry.zipped != 0) {
    add_warning(findings, entry.field("zipped"), std::to_string(entry.zipped),
                "a device does not unpack images: the bytes are written as they are");
  }
  return findings;
}

Findings check_entries(const PackageView& package) {
  Findings findings;
  for (const PackageEntry& entry : package.entries()) {
    append(findings, check_name(entry));
    append(findings, check_range(entry, package.file_size));
    append(findings, check_partition_kind(entry));
  }
  return findings;
}

std::vector<NamedField> names_of(const std::vector<PackageEntry>& entries) {
  std::vector<NamedField> names;
  names.reserve(entries.size());
  for (const PackageEntry& entry : entries) {
    names.push_back({entry.field("name"), entry.name});
  }
  return names;
}

Findings check_names_together(const PackageView& package) {
  Findings findings = find_repeated_names(names_of(package.partitions));
  append(findings, find_repeated_names(names_of(package.extras)));
  append(findings, find_twin_names(names_of(package.partitions)));
  return findings;
}

Findings check_total_length(const PackageView& package) {
  uint64_t total = 0;
  for (const PackageEntry& entry : package.partitions) {
    total += entry.len > 0 ? static_cast<uint64_t>(entry.len) : 0;
  }
  Findings findings;
  if (total > kMaxImageSize) {
    add_warning(findings, "partitions", human_size(total),
                "the sum of all images passes 2147483647 bytes: a device reports a wrong progress");
  }
  return findings;
}

// Walks the ranges by their start and names, for each that begins before an earlier one has ended,
// the one that reaches farthest.
Findings check_overlaps(const PackageView& package) {
  struct Range {
    std::string field;
    uint64_t start;
    uint64_t end;
  };
  std::vector<Range> ranges = {{"the head and the tables", 0, package.tables_end()}};
  for (const PackageEntry& entry : package.entries()) {
    if (entry.len > 0 && entry.offset >= 0) {
      ranges.push_back({entry.field(), static_cast<uint64_t>(entry.offset), entry.end()});
    }
  }
  std::stable_sort(ranges.begin() + 1, ranges.end(),
                   [](const Range& a, const Range& b) { return a.start < b.start; });
  Findings findings;
  const Range* farthest = &ranges.front();
  for (auto range = ranges.begin() + 1; range != ranges.end(); ++range) {
    if (range->start < farthest->end) {
      add_warning(findings, range->field + ".offset", std::to_string(range->start),
                  "the entry overlaps " + farthest->field + ", which ends at byte " +
                      std::to_string(farthest->end));
    }
    farthest = range->end > farthest->end ? &*range : farthest;
  }
  return findings;
}

Findings compare(const std::string& field, const Digest& stated, const Digest& found) {
  Findings findings;
  if (stated != found) {
    add_error(findings, field, hex(stated),
              "the digest of the bytes is " + hex(found) +
                  ": the package is damaged; fetch it or make it again");
  }
  return findings;
}

void warn_of_zero_byte(const std::string& field, const Digest& digest, Findings& findings) {
  if (has_zero_byte(digest)) {
    add_warning(findings, field, hex(digest),
                "the digest holds a zero byte, so " + compared_text(digest) +
                    " and may miss damage; make the package again without --allow-zero-bytes");
  }
}

// Passes over what has no digest to speak of: a bad size or range has been found before.
Findings check_digests(const ByteSource& source, const PackageView& package) {
  Findings findings;
  if (check_file_size(package.file_size).empty()) {
    append(findings, check_content_digest(source, package));
  }
  warn_of_zero_byte("head.hash", package.content_hash(), findings);
  for (const PackageEntry& entry : package.entries()) {
    if (check_range(entry, package.file_size).empty()) {
      append(findings, check_entry_digest(source, entry));
    }
    // No device compares the digest of an extra file.
    if (entry.kind == PackageEntry::Kind::kPartition) {
      warn_of_zero_byte(entry.field("hash"), entry.hash, findings);
    }
  }
  return findings;
}

}  // namespace

Findings check_package(const ByteSource& source, const PartitionTable* table) {
  PackageReading reading = read_package(source);
  Findings findings = std::move(reading.findings);
  if (reading.package) {
    append(findings, check_structure(*reading.package, table));
    append(findings, check_digests(source, *reading.package));
  }
  return findings;
}

Findings check_structure(const PackageView& package, const PartitionTable* table) {
  Findings findings = check_file_size(package.file_size);
  append(findings, check_head(package));
  append(findings, check_entries(package));
  append(findings, check_names_together(package));
  append(findings, check_total_length(package));
  append(findings, check_overlaps(package));
  if (table != nullptr && !package.partitions.empty()) {
    append(findings, match_table(package.head.upgrade_type, names_of(package.partitions), *table));
  }
  return findings;
}

Findings check_content_digest(const ByteSource& source, const PackageView& package) {
  const uint64_t len = package.file_size - kHeadSize;
  return compare("head.hash", package.content_hash(), hash_range(source, kHeadSize, len).digest());
}

Findings check_entry_digest(const ByteSource& source, const PackageEntry& entry) {
  Findings findings = check_range(entry, source.size());
  if (!has_errors(findings)) {
    const auto offset = static_cast<uint64_t>(entry.offset);
    const auto len = static_cast<uint64_t>(entry.len);
    findings = compare(entry.field("hash"), entry.hash, hash_range(source, offset, len).digest());
  }
  return findings;
}

}  // namespace zozale
