// SPDX-License-Identifier: Apache-2.0
#include <fstream>
#include <stdexcept>

#include "sim/device_state.h"
#include "tests/support/device_test.h"

namespace {

using sim::Bytes;
using sim::Device;
using sim::Storage;
using support::DeviceTest;

class DeviceFolderTest : public DeviceTest {};

TEST(DeviceFolder, OpensAsItWasMade) {
  const support::TempFolder folder;
  const auto path = folder.path() / "device";
  sim::Layout layout = sim::test_layout();
  layout.running = sim::System::b;
  layout.plat = 256;
  layout.partitions[1].bad = {2};
  const Bytes data = support::pattern(5000);
  {
    Device device = Device::create(path, layout);
    device.partition("kernel").flash(data);
    device.store().put("key", "value");
  }
  Device device = Device::open(path);
  EXPECT_EQ(device.partition_count(), 7U);
  EXPECT_EQ(device.running(), sim::System::b);
  EXPECT_EQ(device.layout().plat, 256);
  EXPECT_EQ(sim::mtd_text(device.layout()), sim::mtd_text(layout));
  EXPECT_EQ(sim::table_text(device.layout()), sim::table_text(layout));
  EXPECT_TRUE(device.partition("kernel").is_bad(2));
  const Bytes good = device.partition("kernel").good();
  EXPECT_TRUE(std::equal(data.begin(), data.end(), good.begin()));
  EXPECT_EQ(device.store().get("key"), "value");
}

TEST(DeviceFolder, IsNotMadeTwice) {
  const support::TempFolder folder;
  std::ofstream(folder.path() / "something") << "x";
  EXPECT_THROW(Device::create(folder.path(), sim::test_layout()), std::runtime_error);
}

TEST(DeviceFolder, OfAnotherVersionIsRefused) {
  const support::TempFolder folder;
  const auto path = folder.path() / "device";
  {
    Device device = Device::create(path, sim::test_layout());
    device.state().version += 1;
  }
  EXPECT_THROW(Device::open(path), std::runtime_error);
}

TEST(DeviceFolder, RefusesLayoutsThatAreNoDevice) {
  const support::TempFolder folder;
  sim::Layout layout = sim::test_layout();
  layout.partitions[2].name = "a\"b";
  EXPECT_THROW(Device::create(folder.path() / "device", layout), std::runtime_error);
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "device"));
}

TEST_F(DeviceFolderTest, PartitionsLieOneAfterTheOther) {
  partition("flags").poke(0, Bytes(1, 1));
  partition("kernel").poke(0, Bytes(1, 2));
  Bytes chip(11 * 2048);
  device().nand().peek(0, chip.data(), chip.size());
  EXPECT_EQ(chip[0], 1);
  EXPECT_EQ(chip[10 * 2048], 2);
  EXPECT_EQ(partition("kernel").number(), 1U);
  EXPECT_EQ(partition("kernel").node(), "/dev/mtd1");
}

TEST_F(DeviceFolderTest, WrongPlacesAreTold) {
  EXPECT_THROW(partition("attic"), std::out_of_range);
  EXPECT_THROW(device().partition(7), std::out_of_range);
  EXPECT_THROW(partition("kernel").block(8), std::out_of_range);
  EXPECT_THROW(partition("kernel").set_page_defects(0, 4, 1), std::out_of_range);
  EXPECT_THROW(partition("kernel").poke(8 * 2048, Bytes(1)), std::out_of_range);
  EXPECT_THROW(partition("kernel").flash(Bytes(8 * 2048 + 1)), std::runtime_error);
  EXPECT_FALSE(device().find_partition("attic"));
}

TEST_F(DeviceFolderTest, FlashingSkipsBadBlocksAndErasesTheRest) {
  sim::Partition kernel = partition("kernel");
  kernel.poke(0, Bytes(kernel.size(), 0));
  kernel.set_bad(0);
  kernel.set_bad(2);
  const Bytes data = support::pattern(3000);
  kernel.flash(data);
  EXPECT_EQ(kernel.good_blocks(), 6U);
  EXPECT_EQ(kernel.block(0), Bytes(2048, 0));
  EXPECT_EQ(kernel.block(1), Bytes(data.begin(), data.begin() + 2048));
  Bytes rest(data.begin() + 2048, data.end());
  rest.resize(2048, 0xFF);
  EXPECT_EQ(kernel.block(3), rest);
  EXPECT_EQ(kernel.block(7), Bytes(2048, 0xFF));
  EXPECT_EQ(kernel.total_erases(), 0U);
  kernel.wipe();
  EXPECT_EQ(kernel.raw(), Bytes(8 * 2048, 0xFF));
}

TEST_F(DeviceFolderTest, PowerOnIsAFreshStart) {
  device().write_file("/proc/cmdline", "hostile");
  device().write_file("/proc/mtd", "hostile");
  partition("kernel").set_write_protected(false);
  device().set_power(sim::Power::cut);
  device().power_on(sim::System::b);
  EXPECT_EQ(device().read_file("/proc/cmdline"), "console=ttyS0,115200 system=system_b rootwait\n");
  EXPECT_EQ(device().read_file("/proc/mtd"), sim::mtd_text(device().layout()));
  EXPECT_TRUE(partition("kernel").write_protected());
  EXPECT_EQ(device().power(), sim::Power::on);
}

TEST_F(DeviceFolderTest, SnapshotBringsTheDeviceBack) {
  partition("kernel").flash("before");
  device().store().put("key", "before");
  const Device::Snapshot before = device().snapshot();
  partition("kernel").flash("after");
  partition("kernel").set_write_protected(false);
  device().store().put("key", "after");
  device().set_running(sim::System::b);
  device().set_power(sim::Power::cut);
  device().restore(before);
  EXPECT_EQ(partition("kernel").block(0)[0], 'b');
  EXPECT_TRUE(partition("kernel").write_protected());
  EXPECT_EQ(device().store().get("key"), "before");
  EXPECT_EQ(device().running(), sim::System::a);
  EXPECT_EQ(device().power(), sim::Power::on);
}

TEST_F(DeviceFolderTest, FilesAreTheDevices) {
  EXPECT_FALSE(device().has_file("/cache/a/b"));
  device().write_file("/cache/a/b", "text");
  EXPECT_EQ(device().read_file("/cache/a/b"), "text");
  device().remove_file("/cache/a");
  EXPECT_FALSE(device().has_file("/cache/a/b"));
  EXPECT_THROW(device().read_file("/cache/a/b"), std::runtime_error);
}

TEST_F(DeviceFolderTest, EmptyPartitionsArePossible) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.push_back({"empty", 0, {}});
  use(layout);
  EXPECT_EQ(partition("empty").size(), 0U);
  EXPECT_EQ(partition("empty").raw(), Bytes());
}

TEST_F(DeviceFolderTest, LargePartitionsTakeNoRoom) {
  sim::Layout layout = sim::test_layout(2048, 64, 16);
  layout.partitions.push_back({"huge", 32767, {}});
  use(layout);
  sim::Partition huge = partition("huge");
  EXPECT_EQ(huge.size(), 32767ULL * 131072);
  huge.poke(huge.size() - 3, Bytes(3, 7));
  EXPECT_EQ(huge.block(32766).back(), 7);
}

}  // namespace
