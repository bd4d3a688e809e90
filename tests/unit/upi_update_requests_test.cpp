// SPDX-License-Identifier: Apache-2.0
//
// What an upgrade asks of the flash driver: who is erased how often, what is read and written in
// which pieces, and the bracket of the write protection.
#include <algorithm>

#include "upgrade_test.h"
#include "upi_update.h"

namespace {

using sim::Op;
using sim::System;
using support::pattern;

constexpr std::size_t kBlock = 2048;

class UpdateRequestsTest : public UpgradeTest, public ::testing::WithParamInterface<System> {
 protected:
  void SetUp() override {
    run_system(GetParam());
    fill_systems();
    name_ = target_name("kernel");
  }

  std::string name_;
};

INSTANTIATE_TEST_SUITE_P(Running, UpdateRequestsTest, ::testing::Values(System::a, System::b));

std::vector<std::uint64_t> offsets(const std::vector<sim::Call>& calls) {
  std::vector<std::uint64_t> found;
  found.reserve(calls.size());
  for (const sim::Call& call : calls) {
    found.push_back(call.offset);
  }
  return found;
}

std::vector<std::uint64_t> lengths(const std::vector<sim::Call>& calls) {
  std::vector<std::uint64_t> found;
  found.reserve(calls.size());
  for (const sim::Call& call : calls) {
    found.push_back(call.length);
  }
  return found;
}

TEST_P(UpdateRequestsTest, EveryGoodBlockIsErasedOnceAndEveryWrittenOneAgain) {
  target_of("kernel").set_bad(1);
  target_of("kernel").set_bad(6);
  put_package(platform_package({{"kernel", pattern(2 * kBlock + 1, 7)}}));
  std::vector<std::uint32_t> before;
  for (std::uint32_t block = 0; block < 8; ++block) {
    before.push_back(target_of("kernel").erase_count(block));
  }
  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  const std::vector<std::uint32_t> erased = {2, 0, 2, 2, 1, 1, 0, 1};
  for (std::uint32_t block = 0; block < 8; ++block) {
    EXPECT_EQ(target_of("kernel").erase_count(block) - before[block], erased[block]) << block;
  }
  using Offsets = std::vector<std::uint64_t>;
  EXPECT_EQ(offsets(run.made(Op::memerase64, name_)),
            (Offsets{0, 2 * kBlock, 3 * kBlock, 4 * kBlock, 5 * kBlock, 7 * kBlock}));
  EXPECT_EQ(offsets(run.made(Op::memerase, name_)), (Offsets{0, 2 * kBlock, 3 * kBlock}));
  EXPECT_TRUE(run.said("mtd_erase_partition", "Mtd, not erasing bad block at 0x800"));
  EXPECT_TRUE(run.said("mtd_erase_partition", "Mtd, not erasing bad block at 0x3000"));
}

TEST_P(UpdateRequestsTest, NoOtherPartitionIsErasedButTheFlags) {
  put_package(platform_package({{"kernel", pattern(10, 7)}}));
  const LibraryRun run = upgrade();
  for (const sim::Call& call : run.calls) {
    if (call.op == Op::memerase || call.op == Op::memerase64 || call.op == Op::write) {
      EXPECT_TRUE(call.partition == name_ || call.partition == "flags") << call.partition;
    }
  }
  // Main and backup, before and after.
  EXPECT_EQ(run.made(Op::memerase, "flags").size(), 4U);
}

TEST_P(UpdateRequestsTest, FlashIsWrittenInWholeBlocks) {
  put_package(platform_package({{"kernel", pattern(2 * kBlock + 1, 7)}}));
  const LibraryRun run = upgrade();

  EXPECT_EQ(lengths(run.made(Op::write, name_)),
            (std::vector<std::uint64_t>{kBlock, kBlock, kBlock}));
  EXPECT_EQ(offsets(run.made(Op::write, name_)),
            (std::vector<std::uint64_t>{0, kBlock, 2 * kBlock}));
}

TEST_P(UpdateRequestsTest, ThePackageIsReadChunkByChunkWithASeekForEach) {
  const support::PackageFile package = platform_package({{"kernel", pattern(2 * kBlock + 1, 7)}});
  put_package(package);
  const LibraryRun run = upgrade();

  const std::string path(support::kPackagePath);
  const std::uint64_t image = package.payload_offset();
  EXPECT_EQ(lengths(run.made(Op::read, path)),
            (std::vector<std::uint64_t>{4, 256, 128, kBlock, kBlock, 1}));
  EXPECT_EQ(offsets(run.made(Op::lseek, path)),
            (std::vector<std::uint64_t>{0, image, image + kBlock, image + 2 * kBlock}));
  EXPECT_EQ(offsets(run.made(Op::read, path)),
            (std::vector<std::uint64_t>{0, 0, 256, image, image + kBlock, image + 2 * kBlock}));
}

// Once before the erase and once after the last write.
TEST_P(UpdateRequestsTest, TheImageIsReadTwiceInPiecesOf1024Bytes) {
  put_package(platform_package({{"kernel", pattern(kBlock + 1000, 7)}}));
  const LibraryRun run = upgrade();

  EXPECT_EQ(lengths(run.made(Op::read, name_)),
            (std::vector<std::uint64_t>{1024, 1024, 1000, 1024, 1024, 1000}));
  EXPECT_EQ(offsets(run.made(Op::read, name_)),
            (std::vector<std::uint64_t>{0, 1024, 2048, 0, 1024, 2048}));
}

TEST_P(UpdateRequestsTest, TheNodeIsOpenedAndAskedForItsGeometryTwice) {
  put_package(platform_package({{"kernel", pattern(10, 7)}}));
  const LibraryRun run = upgrade();

  const std::vector<sim::Call> opens = run.made(Op::open, name_);
  ASSERT_EQ(opens.size(), 2U);
  for (const sim::Call& open : opens) {
    EXPECT_EQ(open.path, partition(name_).node());
    EXPECT_EQ(open.flags, 0x1002);
  }
  EXPECT_EQ(run.made(Op::memgetinfo, name_).size(), 2U);
  EXPECT_EQ(run.made(Op::close, name_).size(), 2U);
  EXPECT_TRUE(run.made(Op::other_request, name_).empty());
}

TEST_P(UpdateRequestsTest, TheProtectionIsLiftedAndRestoredOnOneDescriptor) {
  put_package(platform_package({{"kernel", pattern(10, 7)}, {"rootfs", pattern(20, 8)}}));
  const LibraryRun run = upgrade();

  for (const std::string& name : {name_, target_name("rootfs")}) {
    expect_protection_bracket(run, name);
    EXPECT_EQ(run.made(Op::protect_lift, name)[0].fd, run.made(Op::open, name)[0].fd);
  }
}

std::string op_sequence(const LibraryRun& run, const std::string& name) {
  std::string sequence;
  for (const sim::Call& call : run.calls) {
    if (call.partition == name && call.op != Op::lseek) {
      sequence += std::string(sim::op_name(call.op)) + " ";
    }
  }
  return sequence;
}

TEST_P(UpdateRequestsTest, OfOnePartitionComeInThisOrder) {
  target_of("kernel").set_bad(0);
  for (std::uint32_t block = 3; block < 8; ++block) {
    target_of("kernel").set_bad(block);
  }
  put_package(platform_package({{"kernel", pattern(10, 7)}}));

  const std::string words = op_sequence(upgrade(), name_);

  EXPECT_EQ(words,
            "open MEMGETINFO protect-lift read "
            "open MEMGETINFO MEMERASE64 MEMERASE64 close "
            "MEMERASE write read protect-restore close ");
}

// A partition that is up to date is opened, unlocked, read, locked and closed.
TEST_P(UpdateRequestsTest, OfAnImageThatIsThereAreReadsOnly) {
  const sim::Bytes image = pattern(1500, 7);
  target_of("kernel").flash(image);
  put_package(platform_package({{"kernel", image}}));

  EXPECT_EQ(op_sequence(upgrade(), name_),
            "open MEMGETINFO protect-lift read read protect-restore close ");
}

TEST_P(UpdateRequestsTest, TheBadBlocksAreAskedForAtEveryAddress) {
  put_package(platform_package({{"kernel", pattern(kBlock + 1, 7)}}));
  device().clear_counts();
  upgrade();
  // A read in block k asks k + 1 times: 1024-byte reads at 0, 1024 and 2048, before and after;
  // writes to blocks 0 and 1; the erase asks for each of the 8 blocks.
  EXPECT_EQ(target_of("kernel").count(Op::memgetbadblock), 2U * (1 + 1 + 2) + (1 + 2) + 8);
}

}  // namespace
