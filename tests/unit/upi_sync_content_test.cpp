// SPDX-License-Identifier: Apache-2.0
//
// What counts as a partition's content: its reader, its digest, the comparison of two.
#include <cerrno>
#include <numeric>

#include "descriptor_squatter.h"
#include "expected_log.h"
#include "opened_partition.h"
#include "upgrade_test.h"
#include "upi_sync_system.h"

namespace {

using sim::Op;
using support::pattern;
using Lines = std::vector<support::LogLine>;

constexpr std::size_t kBlock = 2048;
constexpr std::size_t kSize = 8 * kBlock;

char* name_of(const std::string& name) {
  return const_cast<char*>(name.c_str());
}

struct Hashed {
  LibraryRun run;
  sim::Bytes digest = sim::Bytes(64);
};

Hashed hash(const std::string& name, int type = 0) {
  Hashed hashed;
  hashed.run =
      run_library([&] { return partition_hash(name_of(name), type, hashed.digest.data()); });
  return hashed;
}

LibraryRun compare(const std::string& dst, const std::string& src, int type = 0) {
  return run_library([&] { return partition_hash_cmp(name_of(dst), name_of(src), type); });
}

sim::Bytes whole_blocks(sim::Bytes data, std::size_t block = kBlock) {
  data.resize((data.size() + block - 1) / block * block, 0xFF);
  return data;
}

// --- The digest. ---

class ContentTest : public UpgradeTest {
 protected:
  sim::Partition kernel() { return partition("kernel"); }

  void expect_digest_of(const sim::Bytes& content) {
    const Hashed hashed = hash("kernel");
    EXPECT_EQ(hashed.run.result, 0);
    EXPECT_EQ(hashed.digest, support::sha512(content));
  }
};

TEST_F(ContentTest, OfAnErasedPartitionIsEmpty) {
  const Hashed hashed = hash("kernel");

  EXPECT_EQ(hashed.run.result, 0);
  EXPECT_EQ(hashed.digest, support::sha512({}));
  ExpectedLog log(device(), hashed.run);
  log.get_partition_mtd_info("kernel").say("partition_hash", "Read image content end");
  EXPECT_EQ(hashed.run.log, log.lines());
  EXPECT_EQ(hashed.run.made(Op::read, "kernel").size(), 1U);
}

TEST_F(ContentTest, OfAFullPartitionEndsWithIt) {
  kernel().flash(pattern(kSize));
  const Hashed hashed = hash("kernel");

  EXPECT_EQ(hashed.digest, support::sha512(pattern(kSize)));
  ExpectedLog log(device(), hashed.run);
  EXPECT_EQ(hashed.run.log, log.get_partition_mtd_info("kernel").lines());
}

TEST_F(ContentTest, IsReadInWholeBlocksUpToTheFirstErasedOne) {
  kernel().flash(pattern(2 * kBlock + 1));
  kernel().poke(5 * kBlock, pattern(kBlock, 9));
  const Hashed hashed = hash("kernel");

  EXPECT_EQ(hashed.digest, support::sha512(whole_blocks(pattern(2 * kBlock + 1))));
  const std::vector<sim::Call> reads = hashed.run.made(Op::read, "kernel");
  ASSERT_EQ(reads.size(), 4U);
  for (std::size_t block = 0; block < reads.size(); ++block) {
    EXPECT_EQ(reads[block].offset, block * kBlock);
    EXPECT_EQ(reads[block].length, kBlock);
  }
  EXPECT_EQ(hashed.run.made(Op::open, "kernel").size(), 1U);
  EXPECT_EQ(hashed.run.made(Op::memgetinfo, "kernel").size(), 1U);
  EXPECT_TRUE(hashed.run.made(Op::protect_lift, "kernel").empty());
}

// The short look at a block's first 1,024 bytes does not decide that it is erased.
TEST_F(ContentTest, HoldsABlockWithOneByteThatIsNotErased) {
  for (const std::size_t place :
       {std::size_t{0}, std::size_t{1023}, std::size_t{1024}, kBlock - 1}) {
    kernel().wipe();
    sim::Bytes data(kBlock, 0xFF);
    data[place] = 0xFE;
    kernel().poke(0, data);
    SCOPED_TRACE("byte " + std::to_string(place));
    expect_digest_of(data);
  }
}

TEST_F(ContentTest, GoesOnPastBadBlocks) {
  for (const std::uint32_t bad : {0U, 3U, 4U, 5U}) {
    kernel().set_bad(bad);
  }
  kernel().flash(pattern(3 * kBlock));
  expect_digest_of(pattern(3 * kBlock));
}

TEST_F(ContentTest, EndsWhereTheGoodBlocksDo) {
  kernel().set_bad(0);
  kernel().set_bad(7);
  kernel().flash(pattern(6 * kBlock));
  const Hashed hashed = hash("kernel");

  EXPECT_EQ(hashed.run.result, 0);
  EXPECT_EQ(hashed.digest, support::sha512(pattern(6 * kBlock)));
  EXPECT_TRUE(hashed.run.said_in_order(
      {{"read_image",
        "Start address (16384) or new start address (18432) out of partition total size (16384)!"},
       {"partition_hash", "Out of Image"}}));
  EXPECT_EQ(hashed.run.messages_of("partition_hash").size(), 1U);
}

TEST_F(ContentTest, OfBadBlocksOnlyIsEmpty) {
  for (std::uint32_t block = 0; block < 8; ++block) {
    kernel().set_bad(block);
  }
  const Hashed hashed = hash("kernel");
  EXPECT_EQ(hashed.run.result, 0);
  EXPECT_EQ(hashed.digest, support::sha512({}));
  EXPECT_TRUE(hashed.run.said("partition_hash", "Out of Image"));
}

TEST_F(ContentTest, OfBlocksSmallerThanTheShortLook) {
  use_layout(sim::test_layout(128, 4, 8));
  kernel().flash(pattern(3 * 512));
  expect_digest_of(pattern(3 * 512));
  kernel().wipe();
  kernel().poke(512, pattern(512));
  expect_digest_of({});
}

TEST_F(ContentTest, OfNoBlocksIsEmpty) {
  const sim::MtdInfo truth = kernel().reported_info();
  kernel().set_reported_info({{0, truth.erase_size, truth.write_size, truth.oob_size}});
  expect_digest_of({});
  EXPECT_EQ(device().count(Op::memgetbadblock), 0U);
}

TEST_F(ContentTest, OfBlocksOfNoSizeReadsNothing) {
  const sim::MtdInfo truth = kernel().reported_info();
  kernel().set_reported_info({{truth.size, 0, truth.write_size, truth.oob_size}});
  EXPECT_TRUE(hash("kernel").run.made(Op::read, "kernel").empty());
}

TEST_F(ContentTest, NeedsANameAndRoomForTheDigest) {
  sim::Bytes digest(64);
  std::string name = "kernel";
  const Lines said = {{"partition_hash", "partition or hash is NULL"}};
  const LibraryRun nameless =
      run_library([&] { return partition_hash(nullptr, 0, digest.data()); });
  EXPECT_EQ(nameless.result, -1);
  EXPECT_EQ(nameless.log, said);
  const LibraryRun roomless = run_library([&] { return partition_hash(name.data(), 0, nullptr); });
  EXPECT_EQ(roomless.result, -1);
  EXPECT_EQ(roomless.log, said);
}

// --- What fails while it is read. ---

class ContentFailureTest : public ContentTest {
 protected:
  ContentFailureTest() { kernel().flash(pattern(3 * kBlock)); }

