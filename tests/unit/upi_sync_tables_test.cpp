// SPDX-License-Identifier: Apache-2.0
//
// Which partitions a synchronisation takes from the partition table, and how it forms their names.
#include <tuple>

#include "upgrade_test.h"
#include "upi_sync_system.h"

namespace {

using sim::Op;
using sim::System;
using support::pattern;
using Messages = std::vector<std::string>;

// --- Tables of any size. ---

class SyncTableTest : public UpgradeTest,
                      public ::testing::WithParamInterface<std::tuple<System, int, int>> {
 protected:
  void SetUp() override {
    const auto& [running, platform, oem] = GetParam();
    sim::Layout layout = sim::test_layout(512, 4, 3);
    layout.partitions.resize(1);
    layout.running = running;
    layout.platform.clear();
    layout.oem.clear();
    add(layout, "plat", platform, layout.platform);
    add(layout, "oem", oem, layout.oem);
    use_layout(layout);
    for (const std::string& name : names_) {
      running_of(name).flash(pattern(3000, static_cast<std::uint32_t>(names_.size())));
    }
  }

  std::vector<std::string> names_;  // in the table's order

 private:
  void add(sim::Layout& layout, const std::string& stem, int count,
           std::vector<sim::TableEntry>& list) {
    for (int number = 0; number < count; ++number) {
      const std::string name = stem + std::string(1, static_cast<char>('a' + number));
      names_.push_back(name);
      list.push_back({name, number, 0});
      layout.partitions.push_back({name, 3, {}});
      layout.partitions.push_back({name + "2", 3, {}});
    }
  }
};

TEST_P(SyncTableTest, EveryEntryIsCopiedInOrder) {
  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  Messages started;
  for (const std::string& message : run.messages_of("sync_system")) {
    if (message.find("Start") != std::string::npos) {
      started.push_back(message);
    }
  }
  Messages wanted;
  for (const std::string& name : names_) {
    const std::string word = name[0] == 'p' ? "Targrt" : "Target";
    wanted.push_back("Sync " + word + " Parition [" + target_name(name) + "] Start");
    EXPECT_EQ(target_of(name).raw(), running_of(name).raw());
  }
  EXPECT_EQ(started, wanted);
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SyncTableTest,
                         ::testing::Combine(::testing::Values(System::a, System::b),
                                            ::testing::Range(0, 8), ::testing::Range(0, 8)));

// --- What a table may hold besides. ---

class SyncTableEntryTest : public UpgradeTest {
 protected:
  void use_table(const std::vector<sim::TableEntry>& platform,
                 const std::vector<sim::TableEntry>& oem) {
    sim::Layout layout = sim::test_layout();
    layout.platform = platform;
    layout.oem = oem;
    use_layout(layout);
    fill_systems();
  }

  void expect_failed(const LibraryRun& run, const Messages& last_of_loop) {
    EXPECT_EQ(run.result, -1);
    const Messages loop = run.messages_of("sync_system");
    ASSERT_GE(loop.size(), last_of_loop.size());
    EXPECT_EQ(Messages(loop.end() - static_cast<std::ptrdiff_t>(last_of_loop.size()), loop.end()),
              last_of_loop);
    EXPECT_EQ(run.messages_of("upi_sync_system").back(),
              "<<<<<<<<<<<<<<< Sync Fail >>>>>>>>>>>>>>>");
    EXPECT_EQ(run.store.back().second, "-1");
    expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
  }
};

TEST_F(SyncTableEntryTest, APartitionInBothListsIsLookedAtTwice) {
  use_table({{"kernel"}}, {{"kernel"}});
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.made(Op::protect_lift, "kernel2").size(), 1U);
  EXPECT_TRUE(run.said("sync_partition",
                       "dst partition [kernel2] is the same as src partition [kernel], do not "
                       "sync"));
}

TEST_F(SyncTableEntryTest, AKindThatCannotBeReadFailsAndStopsTheSync) {
  for (const int kind : {1, 2, 3, -1}) {
    use_table({{"kernel"}, {"rootfs", 0, kind}}, {{"oemdata"}});
    const sim::Bytes rootfs = partition("rootfs2").raw();
    const sim::Bytes oemdata = partition("oemdata2").raw();

    const LibraryRun run = sync();

    expect_failed(run, {"Sync Target Partition [rootfs2] Fail", std::string(50, '-')});
    EXPECT_TRUE(
        run.said_in_order({{"partition_hash", "Failed to get partition [rootfs2] mtd info"},
                           {"partition_hash_cmp", "partition [rootfs2] hash fail"},
                           {"sync_partition", "Failed to get src partition [rootfs] mtd info"}}));
    EXPECT_EQ(partition("kernel2").raw(), partition("kernel").raw());
    EXPECT_EQ(partition("rootfs2").raw(), rootfs);
    EXPECT_EQ(partition("oemdata2").raw(), oemdata);
  }
}

