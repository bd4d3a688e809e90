// SPDX-License-Identifier: Apache-2.0
//
// Package files past 2 GiB, sparse ones. Offsets are unsigned where they are hashed, so verifying
// reaches up to 4 GiB and further; they are signed where they are copied from, so installing ends
// at 2 GiB. The file's size is kept in 32 bits.
#include <climits>

#include "tests/support/package_file.h"
#include "upi_hash.h"
#include "upi_public.h"
#include "upi_upgrade_package.h"
#include "upi_verify.h"
#include "wide_test.h"

namespace {

using sim::Op;
using support::logged;
using support::pattern;
using support::sha512;

constexpr std::uint64_t kFourGigabytes = 0x100000000;
const std::string kPath(support::kPackagePath);

class PackageWidthTest : public support::DeviceTest {
 protected:
  PackageWidthTest() { device().write_file(kPath, sim::Bytes{}); }
  void TearDown() override {
    deinit_upgrade_package_info();
    DeviceTest::TearDown();
  }

  // Sets bytes of the package file; what lies between is a hole.
  void put(std::uint64_t offset, const sim::Bytes& bytes) {
    const int fd = open_host();
    ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset)),
              static_cast<ssize_t>(bytes.size()));
    close(fd);
  }
  void set_size(std::uint64_t size) {
    const int fd = open_host();
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
    close(fd);
  }
  int open_host() { return ::open(device().host_path(kPath).c_str(), O_RDWR | O_CREAT, 0666); }

  // Puts the head and the tables; the payload stays out.
  void put_head(const support::PackageFile& package) {
    sim::Bytes bytes = package.bytes();
    bytes.resize(package.payload_offset());
    device().write_file(kPath, bytes);
  }
  // An entry whose image is told of, and not brought along.
  static support::PackageEntry entry_at(const char* name, const sim::Bytes& image,
                                        std::uint32_t offset) {
    support::PackageEntry entry{name};
    entry.len = static_cast<std::int32_t>(image.size());
    entry.offset = as_int(offset);
    entry.hash = sha512(image);
    return entry;
  }
  static support::PackageFile package_of(std::vector<support::PackageEntry> entries) {
    support::PackageFile package;
    package.upgrade_type = 1;
    package.partitions = std::move(entries);
    return package;
  }
  int load() {
    int result = 1;
    log_ = logged([&] { result = init_upgrade_package_info(kPath.c_str()); });
    return result;
  }

  std::vector<support::LogLine> log_;
};

// --- Digests of ranges --------------------------------------------------------------------------

TEST_F(PackageWidthTest, HashesRangesUpToFourGigabytesAndAcross) {
  const sim::Bytes data = pattern(10000);
  for (const std::uint32_t offset : {kHigh - 5000, kHigh, 0xFFFFF000U, 0xFFFFFFFFU}) {
    set_size(0);
    put(offset, data);
    const sim::Recording recording;
    sim::Bytes digest(64);
    int result = 1;
    static_cast<void>(logged([&] {
      result = get_hash_from_file_path_segment(HASH_TYPE_SHA_512, kPath.c_str(), offset, 10000,
                                               digest.data());
    }));
    EXPECT_EQ(result, 0) << offset;
    EXPECT_EQ(digest, sha512(data)) << offset;
    EXPECT_EQ(recording.calls(Op::lseek, kPath).at(0).offset, offset);
  }
}

TEST_F(PackageWidthTest, TheLengthOfAWholeFileIsKeptInThirtyTwoBits) {
  const sim::Bytes data = pattern(5000);
  put(0, data);
  set_size(kFourGigabytes + data.size());
  sim::Bytes digest(64);
  int result = 1;
  static_cast<void>(logged([&] {
    result = get_hash_from_file_path_all(HASH_TYPE_SHA_512, kPath.c_str(), digest.data());
  }));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(digest, sha512(data));
}

TEST_F(PackageWidthTest, ANegativeImageLengthHashesNothing) {
  partition_mtd_info_t info{};
  info.parti_file_desc = -1;
  const sim::Bytes empty = sha512({});
  for (const int len : {0, -1, INT_MIN}) {
    sim::Bytes digest = empty;
    int result = 1;
    static_cast<void>(logged(
        [&] { result = check_image_hash(&info, len, reinterpret_cast<char*>(digest.data())); }));
    EXPECT_EQ(result, 0) << len;
  }
}