  static void expect_failed(const LibraryRun& run, const Lines& said) {
    EXPECT_EQ(run.result, -1);
    EXPECT_TRUE(run.said_in_order(said)) << ::testing::PrintToString(run.log);
    EXPECT_EQ(run.messages_of("partition_hash").size(), 1U);
  }

  void expect_malloc_failure(const std::string& message) {
    const LibraryRun run = run_out_of_memory(
        [] {
          sim::Bytes digest(64);
          return partition_hash(name_of("kernel"), 0, digest.data());
        },
        {"partition_hash", message});
    expect_failed(run, {{"partition_hash", message}});
    EXPECT_TRUE(run.made(Op::read, "kernel").empty());
  }
};

TEST_F(ContentFailureTest, APartitionThatIsNotThere) {
  expect_failed(hash("nothing").run,
                {{"get_partition_mtd_info", "Partition [nothing] not found!"},
                 {"partition_hash", "Failed to get partition [nothing] mtd info"}});
}

TEST_F(ContentFailureTest, AKindWithoutContent) {
  for (const int kind : {1, 2, 3, -1}) {
    DescriptorSquatter squatter;
    expect_failed(hash("kernel", kind).run,
                  {{"partition_hash", "Failed to get partition [kernel] mtd info"}});
    EXPECT_TRUE(squatter.lost().empty());
  }
}

TEST_F(ContentFailureTest, TheOpenOrTheGeometry) {
  for (const Op op : {Op::open, Op::memgetinfo}) {
    device().faults().add({op, "kernel"});
    DescriptorSquatter squatter;
    expect_failed(hash("kernel").run,
                  {{"partition_hash", "Failed to get partition [kernel] mtd info"}});
    EXPECT_TRUE(squatter.lost().empty());
  }
}

TEST_F(ContentFailureTest, TheReadBuffer) {
  expect_malloc_failure("Malloc read_data fail, size:2048");
}

TEST_F(ContentFailureTest, TheErasedBlock) {
  expect_malloc_failure("Malloc delta_f fail, size:2048");
}

TEST_F(ContentFailureTest, ARead) {
  device().faults().add({Op::read, "kernel", 2, EIO});
  const LibraryRun run = hash("kernel").run;
  expect_failed(run, {{"read_image", "Read len (-1) < need len (2048)!"},
                      {"read_image", "VEMK_ReadImage fail"},
                      {"partition_hash", "Read image content fail"}});
  EXPECT_EQ(run.made(Op::close, "kernel").size(), 1U);
}

// --- The comparison. ---

class CompareTest : public ContentTest {
 protected:
  static support::LogLine verdict(const std::string& end) {
    return {"partition_hash_cmp",
            "dst_partition_hash [kernel2] and src_partition_hash [kernel] is " + end};
  }
};

TEST_F(CompareTest, FindsOneContentOnDifferentBlocksAndSizesEqual) {
  sim::Layout layout = sim::test_layout();
  layout.partitions[2].blocks = 12;
  layout.partitions[2].bad = {0, 2, 5};
  use_layout(layout);
  kernel().set_bad(1);
  kernel().flash(pattern(5 * kBlock - 9));
  partition("kernel2").flash(pattern(5 * kBlock - 9));
  partition("kernel2").poke(11 * kBlock, pattern(3));

  const LibraryRun run = compare("kernel2", "kernel");

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.log.back(), verdict("the same"));
}

