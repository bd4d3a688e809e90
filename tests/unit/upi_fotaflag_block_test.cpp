// SPDX-License-Identifier: Apache-2.0
//
// Writing one block of the "flags" partition.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "tests/unit/flags_test.h"
#include "upi_fotaflag_partition.h"

namespace unit {
namespace {

using support::logged;

class BlockTest : public FlagsTest {
 protected:
  ~BlockTest() override { shut(); }

  // Writes this block image to a block, and notes what was said and asked.
  int write(int index) {
    shut();
    fd_ = open("/dev/mtd0", O_RDWR | O_CLOEXEC);
    // Nothing but the block size and the descriptor is looked at.
    partition_mtd_info_t info = {0xDEAD0001, 0xDEAD0002, kBlock, 0xDEAD0003, 0xDEAD0004, fd_};
    sim::Bytes content = content_;
    int result = -7;
    requests_ = requests_of([&] {
      lines_ = settled_log([&] {
        result = upi_write_fota_flag_img_content(&info, index, content.data(),
                                                 static_cast<int>(content.size()));
      });
    });
    EXPECT_EQ(content, content_) << "the content stays the caller's";
    shut();
    return result;
  }
  const sim::Bytes& content() const { return content_; }
  const Lines& lines() const { return lines_; }
  const Requests& requests() const { return requests_; }

 private:
  void shut() {
    if (fd_ >= 0) {
      close(fd_);
      fd_ = -1;
    }
  }

