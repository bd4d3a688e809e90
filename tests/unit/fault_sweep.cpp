// SPDX-License-Identifier: Apache-2.0
#include "fault_sweep.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <map>

#include "descriptor_squatter.h"
#include "upi_log.h"

namespace {

using sim::Op;

constexpr const char* kLogPath = "/cache/ovu_fota_ab/upi_ab.log";
constexpr const char* kWorkFolder = "/cache/ovu_fota_ab";
constexpr const char* kTempFolder = "/cache/ovu_fota_ab/upgrade_temp";
// Of streams, whose transfers no run without a fault tells of.
const std::vector<std::string> kStreamPaths = {"/proc/mtd", "/proc/cmdline",
                                               "/etc_ro/systemPartitionInfo.conf"};
constexpr std::uint64_t kNever = 1000000000;

// One line for each request but the log's; descriptors by the order in which they were opened.
std::vector<std::string> request_lines(const std::vector<sim::Call>& calls) {
  std::vector<std::string> lines;
  std::map<int, int> opened;
  int opens = 0;
  for (const sim::Call& call : calls) {
    if (is_of_the_log(call)) {
      continue;
    }
    if (call.op == Op::open && call.error == 0) {
      opened[call.fd] = ++opens;
    }
    const bool counts = call.op != Op::open && call.op != Op::fopen;
    lines.push_back(
        std::string(sim::op_name(call.op)) + " " + call.path + " #" +
        std::to_string(opened[call.fd]) + " " + call.text + " flags " + std::to_string(call.flags) +
        " " + std::to_string(call.offset) + "+" + std::to_string(call.length) + " = " +
        (counts ? std::to_string(call.result) : "") + " error " + std::to_string(call.error));
  }
  return lines;
}

// Numbers of the descriptors that messages tell of: nodes and the package.
std::vector<int> shown_descriptors(const LibraryRun& run) {
  std::vector<int> numbers;
  for (const sim::Call& call : run.made(Op::open)) {
    if (call.error == 0 && (!call.partition.empty() || call.path == support::kPackagePath)) {
      numbers.push_back(call.fd);
    }
  }
  return numbers;
}

template <typename T>
void expect_equal_lists(const char* what, const std::vector<T>& found,
                        const std::vector<T>& wanted) {
  const auto [a, b] = std::mismatch(found.begin(), found.end(), wanted.begin(), wanted.end());
  if (a == found.end() && b == wanted.end()) {
    return;
  }
  ADD_FAILURE() << what << " " << a - found.begin() << " of " << found.size() << ":\n  found  "
                << (a == found.end() ? "nothing" : ::testing::PrintToString(*a)) << "\n  wanted "
                << (b == wanted.end() ? "nothing" : ::testing::PrintToString(*b));
}

}  // namespace

FaultSweep::FaultSweep() {
  allow_open_descriptors();  // compared, run by run
  allow_rule_breaks();       // a query that fails lets a block that holds data count as bad
}

void FaultSweep::use_system(const sim::Layout& layout,
                            const std::function<void()>& before_filling) {
  begun_ = false;
  use(layout);
  before_filling();
  write_flags(
      [this](sim::BootRecord& record) { record.set_status(target(), sim::kStatusSuccessful); });
  fill_systems();
}

void FaultSweep::use_small_device(sim::System running) {
  sim::Layout layout = sim::test_layout(512, 4, 4);
  layout.running = running;
  if (running == sim::System::b) {
    for (std::size_t i = 0; i < layout.partitions.size(); ++i) {
      // Each in a place of its own; the flags' first block is bad too.
      layout.partitions[i].blocks += 1;
      layout.partitions[i].bad = {static_cast<std::uint32_t>(i % 3)};
    }
  }
  use_system(layout, [] {});
}

void FaultSweep::use_defective_device(sim::System running, const std::string& mtd_name,
                                      const Defect& defect) {
  sim::Layout layout = sim::test_layout(512, 4, kDefectiveBlocks);
  layout.running = running;
  const auto apply = [&] {
    sim::Partition chosen = partition(mtd_name);
    defect.apply(chosen);
  };
  use_system(
      layout, defect.born ? std::function<void()>(apply) : [] {});
  if (!defect.born) {
    apply();
  }
}

