// SPDX-License-Identifier: Apache-2.0
#include "fault_sweep.h"

#include <unistd.h>

#include <cctype>

#include "descriptor_squatter.h"
#include "upi_upgrade_package.h"

namespace {

constexpr const char* kLog = "/cache/ovu_fota_ab/upi_ab.log";

// A load that fails behind the head's magic, other than by the names, keeps its descriptor.
bool package_may_stay_open(const LibraryRun& run) {
  return run.told_of("Init upgrade package info fail>>>") && !run.told_of("Upgrade type invalid");
}

}  // namespace

FaultSweepTest::FaultSweepTest() {
  sim::Layout layout = sim::test_layout(512, 4, 4);
  layout.running = std::get<0>(GetParam());
  use_layout(layout);
  allow_open_descriptors();  // looked at run by run
  allow_rule_breaks();       // a query that fails lets a block that holds data count as bad
}

std::vector<sim::Bytes> FaultSweepTest::running_contents() {
  return {running_of("kernel").raw(), running_of("rootfs").raw(), running_of("oemdata").raw()};
}

void FaultSweepTest::expect_only_the_target_marked() {
  sim::BootRecord wanted = sim::factory_record();
  wanted.set_status(target(), target_status());
  const sim::RecordCopies copies = sim::read_records(device());
  ASSERT_NE(copies.chosen(), nullptr);
  EXPECT_EQ(copies.chosen()->record.bytes, wanted.bytes);
}

void FaultSweepTest::expect_descriptors(const LibraryRun& run) {
  std::size_t packages = 0;
  for (const sim::OpenDescriptor& open : sim::open_descriptors()) {
    if (open.path == support::kPackagePath) {
      ++packages;
      EXPECT_EQ(open.fd, g_upgrade_package_fd);
    } else {
      EXPECT_EQ(open.path, kLog);
    }
  }
  EXPECT_EQ(packages, package_may_stay_open(run) ? 1U : 0U);
  if (packages != 0) {
    close(g_upgrade_package_fd);
  }
  EXPECT_EQ(g_upgrade_package_info, nullptr);
}

bool FaultSweepTest::run_with_fault(std::uint64_t at, const std::function<int()>& call,
                                    const std::function<void(const LibraryRun&)>& check) {
  const sim::Op op = std::get<1>(GetParam());
  SCOPED_TRACE(std::string(sim::op_name(op)) + " number " + std::to_string(at) + " fails");
  const sim::AllocationWatch watch;
  const std::string where = op == sim::Op::malloc ? "libzozale" : "";
  device().faults().add({op, where, at, op == sim::Op::malloc ? ENOMEM : EIO});
  DescriptorSquatter squatter;
  const LibraryRun run = run_library(call);
  EXPECT_TRUE(squatter.lost().empty());
  const bool struck = device().faults().struck() == 1;
  device().faults().clear();
  expect_descriptors(run);
  if (struck) {
    check(run);
  }
  return struck;
}

void FaultSweepTest::sweep(const std::function<int()>& call,
                           const std::function<void(const LibraryRun&)>& check) {
  const sim::Device::Snapshot start = device().snapshot();
  std::uint64_t at = 1;
  while (run_with_fault(at, call, check) && !HasFailure()) {
    device().restore(start);
    ++at;
  }
  EXPECT_GT(at, 1U) << "no such operation was made";
}

std::vector<sim::Op> failing_operations() {
  return {sim::Op::open,         sim::Op::close,           sim::Op::read,
          sim::Op::write,        sim::Op::lseek,           sim::Op::memgetinfo,
          sim::Op::memerase,     sim::Op::memerase64,      sim::Op::memgetbadblock,
          sim::Op::protect_lift, sim::Op::protect_restore, sim::Op::fopen,
          sim::Op::fclose,       sim::Op::stream_read,     sim::Op::stream_write,
          sim::Op::access,       sim::Op::malloc,          sim::Op::block_erase,
          sim::Op::page_program, sim::Op::store_set,       sim::Op::store_save};
}

std::string sweep_name(const ::testing::TestParamInfo<std::tuple<sim::System, sim::Op>>& sweep) {
  std::string name(1, sim::letter(std::get<0>(sweep.param)));
  name += "Runs";
  for (const char character : std::string(sim::op_name(std::get<1>(sweep.param)))) {
    name += std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
  }
  return name;
}
