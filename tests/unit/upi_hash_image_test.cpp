// SPDX-License-Identifier: Apache-2.0
//
// Digests of flash images: check_image_hash().
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "expected_lines.h"
#include "opened_partition.h"
#include "tests/support/device_test.h"
#include "tests/support/package_file.h"
#include "upi_hash.h"

namespace {

using sim::Op;
using support::logged;
using support::sha512;
using namespace unit;

const Lines kBegin = said_by("check_image_hash", {"check_image_hash func begin!"});
const Lines kEnd = said_by("check_image_hash", {"check_image_hash func end!"});

// The 8 blocks of 2,048 bytes of kernel, of which 0 and 2 are bad, and of rootfs.
class ImageHashTest : public support::DeviceTest {
 protected:
  ImageHashTest() {
    sim::Layout layout = sim::test_layout();
    layout.partitions.at(1).bad = {0, 2};
    use(layout);
    partition("kernel").flash(image_);
    partition("rootfs").flash(image_);
  }
  sim::Bytes start(std::size_t len) const {
    return sim::Bytes(image_.begin(), image_.begin() + static_cast<std::ptrdiff_t>(len));
  }
  Lines check(const std::string& name, int len, sim::Bytes digest) {
    OpenedPartition opened(partition(name));
    return logged([&] {
      result_ = check_image_hash(opened.info(), len, reinterpret_cast<char*>(digest.data()));
    });
  }
  int result_ = -2;
  sim::Bytes image_ = support::pattern(12000);
};

TEST_F(ImageHashTest, RecognisesTheImage) {
  EXPECT_EQ(check("rootfs", 12000, sha512(image_)), kBegin + kEnd);
  EXPECT_EQ(result_, 0);
}

TEST_F(ImageHashTest, ReadsPastBadBlocks) {
  check("kernel", 12000, sha512(image_));
  EXPECT_EQ(result_, 0);
}

TEST_F(ImageHashTest, HashesNoMoreThanTheImage) {
  for (const std::size_t len : {1U, 1023U, 1024U, 1025U, 2048U, 11999U}) {
    check("kernel", static_cast<int>(len), sha512(start(len)));
    EXPECT_EQ(result_, 0) << len;
  }
}

TEST_F(ImageHashTest, TellsAnotherImage) {
  EXPECT_EQ(check("rootfs", 11999, sha512(image_)), kBegin + kEnd);
  EXPECT_EQ(result_, -1);
  sim::Bytes digest = sha512(image_);
  digest[63] = static_cast<std::uint8_t>(digest[63] ^ 1);
  check("rootfs", 12000, digest);
  EXPECT_EQ(result_, -1);
}

// Digests are compared as strings.
TEST_F(ImageHashTest, ComparesUpToACommonZeroByte) {
  const sim::Bytes image = support::with_zero_in_digest(support::pattern(3000));
  partition("rootfs").flash(image);
  const sim::Bytes changed = support::changed_behind_zero(sha512(image));
  ASSERT_NE(changed, sha512(image));
  check("rootfs", static_cast<int>(image.size()), changed);
  EXPECT_EQ(result_, 0);
}

TEST_F(ImageHashTest, ReadsInPiecesOf1024Bytes) {
  const sim::Recording recording;
  check("rootfs", 2500, sha512(start(2500)));
  const auto reads = recording.calls(Op::read, "rootfs");
  ASSERT_EQ(reads.size(), 3U);
  EXPECT_EQ(reads[0].length, 1024U);
  EXPECT_EQ(reads[1].length, 1024U);
  EXPECT_EQ(reads[2].length, 452U);
  EXPECT_EQ(reads[0].offset, 0U);
  EXPECT_EQ(reads[1].offset, 1024U);
  EXPECT_EQ(reads[2].offset, 2048U);
}

TEST_F(ImageHashTest, AsksForTheBadBlocksAnewForEveryPiece) {
  check("rootfs", 8192, sha512(start(8192)));
  EXPECT_EQ(partition("rootfs").count(Op::memgetbadblock), 2U * (1 + 2 + 3 + 4));
  // Logical blocks 0 to 3 are the physical ones 1, 3, 4 and 5.
  check("kernel", 8192, sha512(start(8192)));
  EXPECT_EQ(partition("kernel").count(Op::memgetbadblock), 2U * (2 + 4 + 5 + 6));
}

TEST_F(ImageHashTest, TakesALengthBelowOneForAnEmptyImage) {
  for (const int len : {0, -1, INT_MIN}) {
    EXPECT_EQ(check("rootfs", len, sha512({})), kBegin + kEnd);
    EXPECT_EQ(result_, 0);
    check("rootfs", len, sha512(image_));
    EXPECT_EQ(result_, -1);
  }
  EXPECT_EQ(partition("rootfs").count(Op::read), 0U);
}

TEST_F(ImageHashTest, GivesUpAtAReadThatFails) {
  device().faults().add({Op::read, "rootfs", 2, EIO});
  const Lines lines = check("rootfs", 12000, sha512(image_));
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, kBegin +
                       said_by("VEMK_ReadImage",
                               {"Read len (-1) < need len (1024)!", "VEMK_ReadImage fail"}) +
                       said_by("check_image_hash", {"Read image content fail!"}));
  EXPECT_EQ(partition("rootfs").count(Op::read), 2U);
}

TEST_F(ImageHashTest, GivesUpWhereTheGoodBlocksEnd) {
  const Lines lines = check("kernel", 6 * 2048 + 1, sha512(image_));
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines.back().function, "check_image_hash");
  EXPECT_EQ(lines.back().message, "Read image content fail!");
  EXPECT_EQ(only(lines, {"VEMK_ReadImage"}),
            said_by("VEMK_ReadImage", {"Start address (16384) or new start address (16385) out of "
                                       "partition total size (16384)!"}));
}

// A piece that is longer than a block goes on in the physically next one.
TEST_F(ImageHashTest, ReadsPiecesAcrossBlocksOf512Bytes) {
  use(sim::test_layout(512, 1, 8));
  partition("rootfs").flash(start(4096));
  const sim::Recording recording;
  check("rootfs", 4096, sha512(start(4096)));
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(recording.calls(Op::read, "rootfs").size(), 4U);
}

TEST_F(ImageHashTest, NeedsNoMemory) {
  device().faults().add({Op::malloc, "libzozale.so", 1, ENOMEM, true});
  const sim::AllocationWatch watch;
  check("rootfs", 12000, sha512(image_));
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(device().faults().struck(), 0U);
}

}  // namespace
