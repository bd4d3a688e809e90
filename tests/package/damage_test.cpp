// SPDX-License-Identifier: Apache-2.0
//
// A package with every byte flipped in turn and cut at every length: check ends, and finds it.
#include <cstring>
#include <random>

#include "check.h"
#include "package_view.h"
#include "support.h"

namespace package_test {
namespace {

// Small enough to flip every byte, with every kind of region: head, both tables, images, an extra
// file, bytes that no entry names.
std::string small_package() {
  RawPackage package;
  package.partition("kernel", image_without_zero_byte(64));
  package.partition("rootfs", image_without_zero_byte(80));
  package.extra("notes", "read me");
  package.layout();
  package.payload += "free";
  return package.bytes();
}

zozale::Findings check_bytes(const std::string& bytes) {
  const zozale::MemorySource source(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return zozale::check_package(source, nullptr);
}

// Regions of the head that no device checks, and no check can: their values are for people.
bool is_for_people(size_t offset) {
  using Head = upgrade_package_head_info_t;
  const auto within = [offset](size_t start, size_t size) {
    return offset >= start && offset < start + size;
  };
  return within(offsetof(Head, upgrade_package_version), 12) ||
         within(offsetof(Head, block_size), 4 + 64 + 64) || within(offsetof(Head, reserve), 28) ||
         within(offsetof(Head, upgrade_type), 4) || within(offsetof(Head, hash_type), 4);
}

// The head has no digest: extra files that its count hides have never been there.
bool hides_extra_files(size_t offset) {
  const size_t start = offsetof(upgrade_package_head_info_t, extra_num);
  return offset >= start && offset < start + 4;
}

TEST(Damage, IsFoundInEveryByteThatCounts) {
  const std::string package = small_package();
  ASSERT_FALSE(zozale::has_errors(check_bytes(package)));
  for (size_t at = 0; at < package.size(); ++at) {
    for (const char mask : {'\x01', '\x80', '\xff'}) {
      std::string damaged = package;
      damaged[at] = static_cast<char>(damaged[at] ^ mask);
      const bool found = zozale::has_errors(check_bytes(damaged));
      EXPECT_TRUE(found || is_for_people(at) || hides_extra_files(at)) << at;
    }
  }
}

TEST(Damage, OfAnUnknownTypeIsFound) {
  std::string package = small_package();
  package[offsetof(upgrade_package_head_info_t, upgrade_type)] ^= '\x80';
  EXPECT_TRUE(zozale::has_errors(check_bytes(package)));
}

TEST(Damage, ByACutIsFoundAtEveryLength) {
  const std::string package = small_package();
  for (size_t size = 0; size < package.size(); ++size) {
    EXPECT_TRUE(zozale::has_errors(check_bytes(package.substr(0, size)))) << size;
  }
}

TEST(Damage, ByACutNamesTheTable) {
  const std::string package = small_package();
  EXPECT_THAT(errors(check_bytes(package.substr(0, 256 + 2 * 128 - 1))),
              ElementsAre("head.partition_num: 2"));
  EXPECT_THAT(errors(check_bytes(package.substr(0, 256 + 2 * 128 + 120 - 1))),
              ElementsAre("head.extra_num: 1"));
  const auto behind_tables = errors(check_bytes(package.substr(0, 256 + 2 * 128 + 120)));
  EXPECT_THAT(behind_tables, ::testing::Contains("partition[0].len: 64"));
}

TEST(Damage, ByMoreBytesIsFound) {
  EXPECT_TRUE(zozale::has_errors(check_bytes(small_package() + '\0')));
}

// Whatever the tables say, check ends with findings and reads nothing outside the bytes (the
// sanitizers' build proves it).
TEST(Damage, OfAnyKindEnds) {
  std::mt19937 random = seeded(42);
  const std::string package = small_package();
  for (int i = 0; i < 20000; ++i) {
    std::string damaged = package;
    for (size_t changes = 1 + random() % 8; changes > 0; --changes) {
      const size_t at = random() % damaged.size();
      if (random() % 2 == 0) {
        damaged[at] = static_cast<char>(random());
      } else {
        static constexpr int32_t kValues[] = {0, -1, 1, INT32_MAX, INT32_MIN, 49, 50, 256};
        const int32_t value = kValues[random() % 8];
        const size_t aligned = std::min(at & ~size_t{3}, damaged.size() - sizeof(value));
        memcpy(damaged.data() + aligned, &value, sizeof(value));
      }
    }
    check_bytes(damaged);
  }
}

}  // namespace
}  // namespace package_test
