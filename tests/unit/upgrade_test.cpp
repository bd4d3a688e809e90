// SPDX-License-Identifier: Apache-2.0
#include "upgrade_test.h"

#include <cerrno>
#include <utility>

#include "upi_sync_system.h"
#include "upi_update.h"

void UpgradeTest::use_layout(const sim::Layout& layout) {
  use(layout);
  write_flags();
}

int status_in_record(sim::Device& device, sim::System system) {
  const sim::RecordCopies copies = sim::read_records(device);
  const sim::RecordCopy* const chosen = copies.chosen();
  return chosen == nullptr ? 0 : chosen->record.status(system);
}

void UpgradeTest::expect_flags(int status) {
  sim::BootRecord wanted = sim::factory_record();
  wanted.set_status(target(), status);
  const sim::RecordCopies copies = sim::read_records(device());
  EXPECT_EQ(copies.main.record.bytes, wanted.bytes);
  EXPECT_EQ(copies.backup.record.bytes, wanted.bytes);
}

void UpgradeTest::put_package(const support::PackageFile& package) {
  device().write_file(support::kPackagePath, package.bytes());
}

support::PackageFile UpgradeTest::platform_package(std::vector<support::PackageEntry> partitions) {
  support::PackageFile package;
  package.upgrade_type = 1;
  package.partitions = std::move(partitions);
  return package;
}

void UpgradeTest::fill_systems() {
  for (std::uint32_t number = 0; number < device().partition_count(); ++number) {
    sim::Partition filled = device().partition(number);
    if (filled.name() != "flags") {
      filled.flash(support::pattern(filled.good().size(), 1000 + number));
    }
  }
}

sim::Bytes UpgradeTest::filled_up(sim::Bytes data, std::size_t size) {
  data.resize(size, 0xFF);
  return data;
}

void UpgradeTest::expect_image(sim::Partition partition, const sim::Bytes& data) {
  const sim::Bytes found = partition.good();
  EXPECT_TRUE(found == filled_up(data, found.size()))
      << partition.name() << " does not hold the image of " << data.size() << " bytes and 0xFF";
}

void UpgradeTest::expect_protection_bracket(const LibraryRun& run, const std::string& name) {
  const std::vector<sim::Call> lifts = run.made(sim::Op::protect_lift, name);
  const std::vector<sim::Call> restores = run.made(sim::Op::protect_restore, name);
  ASSERT_EQ(lifts.size(), 1U);
  ASSERT_EQ(restores.size(), 1U);
  EXPECT_EQ(lifts[0].request, 0x80044D18U);
  EXPECT_EQ(restores[0].request, 0x80044D19U);
  EXPECT_EQ(restores[0].fd, lifts[0].fd);
  EXPECT_TRUE(partition(name).write_protected());
}

LibraryRun UpgradeTest::run_out_of_memory(const std::function<int()>& call,
                                          const support::LogLine& line) {
  const sim::AllocationWatch watch;
  const sim::Device::Snapshot start = device().snapshot();
  for (std::uint64_t at = 1;; ++at) {
    device().restore(start);
    device().faults().add({sim::Op::malloc, "libzozale", at, ENOMEM});
    LibraryRun run = run_library(call);
    if (run.said(line.function, line.message)) {
      return run;
    }
    if (device().faults().struck() == 0) {
      ADD_FAILURE() << "no allocation led to: " << line;
      return run;
    }
  }
}

std::string UpgradeTest::long_name(std::size_t length) {
  std::string name;
  while (name.size() < length) {
    name += static_cast<char>('a' + name.size() % 26);
  }
  return name;
}

void UpgradeTest::use_names(const std::string& table_name,
                            const std::vector<std::string>& mtd_names) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.resize(1);
  for (const std::string& name : mtd_names) {
    layout.partitions.push_back({name, 4, {}});
  }
  layout.platform = {{table_name}};
  layout.oem.clear();
  use_layout(layout);
}

LibraryRun UpgradeTest::upgrade(z_upgrade_flush_status_t* flush_status) {
  return run_library([&] { return vemk_dual_upgrade(flush_status); });
}

LibraryRun UpgradeTest::sync() {
  return run_library([] { return vemk_dual_sync_system(); });
}