// --- Loading ------------------------------------------------------------------------------------

TEST_F(PackageWidthTest, LoadsPackagesPastTwoGigabytes) {
  for (const std::uint32_t size : {0x7FFFFFFFU, kHigh, 0xFFFFFFFFU}) {
    put_head({});
    set_size(size);
    ASSERT_EQ(load(), 0) << size;
    EXPECT_EQ(get_upgrade_package_info()->upgrade_package_file_size, size);
    deinit_upgrade_package_info();
  }
}

TEST_F(PackageWidthTest, KeepsASizePastFourGigabytesInThirtyTwoBits) {
  put_head({});
  set_size(kFourGigabytes + 100);
  ASSERT_EQ(load(), 0);
  EXPECT_EQ(get_upgrade_package_info()->upgrade_package_file_size, 100U);
}

TEST_F(PackageWidthTest, SumsImageLengthsInThirtyTwoBits) {
  const std::vector<std::pair<std::vector<int>, int>> cases = {{{INT_MAX, 1}, INT_MIN},
                                                               {{INT_MAX, INT_MAX, 2}, 0},
                                                               {{INT_MIN, INT_MIN, 7}, 7},
                                                               {{3, -5}, -2}};
  for (const auto& [lens, sum] : cases) {
    std::vector<support::PackageEntry> entries;
    for (const int len : lens) {
      entries.push_back({"kernel"});
      entries.back().len = len;
    }
    put_head(package_of(entries));
    ASSERT_EQ(load(), 0);
    EXPECT_EQ(get_total_partition_length(), sum);
    deinit_upgrade_package_info();
  }
}

TEST_F(PackageWidthTest, ShowsOffsetsPastTwoGigabytesAsNegative) {
  put_head(package_of(
      {entry_at("kernel", pattern(10), kHigh), entry_at("rootfs", pattern(10), 0xFFFFFFFF)}));
  ASSERT_EQ(load(), 0);
  EXPECT_TRUE(support::has_line(log_, {"show_partition_info", "partition offset:-2147483648"}));
  EXPECT_TRUE(support::has_line(log_, {"show_partition_info", "partition offset:-1"}));
}

// --- Verifying ----------------------------------------------------------------------------------