TEST_F(CompareTest, FindsTwoErasedPartitionsEqual) {
  const LibraryRun run = compare("kernel2", "kernel");

  EXPECT_EQ(run.result, 0);
  ExpectedLog log(device(), run);
  log.get_partition_mtd_info("kernel2").say("partition_hash", "Read image content end");
  log.get_partition_mtd_info("kernel").say("partition_hash", "Read image content end");
  log.say("partition_hash_cmp",
          "dst_partition_hash [kernel2] and src_partition_hash [kernel] is the same");
  EXPECT_EQ(run.log, log.lines());
}

TEST_F(CompareTest, ShowsBothDigestsWhenTheyDiffer) {
  kernel().flash(pattern(kSize));
  partition("kernel2").flash(pattern(kSize, 2));

  const LibraryRun run = compare("kernel2", "kernel");

  EXPECT_EQ(run.result, -1);
  ExpectedLog log(device(), run);
  log.get_partition_mtd_info("kernel2").get_partition_mtd_info("kernel");
  log.say("show_hash_hex",
          "dst_partition hash::" + support::shown_digest(support::sha512(pattern(kSize, 2))));
  log.say("show_hash_hex",
          "src_partition hash::" + support::shown_digest(support::sha512(pattern(kSize))));
  log.say("partition_hash_cmp", verdict("different").message);
  EXPECT_EQ(run.log, log.lines());
}

TEST_F(CompareTest, DoesNotSeeWhatStandsBehindAnErasedBlock) {
  kernel().flash(pattern(kBlock));
  partition("kernel2").flash(pattern(kBlock));
  kernel().poke(2 * kBlock, pattern(kBlock, 3));
  EXPECT_EQ(compare("kernel2", "kernel").result, 0);
}

// Digests are compared up to a zero byte that both hold.
TEST_F(CompareTest, TakesTwoContentsForOneWhenBothDigestsBeginWithZero) {
  std::vector<sim::Bytes> alike;
  for (std::uint32_t seed = 1; alike.size() < 2; ++seed) {
    const sim::Bytes content = pattern(kBlock, seed);
    if (support::sha512(content)[0] == 0) {
      alike.push_back(content);
    }
  }
  kernel().flash(alike[0]);
  partition("kernel2").flash(alike[1]);
  ASSERT_NE(alike[0], alike[1]);
  EXPECT_EQ(compare("kernel2", "kernel").result, 0);
}

TEST_F(CompareTest, StopsAtTheDestinationThatCannotBeRead) {
  const LibraryRun run = compare("nothing", "kernel");
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log.back(),
            (support::LogLine{"partition_hash_cmp", "partition [nothing] hash fail"}));
  EXPECT_TRUE(run.made(Op::open, "kernel").empty());
}

TEST_F(CompareTest, NamesTheSourceThatCannotBeRead) {
  device().faults().add({Op::read, "kernel"});
  const LibraryRun run = compare("kernel2", "kernel");
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log.back(),
            (support::LogLine{"partition_hash_cmp", "partition [kernel] hash fail"}));
  EXPECT_EQ(run.made(Op::open, "kernel2").size(), 1U);
}

TEST_F(CompareTest, NeedsTwoNames) {
  std::string name = "kernel";
  const Lines said = {{"partition_hash_cmp", "dst partition or src partition is NULL"}};
  const LibraryRun no_dst =
      run_library([&] { return partition_hash_cmp(nullptr, name.data(), 0); });
  EXPECT_EQ(no_dst.result, -1);
  EXPECT_EQ(no_dst.log, said);
  const LibraryRun no_src =
      run_library([&] { return partition_hash_cmp(name.data(), nullptr, 0); });
  EXPECT_EQ(no_src.result, -1);
  EXPECT_EQ(no_src.log, said);
}

}  // namespace
