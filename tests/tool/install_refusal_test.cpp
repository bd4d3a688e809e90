// SPDX-License-Identifier: Apache-2.0
//
// What is refused before the first erase.
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

TEST_F(RefusalTest, EveryDamagedByteOfAPackage) {
  const sim::Bytes good = support::system_package(64).bytes();
  // Bytes that change neither what is installed nor where: version, plat, package type, hash type,
  // block size and the version texts, and the reserved bytes of the head.
  const auto is_shown_only = [](std::size_t i) {
    return (i >= 4 && i < 16) || (i >= 28 && i < 164) || (i >= 228 && i < 256);
  };
  for (std::size_t i = 0; i < good.size(); i += 3) {
    if (is_shown_only(i)) {
      continue;
    }
    sim::Bytes damaged = good;
    damaged[i] ^= 0x40;
    put_package(damaged);
    SCOPED_TRACE("byte " + std::to_string(i));
    expect_refused(3);
  }
}

TEST_F(RefusalTest, EveryTruncationOfAPackage) {
  const sim::Bytes good = support::system_package(64).bytes();
  for (std::size_t len = 0; len < good.size(); len += 29) {
    SCOPED_TRACE("length " + std::to_string(len));
    put_package(sim::Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(len)));
    expect_refused(3);
  }
}

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

// While system B runs, the table's entry kernel2 as system A's partition is B's own kernel.
TEST_F(RefusalTest, APartitionOfTheRunningSystem) {
  sim::Layout layout = sim::test_layout();
  layout.platform.push_back({"kernel2", 0, 0});
  use(layout);
  run_system(sim::System::b);
  support::PackageFile package;
  package.upgrade_type = 1;
  package.partitions = {{"kernel2", support::pattern(1000)}};

  const Ended run = expect_refused(package, 4);

  EXPECT_TRUE(run.complains("the partition kernel2 belongs to system B, which runs")) << run;
}

TEST_F(RefusalTest, TheFlagsPartition) {
  sim::Layout layout = sim::test_layout();
  layout.platform.push_back({"flags", 0, 0});
  use(layout);
  run_system(sim::System::b);
  support::PackageFile package;
  package.upgrade_type = 1;
  package.partitions = {{"flags", support::pattern(1000)}};

  const Ended run = expect_refused(package, 4);

  EXPECT_TRUE(run.complains("the partition flags would be overwritten")) << run;
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