  int fd_ = -1;
  sim::Bytes content_ = support::pattern(kBlock);
  Lines lines_;
  Requests requests_;
};

TEST_F(BlockTest, WritesTheWholeBlock) {
  flags().flash(support::pattern(std::size_t{10} * kBlock, 9));
  const sim::Bytes before = flags().raw();
  ASSERT_EQ(write(3), 0);
  sim::Bytes expected = before;
  std::copy(content().begin(), content().end(), expected.begin() + 3L * kBlock);
  EXPECT_EQ(flags().raw(), expected);
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(requests(), writing_block(3));
  EXPECT_TRUE(flags().write_protected());
}

TEST_F(BlockTest, WritesTheFirstAndTheLastBlock) {
  ASSERT_EQ(write(0), 0);
  EXPECT_EQ(flags().block(0), content());
  ASSERT_EQ(write(9), 0);
  EXPECT_EQ(flags().block(9), content());
}

TEST_F(BlockTest, ProtectionThatCannotBeLiftedFails) {
  fail(sim::Op::protect_lift, EIO);
  EXPECT_EQ(write(3), -1);
  EXPECT_EQ(lines(), (Lines{block_said("Failed to enable mtd writeable!  error:5["
                                       "Input/output error]")}));
  EXPECT_EQ(requests(), (Requests{"lift E5"}));
  EXPECT_TRUE(flags().write_protected());
  expect_erased(3);
}

TEST_F(BlockTest, BadBlockIsLeftAlone) {
  flags().set_bad(3);
  EXPECT_EQ(write(3), 1);
  EXPECT_EQ(lines(), (Lines{block_said("Ioctl [MEMGETBADBLOCK] block: 3 , change to be bad block "
                                       "errno: *")}));
  EXPECT_EQ(requests(), (Requests{"lift", "bad? 6144 yes"}));
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(BlockTest, BlockThatCannotBeAskedAboutCountsAsBad) {
  fail(sim::Op::memgetbadblock, EIO);
  EXPECT_EQ(write(3), 1);
  EXPECT_EQ(requests(), (Requests{"lift", "bad? 6144 E5"}));
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(BlockTest, ErrorOfTheFirstQueryIsTold) {
  fail(sim::Op::memgetbadblock, EIO);
  partition_mtd_info_t info{};
  info.mtd_blocksize = kBlock;
  info.parti_file_desc = open("/dev/mtd0", O_RDWR | O_CLOEXEC);
  sim::Bytes bytes = content();
  EXPECT_EQ(logged([&] {
              EXPECT_EQ(upi_write_fota_flag_img_content(&info, 12 - 3, bytes.data(), kBlock), 1);
            }),
            (Lines{block_said("Ioctl [MEMGETBADBLOCK] block: 9 , change to be bad block errno: "
                              "5[Input/output error]!")}));
  close(info.parti_file_desc);
}

TEST_F(BlockTest, FailingEraseFails) {
  fail(sim::Op::memerase, EIO);
  EXPECT_EQ(write(3), -1);
  EXPECT_EQ(lines(), (Lines{block_said("Ioctl [MEMERASE] block: 3 error, errno=5["
                                       "Input/output error]!")}));
  EXPECT_EQ(requests(), (Requests{"lift", "bad? 6144", "erase 6144+2048 E5"}));
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(BlockTest, WornBlockFailsAndIsNotTakenForBad) {
  flags().set_erase_defect(3, sim::EraseDefect::worn);
  EXPECT_EQ(write(3), -1);
  EXPECT_EQ(lines(), (Lines{block_said("Ioctl [MEMERASE] block: 3 error, errno=5["
                                       "Input/output error]!")}));
}

TEST_F(BlockTest, BlockThatTurnsBadInAFailingEraseFails) {
  flags().set_erase_defect(3, sim::EraseDefect::turns_bad_fails);
  EXPECT_EQ(write(3), -1);
  EXPECT_EQ(lines(), (Lines{block_said("Ioctl [MEMERASE] block: 3 error, errno=5["
                                       "Input/output error]!")}));
}

// No blank behind "block:" in the second message.
TEST_F(BlockTest, BlockThatTurnsBadInItsEraseIsBad) {
  flags().set_erase_defect(3, sim::EraseDefect::turns_bad_passes);
  EXPECT_EQ(write(3), 1);
  EXPECT_EQ(lines(), (Lines{block_said("Ioctl [MEMGETBADBLOCK] block:3 , change to be bad block "
                                       "errno: *")}));
  EXPECT_EQ(requests(), (Requests{"lift", "bad? 6144", "erase 6144+2048", "bad? 6144 yes"}));
  EXPECT_FALSE(flags().write_protected());
  EXPECT_EQ(flags().count(sim::Op::write), 0U);
}

TEST_F(BlockTest, BlockThatCannotBeAskedAboutAfterItsEraseIsBad) {
  fail(sim::Op::memgetbadblock, EIO, 2);
  EXPECT_EQ(write(3), 1);
  EXPECT_EQ(requests(), (Requests{"lift", "bad? 6144", "erase 6144+2048", "bad? 6144 E5"}));
}

TEST_F(BlockTest, FailingSeekFails) {
  fail(sim::Op::lseek, EINVAL);
  EXPECT_EQ(write(3), -1);
  EXPECT_EQ(lines(), (Lines{block_said("Lseek error: 22[Invalid argument]")}));
  EXPECT_EQ(requests(),
            (Requests{"lift", "bad? 6144", "erase 6144+2048", "bad? 6144", "seek 6144 E22"}));
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(BlockTest, FailingWriteFails) {
  fail(sim::Op::write, EROFS);
  EXPECT_EQ(write(3), -1);
  EXPECT_EQ(lines(), (Lines{block_said("Write flash error: 30[Read-only file system]")}));
  EXPECT_EQ(requests(), (Requests{"lift", "bad? 6144", "erase 6144+2048", "bad? 6144", "seek 6144",
                                  "write 2048@6144 E30"}));
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(BlockTest, ShortWriteFails) {
  shorten(sim::Op::write, 1024);
  EXPECT_EQ(write(3), -1);
  ASSERT_EQ(lines().size(), 1U);
  EXPECT_EQ(lines()[0].function, "upi_write_fota_flag_img_content");
  EXPECT_EQ(lines()[0].message.substr(0, 19), "Write flash error: ");
  EXPECT_EQ(requests().back(), "write 2048@6144");
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(BlockTest, PageThatFailsToProgramFails) {
  flags().set_page_defects(3, 2, sim::kPageFailsProgram);
  EXPECT_EQ(write(3), -1);
  EXPECT_EQ(lines(), (Lines{block_said("Write flash error: 5[Input/output error]")}));
}

TEST_F(BlockTest, ProtectionThatCannotBeRestoredIsToldOnly) {
  fail(sim::Op::protect_restore, EIO);
  EXPECT_EQ(write(3), 0);
  EXPECT_EQ(lines(), (Lines{block_said("Failed to disable mtd writeable!  error:5["
                                       "Input/output error]")}));
  EXPECT_EQ(flags().block(3), content());
  EXPECT_FALSE(flags().write_protected());
}

}  // namespace
}  // namespace unit
