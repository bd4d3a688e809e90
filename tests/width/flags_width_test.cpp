// SPDX-License-Identifier: Apache-2.0
//
// Boot flag records past 2 GiB. Their blocks are asked about with 64 bits: they are found and
// written wherever the partition's good blocks are.
#include "upi_fotaflag_partition.h"
#include "wide_test.h"

namespace {

using sim::Op;
using support::logged;

// The first good block.
constexpr std::uint32_t kFirst = 600;

class FlagsWidthTest : public support::DeviceTest {
 protected:
  FlagsWidthTest() {
    sim::Layout layout = sim::test_layout(16384, 256, 4);
    layout.partitions.at(0).blocks = kBlocks;
    layout.partitions.at(0).bad = blocks_up_to(kFirst);
    use(layout);
  }
  // The bytes of the record in a block, which holds nothing else.
  sim::Bytes record(std::uint32_t block) {
    sim::Bytes content = partition("flags").block(block);
    const sim::Bytes rest(content.begin() + sizeof(T_FOTA_FLAG_INFO), content.end());
    EXPECT_EQ(rest, sim::Bytes(rest.size(), 0xFF)) << block;
    content.resize(sizeof(T_FOTA_FLAG_INFO));
    return content;
  }
};

TEST_F(FlagsWidthTest, WritesFreshRecordsPastTwoGigabytes) {
  int result = 1;
  const sim::Recording recording;
  static_cast<void>(logged([&] { result = vemk_init_flag_partition(); }));
  EXPECT_EQ(result, 0);
  const sim::Bytes first = record(kFirst);
  EXPECT_EQ(sim::Bytes(first.begin(), first.begin() + 4), (sim::Bytes{'G', 'A', 'L', 'F'}));
  for (std::uint32_t block = kFirst + 1; block < kFirst + 8; ++block) {
    EXPECT_EQ(record(block), first);
  }
  const auto erased = recording.calls(Op::memerase, "flags");
  ASSERT_EQ(erased.size(), 8U);
  EXPECT_EQ(erased[0].offset, std::uint64_t{kFirst} * kBlock);
  EXPECT_EQ(erased[0].result, 0);
}

TEST_F(FlagsWidthTest, FindsAndRewritesRecordsPastTwoGigabytes) {
  write_flags();
  T_FOTA_FLAG_INFO main{};
  T_FOTA_FLAG_INFO backup{};
  int main_index = 0;
  int backup_index = 1;
  int result = 1;
  {
    const sim::Recording recording({true});
    static_cast<void>(logged(
        [&] { result = upi_get_boot_flags_content(&main, &main_index, &backup, &backup_index); }));
    const auto asked = recording.calls(Op::memgetbadblock);
    ASSERT_EQ(asked.size(), kFirst + 2);
    EXPECT_EQ(asked[kFirst].offset, std::uint64_t{kFirst} * kBlock);
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(main_index, as_int(kFirst));
  EXPECT_EQ(backup_index, as_int(kFirst) + 1);
  EXPECT_EQ(backup.boot_env.magic, FOTA_FLAG_MAGIC);

  static_cast<void>(logged([&] { result = vemk_dual_set_boot_to_system(DUAL_SYSTEM2, 0); }));
  EXPECT_EQ(result, 0);
  for (const std::uint32_t block : {kFirst, kFirst + 1}) {
    const sim::Bytes bytes = record(block);
    EXPECT_EQ(sim::Bytes(bytes.begin() + 4, bytes.begin() + 8), (sim::Bytes{0x6B, 0x98, 0, 0}));
    EXPECT_EQ(partition("flags").erase_count(block), 1U);
  }
}

}  // namespace
