// SPDX-License-Identifier: Apache-2.0
//
// What is refused before the first erase.
#include <tuple>

#include "tool_test.h"

namespace tool {
namespace {

class RefusalTest : public ToolTest {
 protected:
  // Installs and expects the exit code, no erase of any partition and no change of the record.
  Ended expect_refused(int status) {
    const std::uint64_t before = erases();
    Ended run = zozale({"install"});
    EXPECT_EQ(run.status, status) << run;
    EXPECT_EQ(erases(), before) << run;
    EXPECT_TRUE(run.complains("expected: ")) << run;
    EXPECT_TRUE(run.complains("found:    ")) << run;
    EXPECT_TRUE(run.complains("next:     ")) << run;
    return run;
  }

  Ended expect_refused(const support::PackageFile& package, int status = 3) {
    put_package(package);
    return expect_refused(status);
  }

  static sim::Bytes small_package() {
    support::PackageFile package;
    package.upgrade_type = 1;
    package.partitions = {{"kernel", support::pattern(16)}};
    return package.bytes();
  }

  // One bit of each `step`th byte, but of those that change neither what is installed nor where:
  // version, plat, package type, hash type, block size and the version texts, and the reserved
  // bytes of the head.
  void expect_damage_refused(const sim::Bytes& good, std::size_t step) {
    for (std::size_t i = 0; i < good.size() && !HasFailure(); i += step) {
      if ((i >= 4 && i < 16) || (i >= 28 && i < 164) || (i >= 228 && i < 256)) {
        continue;
      }
      sim::Bytes damaged = good;
      damaged[i] ^= 0x40;
      put_package(damaged);
      SCOPED_TRACE("byte " + std::to_string(i));
      expect_refused(3);
    }
  }

  void expect_truncations_refused(const sim::Bytes& good, std::size_t step) {
    for (std::size_t len = 0; len < good.size() && !HasFailure(); len += step) {
      SCOPED_TRACE("length " + std::to_string(len));
      put_package(sim::Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(len)));
      expect_refused(3);
    }
  }

  // While system B runs, the table names its partition `name` as one of system A's.
  void expect_protected(const std::string& name, const std::string& complaint) {
    sim::Layout layout = sim::test_layout();
    layout.platform.push_back({name, 0, 0});
    use(layout);
    run_system(sim::System::b);
    support::PackageFile package;
    package.upgrade_type = 1;
    package.partitions = {{name, support::pattern(1000)}};

    const Ended run = expect_refused(package, 4);

    EXPECT_TRUE(run.complains(complaint)) << run;
  }

