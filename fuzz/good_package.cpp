// SPDX-License-Identifier: Apache-2.0
#include <openssl/sha.h>

#include <cstring>
#include <string>

#include "fuzz/fuzz_device.h"
#include "upi_upgrade_package.h"

namespace fuzz {
namespace {

constexpr size_t kImageSize = 700;
constexpr const char* kNames[] = {"kernel", "rootfs", "oemdata"};
constexpr size_t kPayload = sizeof(upgrade_package_head_info_t) + 3 * sizeof(partition_head_info_t);

void digest(const std::string& bytes, size_t from, size_t len, uint8_t (&out)[64]) {
  SHA512(reinterpret_cast<const unsigned char*>(bytes.data()) + from, len, out);
}

template <typename Record>
void put(std::string& bytes, size_t at, const Record& record) {
  std::memcpy(bytes.data() + at, &record, sizeof(record));
}

void put_entry(std::string& bytes, size_t index) {
  const size_t offset = kPayload + index * kImageSize;
  bytes.resize(offset + kImageSize, static_cast<char>('1' + index));
  partition_head_info_t entry = {};
  std::strncpy(entry.name, kNames[index], sizeof(entry.name) - 1);
  entry.len = kImageSize;
  entry.offset = static_cast<int32_t>(offset);
  digest(bytes, offset, kImageSize, entry.hash);
  put(bytes, sizeof(upgrade_package_head_info_t) + index * sizeof(entry), entry);
}

}  // namespace

std::string good_package() {
  std::string bytes(kPayload, '\0');
  for (size_t index = 0; index < 3; ++index) {
    put_entry(bytes, index);
  }
  upgrade_package_head_info_t head = {};
  std::memcpy(head.magic_word, "FOTA", sizeof(head.magic_word));
  head.partition_num = 3;
  digest(bytes, sizeof(head), bytes.size() - sizeof(head), head.hash);
  put(bytes, 0, head);
  return bytes;
}

}  // namespace fuzz
