// SPDX-License-Identifier: Apache-2.0
#include "sim/nand.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "tests/support/device_test.h"

namespace {

using sim::Bytes;
using sim::EraseDefect;
using sim::Geometry;
using sim::Nand;

constexpr std::uint32_t kPageSize = 512;
constexpr std::uint32_t kPages = 4;
constexpr std::uint32_t kBlocks = 6;
constexpr std::uint32_t kBlockSize = kPageSize * kPages;

Geometry geometry() {
  Geometry geometry;
  geometry.page_size = kPageSize;
  geometry.pages_per_block = kPages;
  geometry.blocks = kBlocks;
  return geometry;
}

class NandTest : public ::testing::Test {
 protected:
  Bytes read(std::uint64_t offset, std::size_t length) {
    Bytes bytes(length);
    nand.read(offset, bytes.data(), length);
    return bytes;
  }
  Bytes read_page(std::uint64_t page) { return read(page * kPageSize, kPageSize); }

  Nand nand = Nand::in_memory(geometry());
  const Bytes erased = Bytes(kPageSize, 0xFF);
  const Bytes data = support::pattern(kPageSize, 7);
};

TEST_F(NandTest, IsErasedWhenNew) {
  EXPECT_EQ(read(0, kBlockSize * kBlocks), Bytes(kBlockSize * kBlocks, 0xFF));
  EXPECT_FALSE(nand.is_bad(0));
  EXPECT_EQ(nand.erase_count(0), 0U);
}

TEST_F(NandTest, KeepsWhatWasProgrammed) {
  EXPECT_EQ(nand.program(5, data.data()), 0);
  EXPECT_EQ(read_page(5), data);
  EXPECT_EQ(read_page(4), erased);
  EXPECT_EQ(read_page(6), erased);
  EXPECT_EQ(read(5 * kPageSize + 3, 10), Bytes(data.begin() + 3, data.begin() + 13));
  EXPECT_EQ(nand.program_count(5), 1U);
  EXPECT_TRUE(nand.is_programmed(5));
  EXPECT_EQ(nand.rule_breaks().total(), 0U);
}

TEST_F(NandTest, ReadsAcrossPagesAndBlocks) {
  const Bytes other = support::pattern(kPageSize, 9);
  ASSERT_EQ(nand.program(3, data.data()), 0);
  ASSERT_EQ(nand.program(4, other.data()), 0);
  Bytes both(data.begin() + 100, data.end());
  both.insert(both.end(), other.begin(), other.begin() + 50);
  EXPECT_EQ(read(3 * kPageSize + 100, kPageSize - 100 + 50), both);
}

TEST_F(NandTest, ProgrammingOnlyClearsBits) {
  const Bytes first(kPageSize, 0xF0);
  const Bytes second(kPageSize, 0x3C);
  ASSERT_EQ(nand.program(0, first.data()), 0);
  ASSERT_EQ(nand.program(0, second.data()), 0);
  EXPECT_EQ(read_page(0), Bytes(kPageSize, 0x30));
  EXPECT_EQ(nand.rule_breaks().page_programmed_twice, 1U);
  EXPECT_EQ(nand.rule_breaks().total(), 1U);
}

TEST_F(NandTest, ErasingSetsOneBlock) {
  ASSERT_EQ(nand.program(4, data.data()), 0);
  ASSERT_EQ(nand.program(8, data.data()), 0);
  EXPECT_EQ(nand.erase(1), 0);
  EXPECT_EQ(read_page(4), erased);
  EXPECT_EQ(read_page(8), data);
  EXPECT_EQ(nand.erase_count(1), 1U);
  EXPECT_EQ(nand.erase_count(2), 0U);
  EXPECT_FALSE(nand.is_programmed(4));
  EXPECT_EQ(nand.program_count(4), 1U);
  EXPECT_EQ(nand.program(4, data.data()), 0);
  EXPECT_EQ(nand.rule_breaks().total(), 0U);
}

TEST_F(NandTest, NoticesPagesOutOfOrder) {
  ASSERT_EQ(nand.program(2, data.data()), 0);
  ASSERT_EQ(nand.program(1, data.data()), 0);
  EXPECT_EQ(nand.rule_breaks().page_out_of_order, 1U);
  ASSERT_EQ(nand.program(3, data.data()), 0);
  EXPECT_EQ(nand.rule_breaks().total(), 1U);
  nand.clear_rule_breaks();
  EXPECT_EQ(nand.rule_breaks().total(), 0U);
}

TEST_F(NandTest, NoticesBadBlocksBeingTouched) {
  nand.set_bad(2);
  EXPECT_TRUE(nand.is_bad(2));
  static_cast<void>(nand.program(8, data.data()));
  static_cast<void>(nand.erase(2));
  read(2 * kBlockSize - 1, kBlockSize + 2);
  EXPECT_EQ(nand.rule_breaks().bad_block_programmed, 1U);
  EXPECT_EQ(nand.rule_breaks().bad_block_erased, 1U);
  EXPECT_EQ(nand.rule_breaks().bad_block_read, 1U);
  Bytes bytes(kBlockSize);
  nand.peek(2 * kBlockSize, bytes.data(), bytes.size());
  EXPECT_EQ(nand.rule_breaks().bad_block_read, 1U);
}

TEST_F(NandTest, BadMapFollows) {
  nand.set_bad(3);
  for (std::uint32_t block = 0; block < kBlocks; ++block) {
    EXPECT_EQ(nand.bad_map()[block * Nand::bad_stride()] != 0, block == 3);
  }
  nand.set_bad(3, false);
  EXPECT_FALSE(nand.is_bad(3));
}

TEST_F(NandTest, WornBlockFailsToErase) {
  ASSERT_EQ(nand.program(4, data.data()), 0);
  nand.set_erase_defect(1, EraseDefect::worn, 2);
  EXPECT_EQ(nand.erase(1), 0);
  ASSERT_EQ(nand.program(4, data.data()), 0);
  EXPECT_EQ(nand.erase(1), EIO);
  EXPECT_EQ(nand.erase(1), EIO);
  EXPECT_EQ(read_page(4), erased);
  EXPECT_FALSE(nand.is_bad(1));
  EXPECT_EQ(nand.erase_count(1), 1U);
  static_cast<void>(nand.program(5, data.data()));
  EXPECT_EQ(nand.rule_breaks().block_not_erased, 1U);
}

TEST_F(NandTest, BlockTurnsBadWithFailure) {
  nand.set_erase_defect(1, EraseDefect::turns_bad_fails);
  EXPECT_EQ(nand.erase(1), EIO);
  EXPECT_TRUE(nand.is_bad(1));
}

TEST_F(NandTest, BlockTurnsBadWithoutFailure) {
  ASSERT_EQ(nand.program(4, data.data()), 0);
  nand.set_erase_defect(1, EraseDefect::turns_bad_passes);
  EXPECT_EQ(nand.erase(1), 0);
  EXPECT_TRUE(nand.is_bad(1));
  EXPECT_EQ(read_page(4), erased);
}

TEST_F(NandTest, PageFailsToProgram) {
  nand.set_page_defects(2, sim::kPageFailsProgram);
  EXPECT_EQ(nand.program(1, data.data()), 0);
  EXPECT_EQ(nand.program(2, data.data()), EIO);
  EXPECT_EQ(read_page(1), data);
  EXPECT_EQ(read_page(2), data);
  nand.set_page_defects(2, 0);
  EXPECT_EQ(nand.program(3, data.data()), 0);
}

TEST_F(NandTest, UnreadablePageReadsDifferentlyEachTime) {
  ASSERT_EQ(nand.program(2, data.data()), 0);
  nand.set_page_defects(2, sim::kPageUnreadable);
  const Bytes wrong = read_page(2);
  EXPECT_NE(wrong, data);
  EXPECT_NE(read_page(2), wrong);
  Bytes kept(kPageSize);
  nand.peek(2 * kPageSize, kept.data(), kept.size());
  EXPECT_EQ(kept, data);
  ASSERT_EQ(nand.erase(0), 0);
  EXPECT_NE(read_page(2), read_page(2)) << "an erase heals no page";
}

TEST_F(NandTest, UnreadablePageReadsTheSameFromTheSameState) {
  ASSERT_EQ(nand.program(2, data.data()), 0);
  nand.set_page_defects(2, sim::kPageUnreadable);
  const Bytes state = nand.snapshot();
  const Bytes wrong = read_page(2);
  nand.restore(state);
  EXPECT_EQ(read_page(2), wrong);
}

TEST_F(NandTest, MisreadPageIsWrongTheSameWay) {
  ASSERT_EQ(nand.program(2, data.data()), 0);
  nand.set_page_defects(2, sim::kPageMisread);
  const Bytes wrong = read_page(2);
  EXPECT_NE(wrong, data);
  EXPECT_EQ(read_page(2), wrong);
  EXPECT_EQ(read(2 * kPageSize + 16, 1)[0], wrong[16]);
  ASSERT_EQ(nand.erase(0), 0);
  EXPECT_NE(read_page(2), erased);
}

TEST_F(NandTest, UnstablePageReadsDifferentlyUntilErased) {
  ASSERT_EQ(nand.program(2, data.data()), 0);
  nand.set_page_unstable(2);
  EXPECT_NE(read_page(2), read_page(2));
  Bytes kept(kPageSize);
  nand.peek(2 * kPageSize, kept.data(), kept.size());
  EXPECT_EQ(kept, data);
  ASSERT_EQ(nand.erase(0), 0);
  EXPECT_EQ(read_page(2), erased);
}

TEST_F(NandTest, TornProgramStopsAtAByte) {
  nand.program_torn(1, data.data(), 100);
  const Bytes page = read_page(1);
  EXPECT_TRUE(std::equal(data.begin(), data.begin() + 100, page.begin()));
  EXPECT_EQ(Bytes(page.begin() + 100, page.end()), Bytes(kPageSize - 100, 0xFF));
  static_cast<void>(nand.program(1, data.data()));
  EXPECT_EQ(nand.rule_breaks().page_programmed_twice, 1U);
}

TEST_F(NandTest, UnstableProgramMixesOldAndNew) {
  const Bytes next(kPageSize, 0x0F);
  nand.program_unstable(1, next.data());
  const Bytes once = read_page(1);
  const Bytes again = read_page(1);
  EXPECT_NE(once, again);
  for (const std::uint8_t byte : once) {
    EXPECT_EQ(byte & 0x0F, 0x0F);
  }
}

TEST_F(NandTest, TornEraseStopsAtAPage) {
  for (std::uint64_t page = 0; page < kPages; ++page) {
    ASSERT_EQ(nand.program(page, data.data()), 0);
  }
  nand.erase_torn(0, 3);
  EXPECT_EQ(read_page(2), erased);
  EXPECT_EQ(read_page(3), data);
  EXPECT_EQ(nand.erase_count(0), 0U);
  static_cast<void>(nand.program(0, data.data()));
  EXPECT_EQ(nand.rule_breaks().block_not_erased, 1U);
  ASSERT_EQ(nand.erase(0), 0);
  static_cast<void>(nand.program(0, data.data()));
  EXPECT_EQ(nand.rule_breaks().block_not_erased, 1U);
}

TEST_F(NandTest, UnstableEraseMixesOldAndNew) {
  const Bytes old(kPageSize, 0xF0);
  ASSERT_EQ(nand.program(1, old.data()), 0);
  nand.erase_unstable(0);
  const Bytes once = read_page(1);
  EXPECT_NE(once, read_page(1));
  for (const std::uint8_t byte : once) {
    EXPECT_EQ(byte & 0xF0, 0xF0);
  }
  EXPECT_EQ(read_page(0), erased);
  ASSERT_EQ(nand.erase(0), 0);
  EXPECT_EQ(read_page(1), erased);
}

TEST_F(NandTest, PokeCountsAsProgrammedOnlyWhereNotErased) {
  nand.poke(kPageSize + 10, data.data(), 20);
  EXPECT_EQ(read(kPageSize + 10, 20), Bytes(data.begin(), data.begin() + 20));
  EXPECT_TRUE(nand.is_programmed(1));
  nand.poke(kPageSize, erased.data(), erased.size());
  EXPECT_FALSE(nand.is_programmed(1));
  ASSERT_EQ(nand.program(0, data.data()), 0);
  EXPECT_EQ(nand.rule_breaks().total(), 0U);
  EXPECT_EQ(nand.erase_count(0), 0U);
}

TEST_F(NandTest, SnapshotBringsEverythingBack) {
  ASSERT_EQ(nand.program(0, data.data()), 0);
  nand.set_bad(4);
  nand.set_page_unstable(9);
  const Bytes before = nand.snapshot();
  ASSERT_EQ(nand.erase(0), 0);
  nand.set_bad(4, false);
  ASSERT_EQ(nand.program(20, data.data()), 0);
  nand.restore(before);
  EXPECT_EQ(read_page(0), data);
  EXPECT_EQ(read_page(20), erased);
  EXPECT_TRUE(nand.is_bad(4));
  EXPECT_EQ(nand.erase_count(0), 0U);
  EXPECT_EQ(nand.snapshot(), before);
}

TEST_F(NandTest, RestoreRefusesAnotherChip) {
  EXPECT_THROW(nand.restore(Bytes(3)), std::invalid_argument);
}

TEST_F(NandTest, ChildProcessesShareIt) {
  const auto end = support::in_child([this] { return nand.program(6, data.data()); });
  ASSERT_TRUE(end.exited);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(read_page(6), data);
}

TEST(NandFiles, SurviveTheProcess) {
  const support::TempFolder folder;
  const Bytes data = support::pattern(kPageSize, 3);
  {
    Nand nand = Nand::create(folder.path(), geometry());
    ASSERT_EQ(nand.program(1, data.data()), 0);
    nand.set_bad(5);
  }
  Nand nand = Nand::open(folder.path(), geometry());
  Bytes page(kPageSize);
  nand.read(kPageSize, page.data(), page.size());
  EXPECT_EQ(page, data);
  EXPECT_TRUE(nand.is_bad(5));
}

TEST(NandFiles, OfAnotherSizeAreRefused) {
  const support::TempFolder folder;
  Nand::create(folder.path(), geometry());
  Geometry larger = geometry();
  larger.blocks += 1;
  EXPECT_THROW(Nand::open(folder.path(), larger), std::runtime_error);
}

TEST(NandFiles, TakeNoRoomWhileErased) {
  const support::TempFolder folder;
  Geometry large = geometry();
  large.blocks = 100000;
  Nand nand = Nand::create(folder.path(), large);
  ASSERT_EQ(nand.program(399999, support::pattern(kPageSize).data()), 0);
  EXPECT_TRUE(nand.is_programmed(399999));
  EXPECT_EQ(std::filesystem::file_size(folder.path() / "data.bin"), large.size());
}

}  // namespace
