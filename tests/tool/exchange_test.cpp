// SPDX-License-Identifier: Apache-2.0
//
// A package that is exchanged between check and use, at each moment at which that matters.
#include <algorithm>

#include "tests/pki/pki.h"
#include "tool_test.h"

namespace tool {
namespace {

constexpr const char* kTrust = "/etc_ro/trust.pem";
constexpr const char* kFolder = "/cache/ovu_fota_ab";
constexpr const char* kOther = "/cache/other.package";

// The library's word for each moment, as the store gets it.
constexpr const char* kVerifying = "0";
constexpr const char* kVerified = "1";
constexpr const char* kUpgrading = "3";
constexpr const char* kUpgraded = "4";

class ExchangeTest : public ToolTest {
 protected:
  ExchangeTest() {
    put_signed(package_);
    // Good in itself, but nobody has signed it.
    other_.partitions[1].data = support::pattern(kImageSize, 666);
    put_other(other_);
  }

  void put_signed(const support::PackageFile& package) {
    const pki::Identity release{pki::Wish()};
    const sim::Bytes bytes = package.bytes();
    put_package(bytes);
    device().write_file(kTrust, support::bytes(release.pem()));
    device().write_file(std::string(support::kPackagePath) + ".p7s",
                        support::bytes(pki::sign({bytes.begin(), bytes.end()}, {release})));
  }
  void put_other(const support::PackageFile& package) {
    device().write_file(kOther, package.bytes());
  }

  // Runs zozale while the store does each action at its moment.
  Ended run_while(const Arguments& arguments,
                  const std::vector<std::pair<std::string, std::string>>& actions) {
    std::string moments;
    Arguments command = {"/usr/bin/env"};
    for (const auto& [moment, action] : actions) {
      command.push_back("EXCHANGE_" + std::to_string(moments.size()) + "=" + action);
      moments += moment;
    }
    command.push_back("EXCHANGE_AT=" + moments);
    command.emplace_back(DEVICE_TOOL_WITH_EXCHANGES);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_on_device(command);
  }
  // Installs while the library upgrades from another folder, which goes away afterwards.
  Ended install_from_other_folder() {
    const std::string folder = kFolder;
    device().write_file("/cache/second/upgrade.package", other_.bytes());
    return run_while({"install", "--trust", kTrust}, {{kUpgrading, folder + " /cache/first"},
                                                      {kUpgrading, "/cache/second " + folder},
                                                      {kUpgraded, folder + " /cache/second"},
                                                      {kUpgraded, "/cache/first " + folder}});
  }
  static std::string exchange() {
    return std::string(kOther) + " " + std::string(support::kPackagePath);
  }

  void expect_nothing_erased(const Ended& run, std::uint64_t before) {
    EXPECT_EQ(run.status, 5) << run;
    EXPECT_TRUE(run.complains("zozale: the package was exchanged after it was checked\n")) << run;
    EXPECT_TRUE(run.complains("next:     nothing was erased; find out what writes to ")) << run;
    EXPECT_EQ(erases(), before) << run;
    EXPECT_EQ(device().read_file("/cache/upgrade_status"), "2");
  }
  void expect_taken_back(const Ended& run, const std::string& found) {
    EXPECT_EQ(run.status, 5) << run;
    EXPECT_TRUE(run.complains("zozale: the package was exchanged while it was installed\n")) << run;
    EXPECT_TRUE(run.complains("found:    " + found)) << run;
    EXPECT_TRUE(run.complains("next:     system B was marked unbootable; ")) << run;
    EXPECT_EQ(record().status(sim::System::b), sim::kStatusUnbootable);
    EXPECT_EQ(record().status(sim::System::a), sim::kStatusBootable);
    EXPECT_EQ(device().read_file("/cache/upgrade_status"), "5");
  }
  // Not an exchange; the installation counts as failed for the boot loader and in the store.
  void expect_failed(const Ended& run, const std::string& what) {
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_TRUE(run.complains("zozale: " + what)) << run;
    EXPECT_TRUE(run.complains("next:     system B was marked unbootable; ")) << run;
    EXPECT_EQ(record().status(sim::System::b), sim::kStatusUnbootable);
    EXPECT_TRUE(zozale({"watch"}).says("upgrade: installation failed\n"));
  }

