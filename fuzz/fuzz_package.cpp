// SPDX-License-Identifier: Apache-2.0
//
// The upgrade package, any bytes in its place: through the type query, the verification and the
// upgrade.
#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

#include "common/partition_table.h"
#include "fuzz/fuzz_device.h"
#include "fuzz/require.h"
#include "upi_upgrade_package.h"
#include "vemk_fota_ab_upgrade.h"
#include "zozale-package/check.h"
#include "zozale-package/package_view.h"
#include "zozale/content.h"

namespace {

using fuzz::FuzzDevice;

// Reserved bytes of the head, which mean nothing to the library.
constexpr size_t kRunning = 255;
constexpr size_t kLie = 254;
constexpr size_t kBadBlocks = 253;

// The device as the reserved bytes want it.
struct Circumstances {
  sim::System running = sim::System::a;
  unsigned lie = 0;  // that the driver tells of the target's kernel partition
  unsigned bad_blocks = 0;
};

Circumstances circumstances_of(const uint8_t* data, size_t size) {
  if (size <= kRunning) {
    return {};
  }
  return {(data[kRunning] & 1U) != 0 ? sim::System::b : sim::System::a, data[kLie] & 7U,
          data[kBadBlocks]};
}

// Nothing but a head, a length of 0 and a range past the end of the file let the library hash for
// ever: the system's behaviour. The tools refuse such a package before the library sees it, and
// by the same rule it is not verified here.
bool hashing_ends(const zozale::PackageReading& reading, size_t size) {
  if (size == zozale::kHeadSize) {
    return false;
  }
  const auto& package = reading.package;
  return !package ||
         std::all_of(package->partitions.begin(), package->partitions.end(),
                     [size](const zozale::PackageEntry& entry) { return entry.is_within(size); });
}

bool device_would_take(const zozale::ByteSource& source) {
  static const zozale::PartitionTable table =
      *zozale::parse_partition_table(
           FuzzDevice::get().sim().read_file("/etc_ro/systemPartitionInfo.conf"))
           .table;
  return !zozale::has_errors(zozale::check_package(source, &table));
}

std::string mtd_name(const std::string& table_name, sim::System system) {
  return table_name + (system == sim::System::b ? "2" : "");
}

uint64_t image_erases(sim::System system) {
  uint64_t erases = 0;
  for (const char* name : {"kernel", "rootfs", "oemdata"}) {
    erases += FuzzDevice::get().partition(mtd_name(name, system).c_str()).total_erases();
  }
  return erases;
}

bool holds_image(const zozale::PackageEntry& entry, sim::System system) {
  const sim::Bytes content =
      FuzzDevice::get().partition(mtd_name(entry.name, system).c_str()).good();
  const auto len = static_cast<size_t>(std::max(entry.len, 0));
  const zozale::MemorySource source(content.data(), content.size());
  return len <= content.size() &&
         zozale::tool::equal_for_library(zozale::hash_range(source, 0, len).digest(), entry.hash);
}

// After a success: of entries with one name the last one's image is there.
void require_images(const zozale::PackageView& package, sim::System target) {
  std::set<std::string> seen;
  for (auto entry = package.partitions.rbegin(); entry != package.partitions.rend(); ++entry) {
    REQUIRE(!seen.insert(entry->name).second || holds_image(*entry, target));
  }
}

void query_type(const zozale::PackageReading& reading) {
  const int type = vemk_dual_get_upgrade_type();
  REQUIRE(type == -1 || (reading.package && reading.package->head.upgrade_type == type));
  REQUIRE(get_upgrade_package_info() == nullptr);
}

void verify(const zozale::ByteSource& source) {
  const int result = vemk_dual_verify();
  REQUIRE(result == 0 || result == -1);
  REQUIRE(result == 0 || !device_would_take(source));
  REQUIRE(FuzzDevice::get().sim().flash_operations() == 0);
  REQUIRE(get_upgrade_package_info() == nullptr);
}

void prepare(const Circumstances& circumstances) {
  FuzzDevice& device = FuzzDevice::get();
  device.reset();
  device.run(circumstances.running);
  const sim::Partition target =
      device.partition(mtd_name("kernel", sim::other(circumstances.running)).c_str());
  fuzz::set_bad_blocks(target, circumstances.bad_blocks);
  fuzz::lie_about(target, circumstances.lie);
}

void upgrade(const zozale::PackageReading& reading, const Circumstances& circumstances) {
  z_upgrade_status_info_t status = {};
  z_upgrade_flush_status_t flush = {&status, nullptr};
  const int result = vemk_dual_upgrade(&flush);
  const bool succeeded = result == 0 && status.upgrade_status == UPGRADE_STATUS_UPDATE_SUCCESS;
  const sim::System target = sim::other(circumstances.running);
  REQUIRE(image_erases(circumstances.running) == 0);
  REQUIRE(reading.package || (!succeeded && image_erases(target) == 0));
  if (circumstances.lie != 0) {
    return;
  }
  REQUIRE(FuzzDevice::get().sim().nand().rule_breaks().total() == 0);
  if (succeeded) {
    require_images(*reading.package, target);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Circumstances circumstances = circumstances_of(data, size);
  prepare(circumstances);
  FuzzDevice::get().put(fuzz::kPackagePath, data, size);
  const zozale::MemorySource source(data, size);
  const zozale::PackageReading reading = zozale::read_package(source);
  query_type(reading);
  if (hashing_ends(reading, size)) {
    verify(source);
  }
  upgrade(reading, circumstances);
  FuzzDevice::get().close_package();
  return 0;
}
