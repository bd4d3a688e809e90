// SPDX-License-Identifier: Apache-2.0
//
// Names near the 30 characters that an MTD name is cut to.
#include "upgrade_test.h"
#include "upi_update.h"

namespace {

using sim::System;
using support::pattern;

class UpdateNamesTest : public UpgradeTest {
 protected:
  void use_names_and_package(const std::string& table_name,
                             const std::vector<std::string>& mtd_names) {
    use_names(table_name, mtd_names);
    put_package(platform_package({{table_name, image_}}));
  }
  bool is_erased(const std::string& name) {
    return partition(name).raw() == sim::Bytes(partition(name).size(), 0xFF);
  }

  const sim::Bytes image_ = pattern(3000, 7);
};

TEST_F(UpdateNamesTest, Of29CharactersKeepTheDigit) {
  const std::string name = long_name(29);
  use_names_and_package(name, {name, name + "2"});

  EXPECT_EQ(upgrade().result, 0);
  expect_image(partition(name + "2"), image_);
  EXPECT_TRUE(is_erased(name));
}

// The digit is cut off: what is written is the partition of the system that runs.
TEST_F(UpdateNamesTest, Of30CharactersLoseTheDigit) {
  const std::string name = long_name(30);
  use_names_and_package(name, {name, name + "2"});

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(
      run.said("init_partition_device_data", "partition name:" + name + ", real name:" + name));
  expect_image(partition(name), image_);
  EXPECT_TRUE(is_erased(name + "2"));
}

TEST_F(UpdateNamesTest, Of30CharactersAreWholeForSystemA) {
  const std::string name = long_name(30);
  use_names_and_package(name, {name, name + "2"});
  run_system(System::b);

  EXPECT_EQ(upgrade().result, 0);
  expect_image(partition(name), image_);
}

TEST_F(UpdateNamesTest, Of31CharactersAreNotFound) {
  const std::string name = long_name(31);
  use_names_and_package(name, {name, name + "2"});
  for (const System running : {System::a, System::b}) {
    run_system(running);
    const LibraryRun run = upgrade();
    EXPECT_EQ(run.result, -1);
    EXPECT_TRUE(run.said("upgrade_partitions", "There is no [" + name + "] partition!"));
  }
  EXPECT_TRUE(is_erased(name));
  EXPECT_TRUE(is_erased(name + "2"));
}

TEST_F(UpdateNamesTest, Of31CharactersStandForTheOneOf30) {
  const std::string name = long_name(31);
  const std::string cut = long_name(30);
  use_names_and_package(name, {cut, cut + "2"});
  for (const System running : {System::a, System::b}) {
    run_system(running);
    partition(cut).wipe();
    const LibraryRun run = upgrade();
    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(
        run.said("init_partition_device_data", "partition name:" + name + ", real name:" + cut));
    expect_image(partition(cut), image_);
  }
  EXPECT_TRUE(is_erased(cut + "2"));
}

}  // namespace