  support::PackageFile package_ = support::system_package(kImageSize);
  support::PackageFile other_ = package_;
};

TEST_F(ExchangeTest, WithoutAnExchangeAllIsWell) {
  const Ended run = run_while({"install", "--trust", kTrust}, {});
  EXPECT_EQ(run.status, 0) << run;
}

TEST_F(ExchangeTest, BeforeTheLibraryVerifies) {
  const std::uint64_t before = erases();
  expect_nothing_erased(run_while({"install", "--trust", kTrust}, {{kVerifying, exchange()}}),
                        before);
}

TEST_F(ExchangeTest, AfterTheLibraryHasVerified) {
  const std::uint64_t before = erases();
  expect_nothing_erased(run_while({"install", "--trust", kTrust}, {{kVerified, exchange()}}),
                        before);
}

TEST_F(ExchangeTest, VerifyNoticesItToo) {
  const std::uint64_t before = erases();
  expect_nothing_erased(run_while({"verify", "--trust", kTrust}, {{kVerified, exchange()}}),
                        before);
}

TEST_F(ExchangeTest, ByOneThatTheLibraryRefuses) {
  other_.partitions[0].hash = support::sha512(support::bytes("something else"));
  put_other(other_);
  const std::uint64_t before = erases();
  expect_nothing_erased(run_while({"install", "--trust", kTrust}, {{kVerifying, exchange()}}),
                        before);
}

TEST_F(ExchangeTest, ByBytesInTheSameFile) {
  const std::uint64_t before = erases();
  expect_nothing_erased(run_while({"install", "--trust", kTrust},
                                  {{kVerified, "+" + std::string(support::kPackagePath)}}),
                        before);
}

// Even when nobody asks for a signature the library gets no other package than the one whose
// structure was looked at.
TEST_F(ExchangeTest, WithoutASignature) {
  const std::uint64_t before = erases();
  expect_nothing_erased(run_while({"install"}, {{kVerified, exchange()}}), before);
}

// The version is looked at in the bytes that were signed: the file says another one only between
// the reading for the signature and the next.
TEST_F(ExchangeTest, AVersionThatIsThereForAMomentOnly) {
  package_.version = 5;
  const sim::Bytes newer = package_.bytes();
  package_.version = 4;
  put_signed(package_);
  const sim::Bytes older = package_.bytes();
  const auto version =
      std::mismatch(older.begin(), older.end(), newer.begin()).first - older.begin();
  const Ended run = run_on_device(
      {"/usr/bin/env",
       "EXCHANGE_BYTE=" + std::to_string(version) + " 5 " + std::string(support::kPackagePath),
       DEVICE_TOOL_WITH_EXCHANGES, "install", "--trust", kTrust, "--min-version", "5"});

  EXPECT_EQ(run.status, 3) << run;
  EXPECT_TRUE(
      run.complains("zozale: the package is too old: its version is 4, at least 5 is wanted\n"))
      << run;
}

TEST_F(ExchangeTest, WhenTheUpgradeBegins) {
  expect_taken_back(run_while({"install", "--trust", kTrust}, {{kUpgrading, exchange()}}),
                    "another file, or one that was written to\n");
}

TEST_F(ExchangeTest, WhenTheUpgradeHasEnded) {
  expect_taken_back(run_while({"install", "--trust", kTrust}, {{kUpgraded, exchange()}}),
                    "another file, or one that was written to\n");
}

// The file's own times tell nothing when its whole folder goes away and comes back.
TEST_F(ExchangeTest, ThereAndBackAgain) {
  expect_taken_back(install_from_other_folder(), "another image in rootfs2");
}

// In the block in which the image ends, and in one behind it.
TEST_F(ExchangeTest, ThereAndBackAgainWithMoreBehindAnImage) {
  const sim::Bytes image = package_.partitions[1].data;
  for (const std::size_t more : {10U, 3000U}) {
    sim::Bytes longer = image;
    longer.resize(image.size() + more, 0x5A);
    other_.partitions[1].data = longer;
    expect_taken_back(install_from_other_folder(), "more than the image in rootfs2\n");
  }
}

// The library passes over what holds its image; what lies behind it is still nobody's.
TEST_F(ExchangeTest, ASecondRunDoesNotTakeWhatTheFirstRefused) {
  other_.partitions[1].data = package_.partitions[1].data;
  other_.partitions[1].data.resize(kImageSize + 3000, 0x5A);
  expect_taken_back(install_from_other_folder(), "more than the image in rootfs2\n");

  const Ended second = zozale({"install", "--trust", kTrust});

  expect_failed(second, "rootfs2 holds more than its image, and did before this installation\n");
  EXPECT_TRUE(second.complains("write protection and erase it, as 'flash_erase /dev/mtd"))
      << second;
  device().partition("rootfs2").wipe();
  EXPECT_EQ(zozale({"install", "--trust", kTrust}).status, 0);
  EXPECT_EQ(record().status(sim::System::b), sim::kStatusBootable);
}

TEST_F(ExchangeTest, ABlockThatCannotBeErasedIsNoExchange) {
  // The image ends in the third block; the fourth holds what was there before.
  device().faults().add({sim::Op::memerase64, "rootfs2", 4, EIO, false, std::nullopt});

  expect_failed(zozale({"install", "--trust", kTrust}),
                "rootfs2 holds more than its image: a block behind it could not be erased\n");
}

// Whichever of the readings fails, the library's own or those of the check afterwards.
TEST_F(ExchangeTest, AReadThatFailsIsNoExchange) {
  ASSERT_EQ(zozale({"install", "--trust", kTrust}).status, 0);
  int failed = 0;
  for (std::uint64_t at = 1; at <= 12; ++at) {
    device().faults().clear();
    device().faults().add({sim::Op::read, "rootfs2", at, EIO, false, std::nullopt});
    const Ended run = zozale({"install", "--trust", kTrust});
    if (run.status != 0) {
      ++failed;
      expect_failed(run, "what was installed cannot be checked\n");
      EXPECT_TRUE(run.complains("found:    rootfs2 cannot be read\n")) << run;
    }
  }
  EXPECT_GT(failed, 0);
}

TEST_F(ExchangeTest, ThereAndBackAgainWithPartitionsThatNobodySigned) {
  support::PackageFile small = package_;
  small.upgrade_type = 1;
  small.partitions.resize(1);
  put_signed(small);

  expect_taken_back(install_from_other_folder(), "the partition rootfs written out of its turn\n");
}

TEST_F(ExchangeTest, ATargetThatCannotBeTakenBackIsNamed) {
  device().clear_counts();
  ASSERT_EQ(run_while({"install", "--trust", kTrust}, {}).status, 0);
  // Nothing is left to write, so the flags are all that is erased; the last time is the taking
  // back.
  device().clear_counts();
  ASSERT_EQ(run_while({"install", "--trust", kTrust}, {}).status, 0);
  device().faults().add(
      {sim::Op::memerase, "flags", device().count(sim::Op::memerase) + 1, EIO, true, std::nullopt});

  const Ended run = run_while({"install", "--trust", kTrust}, {{kUpgraded, exchange()}});

  EXPECT_EQ(run.status, 5) << run;
  EXPECT_TRUE(run.complains("system B COULD NOT be marked unbootable: do not switch to it; "))
      << run;
}

}  // namespace
}  // namespace tool