std::vector<sim::Bytes> FaultSweep::running_contents() {
  return {running_of("kernel").raw(), running_of("rootfs").raw(), running_of("oemdata").raw()};
}

void FaultSweep::begin_here() {
  if (!begun_) {
    begun_ = true;
    start_ = device().snapshot();
    running_ = running_contents();
    start_status_ = target_status();
  }
}

void FaultSweep::expect_only_the_target_touched() {
  sim::BootRecord wanted = sim::factory_record();
  wanted.set_status(target(), target_status());
  const sim::RecordCopies copies = sim::read_records(device());
  ASSERT_NE(copies.chosen(), nullptr);
  EXPECT_EQ(copies.chosen()->record.bytes, wanted.bytes);
  EXPECT_TRUE(running_contents() == running_) << "the running system was touched";
}

// --- One run. ---

void FaultSweep::go_back(const std::optional<sim::Fault>& fault) {
  if (settle_) {
    static_cast<void>(support::printed([] { upi_close_logfile(); }));
  }
  sim::attach(device());
  device().restore(start_);
  std::filesystem::create_directories(device().host_path(kWorkFolder));
  device().remove_file(kTempFolder);
  if (prepare_) {
    prepare_();
  }
  if (fault) {
    device().faults().add(*fault);
  }
}

// Closes what was left open.
void FaultSweep::look_around(Seen& seen) {
  seen.requests = request_lines(seen.run.calls);
  seen.struck = device().faults().struck() != 0;
  seen.saved = device().store().all();
  seen.chip = device().nand().snapshot();
  for (std::uint32_t i = 0; i < device().partition_count(); ++i) {
    seen.is_protected.push_back(device().partition(i).write_protected());
  }
  for (const sim::OpenDescriptor& open : sim::open_descriptors()) {
    if (open.path != kLogPath) {
      seen.left_open.push_back(open.path);
      close(open.fd);
    }
  }
  device().faults().clear();
}

FaultSweep::Seen FaultSweep::run_library_with(const Operation& operation,
                                              const std::optional<sim::Fault>& fault) {
  go_back(fault);
  Seen seen;
  DescriptorSquatter squatter;
  seen.run = run_library(
      [&] {
        const sim::AllocationWatch watch("libzozale");
        errno = 0;
        const int result = operation.call();
        EXPECT_EQ(watch.held(), 0) << "blocks of memory were kept";
        return result;
      },
      {true});
  EXPECT_TRUE(squatter.lost().empty()) << "a descriptor was closed twice";
  for (support::LogLine& line : seen.run.log) {
    if (settle_) {
      settle_(line.message);
    }
  }
  look_around(seen);
  return seen;
}

FaultSweep::Seen FaultSweep::run_restated_with(const Operation& operation,
                                               const std::optional<sim::Fault>& fault,
                                               const LibraryRun& like) {
  go_back(fault);
  const bool of_memory = fault && fault->op == Op::malloc;
  reference::Library library(shown_descriptors(like), of_memory ? fault->at : 0);
  Seen seen;
  seen.run = run_library(
      [&] {
        errno = 0;
        return operation.restated(library);
      },
      {true});
  seen.run.log = library.log();
  seen.allocations = library.allocations();
  look_around(seen);
  seen.struck = seen.struck || (of_memory && library.allocations() >= fault->at);
  return seen;
}

void FaultSweep::expect_equal(const Seen& found, const Seen& wanted) {
  EXPECT_EQ(found.run.result, wanted.run.result);
  expect_equal_lists("diagnostic", found.run.log, wanted.run.log);
  expect_equal_lists("request", found.requests, wanted.requests);
  expect_equal_lists("left open:", found.left_open, wanted.left_open);
  expect_equal_lists("store value", found.run.store, wanted.run.store);
  expect_equal_lists("saved value", found.saved, wanted.saved);
  EXPECT_EQ(found.run.saves, wanted.run.saves);
  EXPECT_EQ(found.is_protected, wanted.is_protected);
  EXPECT_TRUE(found.chip == wanted.chip) << "the chip is not what it should be";
}

void FaultSweep::expect_same(const Operation& operation, const std::optional<sim::Fault>& fault,
                             const Check& check) {
  begin_here();
  const Seen found = run_library_with(operation, fault);
  if (check) {
    check(found.run);
  }
  expect_equal(found, run_restated_with(operation, fault, found.run));
}