TEST_F(SyncTableEntryTest, TheSystemTypeDoesNotMatter) {
  use_table({{"kernel", 77, 0}}, {{"oemdata", -5, 0}});
  EXPECT_EQ(sync().result, 0);
  EXPECT_EQ(partition("kernel2").raw(), partition("kernel").raw());
  EXPECT_EQ(partition("oemdata2").raw(), partition("oemdata").raw());
}

TEST_F(SyncTableEntryTest, APartitionThatTheTargetDoesNotHaveFails) {
  for (const System running : {System::a, System::b}) {
    use_table({{"kernel"}, {"stranger"}}, {{"oemdata"}});
    run_system(running);
    const LibraryRun run = sync();

    expect_failed(run, {"pre_sync fail"});
    EXPECT_EQ(run.messages_of("pre_sync"),
              (Messages{"There is no partition [" + target_name("stranger") + "] in system"}));
    EXPECT_EQ(target_of("kernel").raw(), running_of("kernel").raw());
  }
}

TEST_F(SyncTableEntryTest, AnOemPartitionThatTheTargetDoesNotHaveFails) {
  use_table({{"kernel"}}, {{"stranger"}});
  expect_failed(sync(), {"pre_sync fail"});
}

TEST_F(SyncTableEntryTest, APartitionThatTheSourceDoesNotHaveFails) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.erase(layout.partitions.begin() + 1);
  use_layout(layout);
  const LibraryRun run = sync();

  expect_failed(run, {"Sync Target Partition [kernel2] Fail", std::string(50, '-')});
  EXPECT_TRUE(
      run.said_in_order({{"partition_hash_cmp", "partition [kernel] hash fail"},
                         {"sync_partition", "Failed to get src partition [kernel] mtd info"}}));
  EXPECT_EQ(run.made(Op::memerase64).size(), 0U);
}

// --- Names near the cut: 30 characters for the existence test, 31 for what is opened. ---

class SyncNamesTest : public UpgradeTest {
 protected:
  void use_filled_names(const std::string& table_name, const std::vector<std::string>& mtd_names) {
    use_names(table_name, mtd_names);
    fill_systems();
  }
  void expect_copy(const std::string& dst, const std::string& src) {
    EXPECT_EQ(partition(dst).raw(), partition(src).raw());
  }
};

TEST_F(SyncNamesTest, Of29CharactersKeepTheDigit) {
  const std::string name = long_name(29);
  use_filled_names(name, {name, name + "2"});
  EXPECT_EQ(sync().result, 0);
  expect_copy(name + "2", name);
}

// The test finds the plain name, and the partition with the digit is what is written.
TEST_F(SyncNamesTest, Of30CharactersKeepTheDigitToo) {
  const std::string name = long_name(30);
  for (const System running : {System::a, System::b}) {
    use_filled_names(name, {name, name + "2"});
    run_system(running);
    const sim::Bytes source = running_of(name).raw();
    const LibraryRun run = sync();
    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(run.messages_of("is_partition_exist")[1].find("Mtd :[" + name + "]") == 0);
    EXPECT_EQ(target_of(name).raw(), source);
    EXPECT_EQ(running_of(name).raw(), source);
  }
}

TEST_F(SyncNamesTest, Of30CharactersAreNotFoundWithoutThePlainOne) {
  const std::string name = long_name(30);
  use_filled_names(name, {name + "2"});
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said("pre_sync", "There is no partition [" + name + "2] in system"));
}

TEST_F(SyncNamesTest, Of31CharactersAreNotFound) {
  const std::string name = long_name(31);
  use_filled_names(name, {name, name + "2"});
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said("pre_sync", "There is no partition [" + name + "] in system"));
}

// Where the name of 30 is listed as well, both names of 31 are one: a partition equals itself.
TEST_F(SyncNamesTest, Of31CharactersLoseTheDigit) {
  const std::string name = long_name(31);
  use_filled_names(name, {long_name(30), name});
  const sim::Bytes before = partition(name).raw();
  const LibraryRun run = sync();
  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(run.said(
      "sync_partition",
      "dst partition [" + name + "] is the same as src partition [" + name + "], do not sync"));
  EXPECT_EQ(partition(name).raw(), before);
}

}  // namespace
