// SPDX-License-Identifier: Apache-2.0
#include "package_writer.h"

#include <algorithm>
#include <cstring>

#include "common/text.h"
#include "package_view.h"
#include "rules.h"

namespace zozale {
namespace {

// What erased flash reads as.
constexpr uint8_t kErased = 0xFF;
// One digest in five holds a zero byte: a run of this many is not met with.
constexpr uint64_t kContentRoom = 4096;

template <size_t N>
void put_text(char (&field)[N], const std::string& text) {
  memcpy(field, text.data(), std::min(text.size(), N));
}

void put_digest(uint8_t (&field)[64], const Digest& digest) {
  std::copy(digest.begin(), digest.end(), std::begin(field));
}

// The members that the records of both tables have in common.
template <typename Record>
Record to_record(const std::string& name, uint64_t offset, uint64_t len, const Digest& digest) {
  Record record{};
  put_text(record.name, name);
  record.len = static_cast<int32_t>(len);
  record.offset = static_cast<int32_t>(offset);
  put_digest(record.hash, digest);
  return record;
}

void update_with_padding(Sha512& hash, uint64_t count) {
  for (uint64_t i = 0; i < count; ++i) {
    hash.update(&kErased, 1);
  }
}

template <typename Record>
size_t table_size(const std::vector<Record>& records) {
  return records.size() * sizeof(Record);
}

}  // namespace

PackageWriter::PackageWriter(const PackagePlan& plan, const PlanFiles& files, OutputFile& out)
    : plan_(plan),
      files_(files),
      out_(out),
      partitions_(plan.partitions.size()),
      extras_(plan.extras.size()) {}

CreatedPackage PackageWriter::write() {
  // Holds the places of head and tables until what they say is known.
  const std::vector<uint8_t> nothing(sizeof(upgrade_package_head_info_t) + table_size(partitions_) +
                                     table_size(extras_));
  out_.append(nothing.data(), nothing.size());
  write_partitions();
  write_extras();
  write_tables();
  pad_content();
  write_head();
  package_.size = out_.size();
  return package_;
}

void PackageWriter::write_partitions() {
  for (size_t i = 0; i < plan_.partitions.size(); ++i) {
    const uint64_t offset = out_.size();
    const InputFile& file = files_.partitions[i];
    Sha512 hash = copy(file);
    const uint64_t padding = pad_image(i, hash, file.size());
    partitions_[i] = to_record<partition_head_info_t>(plan_.partitions[i].name, offset,
                                                      file.size() + padding, hash.digest());
    package_.partitions.push_back({plan_.partitions[i].name, file.size(), padding});
  }
}

// Extra files are not padded: a host reads them as they are, and no device compares their digests.
void PackageWriter::write_extras() {
  for (size_t i = 0; i < plan_.extras.size(); ++i) {
    const uint64_t offset = out_.size();
    const InputFile& file = files_.extras[i];
    const Sha512 hash = copy(file);
    extras_[i] =
        to_record<extra_head_info_t>(plan_.extras[i].name, offset, file.size(), hash.digest());
    package_.extras.push_back({plan_.extras[i].name, file.size(), 0});
  }
}

void PackageWriter::write_tables() {
  out_.write_at(kHeadSize, partitions_.data(), table_size(partitions_));
  out_.write_at(kHeadSize + table_size(partitions_), extras_.data(), table_size(extras_));
}

void PackageWriter::pad_content() {
  Sha512 hash = hash_range(out_, kHeadSize, out_.size() - kHeadSize);
  if (!plan_.allow_zero_bytes) {
    const std::optional<uint64_t> padding = padding_without_zero_byte(hash, kContentRoom);
    if (!padding) {
      add_error(findings_, "head.hash", hex(hash.digest()),
                "it holds a zero byte, and so it does with any padding up to " +
                    human_size(kContentRoom) + "; give --allow-zero-bytes");
      return;
    }
    append_padding(*padding);
    update_with_padding(hash, *padding);
    package_.content_padding = *padding;
  }
  content_hash_ = hash.digest();
}

void PackageWriter::write_head() {
  upgrade_package_head_info_t head{};
  put_text(head.magic_word, "FOTA");
  head.upgrade_package_version = plan_.package_version;
  head.plat = plan_.plat;
  head.upgrade_package_type = plan_.package_type;
  head.upgrade_type = plan_.upgrade_type;
  head.partition_num = static_cast<int32_t>(partitions_.size());
  head.extra_num = static_cast<int32_t>(extras_.size());
  head.block_size = plan_.block_size.value_or(static_cast<int32_t>(plan_.erase_block));
  put_text(head.version_src, plan_.version_src);
  put_text(head.version_dst, plan_.version_dst);
  put_digest(head.hash, content_hash_);
  out_.write_at(0, &head, sizeof(head));
}

Sha512 PackageWriter::copy(const InputFile& file) {
  Sha512 hash;
  for_each_chunk(file, 0, file.size(), [this, &hash](const uint8_t* bytes, size_t count) {
    hash.update(bytes, count);
    out_.append(bytes, count);
  });
  return hash;
}

uint64_t PackageWriter::pad_image(size_t index, Sha512& hash, uint64_t len) {
  if (plan_.allow_zero_bytes) {
    return 0;
  }
  const uint64_t block = plan_.erase_block;
  const uint64_t in_block = (block - len % block) % block;
  const uint64_t room = std::min({in_block, kMaxImageSize - len, kMaxRangeEnd - out_.size()});
  const std::optional<uint64_t> padding = padding_without_zero_byte(hash, room);
  if (!padding) {
    const Digest digest = hash.digest();
    add_error(findings_, "partition[" + std::to_string(index) + "].hash", hex(digest),
              "the digest of " + in_quotes(files_.partitions[index].path()) +
                  " holds a zero byte, so " + compared_text(digest) + ", and the " +
                  std::to_string(room) + " bytes left in its last erase block of " +
                  std::to_string(block) +
                  " bytes do not help; add a byte or more to the image, build it anew, or give "
                  "--allow-zero-bytes");
    return 0;
  }
  append_padding(*padding);
  update_with_padding(hash, *padding);
  return *padding;
}

void PackageWriter::append_padding(uint64_t count) {
  const std::vector<uint8_t> padding(static_cast<size_t>(count), kErased);
  out_.append(padding.data(), padding.size());
}

std::optional<uint64_t> padding_without_zero_byte(Sha512 hash, uint64_t room) {
  for (uint64_t count = 0; count <= room; ++count) {
    if (!has_zero_byte(hash.digest())) {
      return count;
    }
    hash.update(&kErased, 1);
  }
  return std::nullopt;
}

}  // namespace zozale