// --- All of them. ---

std::vector<FaultPlace> FaultSweep::places_of(const Operation& operation, Op op) {
  if (op == Op::malloc) {
    return {{op, "libzozale", run_restated_with(operation, {}, {}).allocations}};
  }
  std::vector<FaultPlace> places;
  if (op == Op::stream_read) {
    for (const std::string& path : kStreamPaths) {
      go_back(sim::Fault{op, path, kNever});
      run_library(operation.call);
      places.push_back({op, path, device().count(op)});
    }
  } else if (op == Op::block_erase || op == Op::page_program) {
    run_library_with(operation, {});
    for (std::uint32_t i = 0; i < device().partition_count(); ++i) {
      places.push_back({op, device().partition(i).name(), device().partition(i).count(op)});
    }
  } else {
    places = touched_places(run_library_with(operation, {}).run.calls);
  }
  places.erase(
      std::remove_if(places.begin(), places.end(),
                     [op](const FaultPlace& place) { return place.op != op || place.count == 0; }),
      places.end());
  return places;
}

void FaultSweep::expect_struck(const Operation& operation, const sim::Fault& fault,
                               const Check& check) {
  SCOPED_TRACE(described(fault));
  const Seen found = run_library_with(operation, fault);
  EXPECT_TRUE(found.struck) << "nothing was struck";
  if (check) {
    check(found.run);
  }
  const Seen wanted = run_restated_with(operation, fault, found.run);
  EXPECT_TRUE(wanted.struck);
  expect_equal(found, wanted);
}

void FaultSweep::sweep_places(const Operation& operation, const std::vector<FaultPlace>& places,
                              const Faults& faults, const Check& check) {
  for (const FaultPlace& place : places) {
    for (sim::Fault fault : faults(place)) {
      for (fault.at = 1; fault.at <= place.count && !HasFailure(); ++fault.at) {
        expect_struck(operation, fault, check);
      }
    }
  }
}

void FaultSweep::sweep(const Operation& operation, Op op, const Faults& faults,
                       const Check& check) {
  expect_same(operation);
  const std::vector<FaultPlace> places = places_of(operation, op);
  EXPECT_FALSE(places.empty()) << "no such request is made";
  sweep_places(operation, places, faults, check);
}

std::size_t FaultSweep::sweep_all(const Operation& operation, const Faults& faults,
                                  const Check& check) {
  expect_same(operation);
  std::size_t kinds = 0;
  for (const Op op : failing_operations()) {
    const std::vector<FaultPlace> places = places_of(operation, op);
    kinds += places.empty() ? 0U : 1U;
    sweep_places(operation, places, faults, check);
  }
  return kinds;
}

std::vector<sim::Fault> faults_for(sim::System running, const FaultPlace& place) {
  return running == sim::System::a ? faults_at(place) : one_error_at(place);
}

std::vector<Op> failing_operations(const std::vector<Op>& never_made) {
  std::vector<Op> operations = {Op::open,         Op::close,           Op::read,
                                Op::write,        Op::lseek,           Op::memgetinfo,
                                Op::memerase,     Op::memerase64,      Op::memgetbadblock,
                                Op::protect_lift, Op::protect_restore, Op::fopen,
                                Op::fclose,       Op::stream_read,     Op::access,
                                Op::stat,         Op::mkdir,           Op::malloc,
                                Op::block_erase,  Op::page_program,    Op::store_set,
                                Op::store_save};
  operations.erase(
      std::remove_if(
          operations.begin(), operations.end(),
          [&](Op op) { return std::count(never_made.begin(), never_made.end(), op) != 0; }),
      operations.end());
  return operations;
}

std::string op_test_name(Op op) {
  std::string name;
  for (const char character : std::string(sim::op_name(op))) {
    name += std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
  }
  return name;
}

std::string run_name(sim::System running, const std::string& operation) {
  return std::string(1, sim::letter(running)) + "Runs" + operation;
}

std::string sweep_name(const ::testing::TestParamInfo<std::tuple<sim::System, sim::Op>>& sweep) {
  return run_name(std::get<0>(sweep.param), op_test_name(std::get<1>(sweep.param)));
}