TEST_F(PackageWidthTest, VerifiesImagesPastTwoGigabytes) {
  const sim::Bytes high = pattern(5000, 1);
  const sim::Bytes last = pattern(5000, 2);
  put_head(package_of({entry_at("kernel", high, kHigh), entry_at("rootfs", last, 0xFFFFFFFF)}));
  put(kHigh, high);
  put(0xFFFFFFFF, last);
  ASSERT_EQ(load(), 0);
  int result = 1;
  static_cast<void>(logged([&] { result = verify_partition_info(); }));
  EXPECT_EQ(result, 0);
  put(0xFFFFFFFF, {static_cast<std::uint8_t>(last[0] ^ 1)});
  const auto lines = logged([&] { result = verify_partition_info(); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(lines.back().message,
            "--------verify partition [rootfs] package info fail-----------\n");
}

// A length is unsigned to the verifier: nothing but an error ends the reading of a negative one.
TEST_F(PackageWidthTest, ReadsOnForANegativeLength) {
  for (const int len : {-1, INT_MIN}) {
    support::PackageEntry entry{"kernel"};
    entry.len = len;
    entry.hash = sha512({});
    put_head(package_of({entry}));
    ASSERT_EQ(load(), 0);
    device().faults().add({Op::read, kPath, 3, EIO});
    const sim::Recording recording;
    int result = 1;
    log_ = logged([&] { result = verify_partition_package(get_partition_head_info()); });
    EXPECT_EQ(result, -1) << len;
    EXPECT_TRUE(support::has_line(
        log_,
        {"get_hash_SHA512_from_fd", "Get file content failed, error: 5[Input/output error]!"}));
    EXPECT_EQ(recording.calls(Op::read, kPath).size(), 3U);
    deinit_upgrade_package_info();
  }
}

// Of a file of 4 GiB and more, the content digest covers what 32 bits of its size tell.
TEST_F(PackageWidthTest, VerifiesThePackageWhoseSizeWraps) {
  support::PackageFile package;
  package.tail = pattern(1000);
  device().write_file(kPath, package.bytes());
  set_size(kFourGigabytes + package.bytes().size());
  int result = 1;
  log_ = logged([&] { result = vemk_dual_verify(); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(support::has_line(
      log_, {"verify_upgrade_package_hash", "Verify upgrade package hash success!"}));
}

// --- Installing ---------------------------------------------------------------------------------

class InstallWidthTest : public PackageWidthTest {
 protected:
  InstallWidthTest() {
    write_flags();
    device().set_running(sim::System::b);
  }
  int install() {
    int result = 1;
    log_ = logged([&] { result = vemk_dual_upgrade(nullptr); });
    return result;
  }
  bool said(const std::string& function, const std::string& message) const {
    return support::has_line(log_, {function, message});
  }
  sim::Bytes erased_kernel() {
    return sim::Bytes(static_cast<std::size_t>(partition("kernel").size()), 0xFF);
  }
};

TEST_F(InstallWidthTest, CopiesAnImageThatEndsAtTwoGigabytes) {
  const sim::Bytes image = pattern(5000);
  const auto offset = static_cast<std::uint32_t>(kHigh - image.size());
  put_head(package_of({entry_at("kernel", image, offset)}));
  put(offset, image);
  EXPECT_EQ(install(), 0);
  sim::Bytes expected = image;
  expected.resize(erased_kernel().size(), 0xFF);
  EXPECT_EQ(partition("kernel").raw(), expected);
}

TEST_F(InstallWidthTest, CannotSeekToAnImagePastTwoGigabytes) {
  for (const std::uint32_t offset : {kHigh, 0xFFFFFFFFU}) {
    const sim::Bytes image = pattern(1000);
    put_head(package_of({entry_at("kernel", image, offset)}));
    put(offset, image);
    EXPECT_EQ(install(), -1);
    EXPECT_TRUE(said("read_upgrade_package_partition_data",
                     "Seek to file fail! error:22[Invalid argument]"));
    EXPECT_TRUE(said("upgrade_image", "read partition data failed, current read len:-1!"));
    EXPECT_EQ(partition("kernel").raw(), erased_kernel());
  }
}

// The second block's offset in the file is past 2 GiB.
TEST_F(InstallWidthTest, CannotSeekOnPastTwoGigabytes) {
  const std::uint32_t block = partition("kernel").block_size();
  const sim::Bytes image = pattern(2 * block);
  const std::uint32_t offset = kHigh - block / 2;
  put_head(package_of({entry_at("kernel", image, offset)}));
  put(offset, image);
  EXPECT_EQ(install(), -1);
  EXPECT_TRUE(
      said("read_upgrade_package_partition_data", "Seek to file fail! error:22[Invalid argument]"));
  EXPECT_EQ(partition("kernel").block(0), pattern(block));
  EXPECT_EQ(partition("kernel").total_erases(), partition("kernel").blocks() + 1);
}

TEST_F(InstallWidthTest, AnImageOfNegativeLengthIsNoBytes) {
  for (const int len : {-5, INT_MIN}) {
    support::PackageEntry entry{"kernel"};
    entry.len = len;
    entry.hash = sha512({});
    put_head(package_of({entry}));
    EXPECT_EQ(install(), 0) << len;
    EXPECT_TRUE(said("upgrade_image", "Partition [kernel] already updated!"));
    EXPECT_EQ(upi_get_upgrade_total_size(), len);
    EXPECT_EQ(upi_get_upgrade_updated_size(), len);
  }
  EXPECT_EQ(partition("kernel").total_erases(), 0U);
}

TEST_F(InstallWidthTest, AnImageOfNegativeLengthThatShouldHoldSomethingIsErasedAndFails) {
  partition("kernel").flash(pattern(1000));
  support::PackageEntry entry{"kernel"};
  entry.len = -5;
  entry.hash = sha512(pattern(5));
  put_head(package_of({entry}));
  EXPECT_EQ(install(), -1);
  EXPECT_TRUE(said("upgrade_image", "Image data check hash failed"));
  EXPECT_EQ(partition("kernel").raw(), erased_kernel());
}

}  // namespace
