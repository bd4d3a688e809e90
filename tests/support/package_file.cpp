// SPDX-License-Identifier: Apache-2.0
#include "tests/support/package_file.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "tests/support/device_test.h"

namespace support {
namespace {

class Writer {
 public:
  Writer& number(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    for (unsigned shift = 0; shift < 32; shift += 8) {
      out_.push_back(static_cast<std::uint8_t>(bits >> shift));
    }
    return *this;
  }
  Writer& text(std::string_view value, std::size_t size) {
    return bytes(sim::Bytes(value.begin(), value.end()), size);
  }
  // Filled up with zero bytes.
  Writer& bytes(const sim::Bytes& value, std::size_t size) {
    if (value.size() > size) {
      throw std::length_error("a package field of " + std::to_string(size) + " bytes gets " +
                              std::to_string(value.size()));
    }
    append(value);
    out_.resize(out_.size() + size - value.size());
    return *this;
  }
  Writer& append(const sim::Bytes& value) {
    out_.insert(out_.end(), value.begin(), value.end());
    return *this;
  }
  const sim::Bytes& out() const { return out_; }

 private:
  sim::Bytes out_;
};

std::int32_t as_field(std::size_t value) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

void add_common(Writer& out, const PackageEntry& entry, std::size_t offset) {
  out.text(entry.name, 32);
  out.number(entry.len.value_or(as_field(entry.data.size())));
  out.number(entry.offset.value_or(as_field(offset)));
}

void add_partition(Writer& out, const PackageEntry& entry, std::size_t offset) {
  add_common(out, entry, offset);
  out.number(entry.partition_type).number(entry.zipped).bytes({}, 16);
  out.bytes(entry.hash.value_or(sha512(entry.data)), 64);
}

void add_extra(Writer& out, const PackageEntry& entry, std::size_t offset) {
  add_common(out, entry, offset);
  out.bytes({}, 8).bytes(entry.hash.value_or(sha512(entry.data)), 64).bytes({}, 8);
}

sim::Bytes behind_head(const PackageFile& package) {
  Writer out;
  std::size_t offset = package.payload_offset();
  for (const PackageEntry& entry : package.partitions) {
    add_partition(out, entry, offset);
    offset += entry.data.size();
  }
  for (const PackageEntry& entry : package.extras) {
    add_extra(out, entry, offset);
    offset += entry.data.size();
  }
  for (const auto* table : {&package.partitions, &package.extras}) {
    for (const PackageEntry& entry : *table) {
      out.append(entry.data);
    }
  }
  return out.append(package.tail).out();
}

}  // namespace

sim::Bytes sha512(const sim::Bytes& data) {
  sim::Bytes digest(SHA512_DIGEST_LENGTH);
  SHA512(data.data(), data.size(), digest.data());
  return digest;
}

std::string shown_digest(const sim::Bytes& digest) {
  std::string shown;
  for (const std::uint8_t byte : digest) {
    std::array<char, 4> cell{};
    std::snprintf(cell.data(), cell.size(), "%02x ", byte);
    shown += cell.data();
  }
  return shown;
}

std::size_t PackageFile::payload_offset() const {
  return kPackageHeadSize + partitions.size() * kPartitionEntrySize +
         extras.size() * kExtraEntrySize;
}

sim::Bytes PackageFile::bytes() const {
  const sim::Bytes content = behind_head(*this);
  Writer out;
  out.text(magic, 4).number(version).number(plat).number(package_type).number(upgrade_type);
  out.number(partition_num.value_or(as_field(partitions.size())));
  out.number(extra_num.value_or(as_field(extras.size())));
  out.number(hash_type).number(block_size).text(version_src, 64).text(version_dst, 64);
  out.bytes(hash.value_or(sha512(content)), 64).bytes(reserve, 28);
  return out.append(content).out();
}

PackageFile system_package(std::size_t len) {
  PackageFile package;
  std::uint32_t seed = 100;
  for (const char* name : {"kernel", "rootfs", "oemdata"}) {
    package.partitions.push_back({name, pattern(len, ++seed)});
  }
  return package;
}

void renew_content_digest(sim::Bytes& package) {
  const auto head_end = package.begin() + kPackageHeadSize;
  const sim::Bytes digest = sha512(sim::Bytes(head_end, package.end()));
  std::copy(digest.begin(), digest.end(), package.begin() + kHeadHashOffset);
}

sim::Bytes with_zero_in_digest(sim::Bytes data, std::size_t within) {
  for (std::uint8_t next = 1;; ++next) {
    const sim::Bytes digest = sha512(data);
    const auto end = digest.begin() + static_cast<std::ptrdiff_t>(within);
    if (std::find(digest.begin(), end, std::uint8_t{0}) != end) {
      return data;
    }
    data.push_back(next);
  }
}

sim::Bytes changed_behind_zero(sim::Bytes digest) {
  auto zero = std::find(digest.begin(), digest.end(), std::uint8_t{0});
  if (zero == digest.end()) {
    throw std::invalid_argument("the digest holds no zero byte");
  }
  for (++zero; zero != digest.end(); ++zero) {
    *zero = static_cast<std::uint8_t>(*zero ^ 0xFF);
  }
  return digest;
}

}  // namespace support
