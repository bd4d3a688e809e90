// SPDX-License-Identifier: Apache-2.0
#include "device_life.h"

namespace {

constexpr std::size_t kBlock = 2048;

sim::Layout worn_layout() {
  sim::Layout layout = sim::test_layout(512, 4, 16);
  const std::vector<std::vector<std::uint32_t>> bad = {{0, 3},  {0},    {1, 2, 3}, {15},
                                                       {0, 15}, {7, 8}, {5}};
  for (std::size_t number = 0; number < layout.partitions.size(); ++number) {
    layout.partitions[number].bad = bad[number];
  }
  return layout;
}

int call(int (*function)()) {
  return run_library(function).result;
}

}  // namespace

DeviceLife::Images DeviceLife::release(std::uint32_t number) {
  return {{"kernel", support::pattern(3 * kBlock + number, 10 * number)},
          {"rootfs", support::pattern(12 * kBlock - 100 * number, 10 * number + 1)},
          {"oemdata", support::pattern(kBlock * (1 + number % 3), 10 * number + 2)}};
}

support::PackageFile DeviceLife::package_of(const Images& images) {
  support::PackageFile package;
  for (const char* name : {"kernel", "rootfs", "oemdata"}) {
    package.partitions.push_back({name, images.at(name)});
  }
  return package;
}

void DeviceLife::leave_factory() {
  use(worn_layout());
  installed_ = release(0);
  for (const auto& [name, image] : installed_) {
    partition(name).flash(image);
  }
  ASSERT_EQ(call(vemk_init_flag_partition), 0);
  EXPECT_EQ(sim::boot(device()).started, sim::System::a);
  mark_successful();
}

void DeviceLife::receive(const Images& images) {
  put_package(package_of(images));
}

void DeviceLife::verify() {
  EXPECT_EQ(call(vemk_dual_verify), 0);
  EXPECT_EQ(upgrade_status(), UPGRADE_STATUS_VERIFY_SUCCESS);
}

void DeviceLife::install() {
  const int boot_to = call(vemk_dual_get_boot_to_system);
  EXPECT_EQ(upgrade().result, 0);
  EXPECT_EQ(upgrade_status(), UPGRADE_STATUS_UPDATE_SUCCESS);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  EXPECT_EQ(call(vemk_dual_get_boot_to_system), boot_to) << "an upgrade does not switch";
}

void DeviceLife::switch_over() {
  const sim::System wanted = target();
  const int wanted_code = target_code();
  const LibraryRun run = run_library([&] { return vemk_dual_set_boot_to_system(wanted_code, 1); });
  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(device().power(), sim::Power::rebooting);
  EXPECT_EQ(sim::boot(device()).started, wanted);
  EXPECT_EQ(call(vemk_dual_get_current_system), wanted_code);
  EXPECT_EQ(call(vemk_dual_get_fota_status_for_nv), 1);
}

void DeviceLife::mark_successful() {
  const int running = code(device().running());
  EXPECT_EQ(run_library([&] {
              return vemk_dual_set_system_status(running, DUALSYSTEM_STATUS_SUCCESSFUL);
            }).result,
            0);
  EXPECT_EQ(run_library([] { return vemk_dual_set_fota_status_for_nv(0); }).result, 0);
  EXPECT_EQ(call(vemk_dual_get_fota_status_for_nv), 0);
}

void DeviceLife::synchronise() {
  EXPECT_EQ(sync().result, 0);
  EXPECT_EQ(sync_status(), SYNC_STATUS_SUCCESS);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
}

void DeviceLife::reboot() {
  const sim::System running = device().running();
  EXPECT_EQ(sim::boot(device()).started, running);
}

void DeviceLife::whole_upgrade(const Images& images) {
  receive(images);
  verify();
  install();
  switch_over();
  mark_successful();
  reboot();
  installed_ = images;
}

int DeviceLife::upgrade_status() {
  z_upgrade_status_info_t status{};
  vemk_dual_get_upgrade_status(&status);
  return status.upgrade_status;
}

int DeviceLife::sync_status() {
  int status = -77;
  vemk_dual_get_sync_status(&status);
  return status;
}

bool DeviceLife::holds(sim::System system, const Images& images) {
  for (const auto& [name, image] : images) {
    const sim::Bytes found = partition(mtd_name(system, name)).good();
    if (found != filled_up(image, found.size())) {
      return false;
    }
  }
  return true;
}

void DeviceLife::expect_system(sim::System system, const Images& images) {
  for (const auto& [name, image] : images) {
    expect_image(partition(mtd_name(system, name)), image);
  }
}