  // The library, asked to hash such a package, would never come back: it must not see it.
  void expect_kept_from_library(const support::PackageFile& package, const std::string& complaint) {
    put_package(package);
    for (const Arguments& command :
         std::vector<Arguments>{{"install"}, {"install", "--dry-run"}, {"verify"}, {"type"}}) {
      const Ended run = zozale_untouched(command);
      EXPECT_EQ(run.status, 3) << run;
      EXPECT_TRUE(run.complains(complaint)) << run;
    }
  }
};

// Every byte, every length, of a package that is small enough for it.
TEST_F(RefusalTest, EveryDamagedByteOfAPackage) {
  expect_damage_refused(small_package(), 1);
}

TEST_F(RefusalTest, EveryTruncationOfAPackage) {
  expect_truncations_refused(small_package(), 1);
  put_package(small_package());
  EXPECT_EQ(zozale({"install"}).status, 0) << "all of it is good";
}

struct Kind {
  const char* name;
  std::int32_t upgrade_type;
  std::vector<std::string> partitions;
  bool extras;
};

// Bytes and lengths here and there in packages of each kind, with either system running.
class RefusalOfKindTest : public RefusalTest,
                          public ::testing::WithParamInterface<std::tuple<sim::System, Kind>> {
 protected:
  RefusalOfKindTest() {
    run_system(std::get<0>(GetParam()));
    const Kind& kind = std::get<1>(GetParam());
    package_.upgrade_type = kind.upgrade_type;
    for (const std::string& name : kind.partitions) {
      package_.partitions.push_back({name, support::pattern(64, ++seed_)});
    }
    if (kind.extras) {
      package_.extras = {{"notes", support::pattern(20)}, {"more", support::pattern(30)}};
    }
  }

  support::PackageFile package_;

 private:
  std::uint32_t seed_ = 0;
};

TEST_P(RefusalOfKindTest, DamagedBytes) {
  expect_damage_refused(package_.bytes(), 7);
}

TEST_P(RefusalOfKindTest, Truncations) {
  expect_truncations_refused(package_.bytes(), 13);
}

TEST_P(RefusalOfKindTest, OnlyIfItIsDamaged) {
  put_package(package_);
  const Ended run = zozale({"install"});
  EXPECT_EQ(run.status, 0) << run;
}

INSTANTIATE_TEST_SUITE_P(
    Of, RefusalOfKindTest,
    ::testing::Combine(::testing::Values(sim::System::a, sim::System::b),
                       ::testing::Values(Kind{"System", 0, {"kernel", "rootfs", "oemdata"}, false},
                                         Kind{"Platform", 1, {"kernel", "rootfs"}, false},
                                         Kind{"Oem", 2, {"oemdata"}, false},
                                         Kind{"Extras", 0, {"kernel", "rootfs", "oemdata"}, true})),
    [](const auto& kind) {
      return std::string(1, sim::letter(std::get<0>(kind.param))) + "Runs" +
             std::get<1>(kind.param).name;
    });

TEST_F(RefusalTest, ARangePastTheEndOfTheFile) {
  support::PackageFile package = support::system_package();
  package.partitions[1].len = 1000000;
  expect_kept_from_library(package, "partition[1].len");
}

TEST_F(RefusalTest, AnImageOfNoLength) {
  support::PackageFile package = support::system_package();
  package.partitions[2].len = 0;
  expect_kept_from_library(package, "partition[2].len");
}

TEST_F(RefusalTest, ANegativeLength) {
  support::PackageFile package = support::system_package();
  package.partitions[0].len = -1;
  expect_kept_from_library(package, "partition[0].len");
}

TEST_F(RefusalTest, ANegativeOffset) {
  support::PackageFile package = support::system_package();
  package.partitions[0].offset = -4096;
  expect_kept_from_library(package, "partition[0].offset");
}

TEST_F(RefusalTest, APackageThatIsNothingButAHead) {
  expect_kept_from_library(support::PackageFile(), "nothing follows the head");
}

// The name of system B's partition is cut to 30 characters: without its 2 it is system A's.
TEST_F(RefusalTest, ANameThatWouldLoseItsDigit) {
  const std::string name(30, 'k');
  sim::Layout layout = sim::test_layout();
  layout.partitions.push_back({name, 8, {}});
  layout.platform.push_back({name, 0, 0});
  use(layout);
  device().partition(name).flash(support::pattern(5000, 9));
  support::PackageFile package;
  package.upgrade_type = 1;
  package.partitions = {{name, support::pattern(1000)}};
  const sim::Bytes running = device().partition(name).raw();

  expect_kept_from_library(package, "at most 29 are allowed");
  EXPECT_EQ(device().partition(name).raw(), running);
}

TEST_F(RefusalTest, ANameWithoutATerminator) {
  support::PackageFile package = support::system_package();
  package.partitions[0].name = std::string(32, 'k');
  expect_kept_from_library(package, "without a terminator");
}

TEST_F(RefusalTest, TwoImagesOfOneName) {
  support::PackageFile package;
  package.upgrade_type = 1;
  package.partitions = {{"kernel", support::pattern(1000)}, {"kernel", support::pattern(1000, 2)}};
  expect_kept_from_library(package, "the same name");
}

TEST_F(RefusalTest, AnImageForAPartitionThatCannotBeWritten) {
  support::PackageFile package = support::system_package();
  package.partitions[1].partition_type = 1;
  expect_kept_from_library(package, "partition[1].partition_type");
}

// As system A's partition, the table's entry kernel2 is system B's own kernel.
TEST_F(RefusalTest, APartitionOfTheRunningSystem) {
  expect_protected("kernel2", "the partition kernel2 belongs to system B, which runs");
}

TEST_F(RefusalTest, TheFlagsPartition) {
  expect_protected("flags", "the partition flags would be overwritten");
}

TEST_F(RefusalTest, TooFewGoodBlocks) {
  for (std::uint32_t block = 0; block < 6; ++block) {
    device().partition("kernel2").set_bad(block);
  }

  const Ended run = expect_refused(support::system_package(kImageSize), 4);

  EXPECT_TRUE(run.complains("kernel needs 3 blocks, kernel2 has 2 good of 8")) << run;
}

TEST_F(RefusalTest, EveryPartitionWithTooFewGoodBlocksIsNamed) {
  for (std::uint32_t block = 0; block < 6; ++block) {
    device().partition("kernel2").set_bad(block);
    device().partition("oemdata2").set_bad(block + 1);
  }

  const Ended run = expect_refused(support::system_package(kImageSize), 4);

  EXPECT_TRUE(run.complains("kernel2 has 2 good of 8; oemdata needs 3 blocks, oemdata2 has 2 good"))
      << run;
}

TEST_F(RefusalTest, ADryRunTellsTooFewGoodBlocksToo) {
  for (std::uint32_t block = 0; block < 6; ++block) {
    device().partition("kernel2").set_bad(block);
  }
  put_package(support::system_package(kImageSize));

  const Ended run = zozale_untouched({"install", "--dry-run", "--json"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_EQ(run.json()["partitions"][0]["fits"], false);
  EXPECT_EQ(run.json()["partitions"][1]["fits"], true);
}

TEST_F(RefusalTest, AMissingPartition) {
  sim::Layout layout = sim::test_layout();
  for (sim::PartitionLayout& partition : layout.partitions) {
    partition.name = partition.name == "oemdata2" ? "other" : partition.name;
  }
  device().write_file("/proc/mtd", sim::mtd_text(layout));

  const Ended run = expect_refused(support::system_package(kImageSize), 4);

  EXPECT_TRUE(run.complains("the partition oemdata2 is missing")) << run;
}

TEST_F(RefusalTest, NoValidRecord) {
  device().partition("flags").wipe();

  const Ended run = expect_refused(support::system_package(kImageSize), 4);

  EXPECT_TRUE(run.complains("no valid boot flag record")) << run;
}

TEST_F(RefusalTest, AnUnknownRunningSystem) {
  device().write_file("/proc/cmdline", "console=ttyS0\tsystem=system_a\n");

  const Ended run = expect_refused(support::system_package(kImageSize), 4);

  EXPECT_TRUE(run.complains("the running system is unknown")) << run;
}

TEST_F(RefusalTest, ADryRunFindsTheSameFaults) {
  sim::Bytes package = support::system_package(kImageSize).bytes();
  package.back() ^= 1;
  put_package(package);
  EXPECT_EQ(zozale_untouched({"install", "--dry-run"}).status, 3);

  support::PackageFile reordered = support::system_package(kImageSize);
  std::swap(reordered.partitions[0], reordered.partitions[1]);
  put_package(reordered);
  EXPECT_EQ(zozale_untouched({"install", "--dry-run"}).status, 3);

  put_package(support::system_package(kImageSize));
  device().partition("flags").wipe();
  EXPECT_EQ(zozale_untouched({"install", "--dry-run"}).status, 4);

  device().write_file("/proc/cmdline", "quiet\n");
  EXPECT_EQ(zozale_untouched({"install", "--dry-run"}).status, 4);
}

}  // namespace
}  // namespace tool
