// SPDX-License-Identifier: Apache-2.0
//
// Work files and a store that refuse: full and read-only file systems, a log that cannot be opened,
// written, closed or rotated. A log changes nothing but itself.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include "operations.h"

namespace {

using sim::Op;

constexpr std::uint64_t kNever = 1000000000;
constexpr const char* kLog = "/cache/ovu_fota_ab/upi_ab.log";
constexpr const char* kFolder = "/cache/ovu_fota_ab";
constexpr const char* kTempFolder = "/cache/ovu_fota_ab/upgrade_temp";
constexpr std::size_t kRotatedSize = 1048576;
const std::string kNotRenamed = std::string("rename file fail:") + kLog + "!\n";
const std::string kNotOpened = std::string("fopen ") + kLog + " failed \n";

// What goes wrong, and what the log's writer says of it each time.
struct Trouble {
  std::string name;
  std::vector<sim::Fault> faults;
  std::string said;
  std::size_t log_size = 0;  // bytes that are there before
};

sim::Fault always(Op op, int error, const char* where = kLog) {
  return {op, where, 1, error, true};
}

std::vector<Trouble> troubles_of_the_log() {
  std::vector<Trouble> all;
  for (const int error : {ENOSPC, EROFS, EACCES, EMFILE, ENFILE, EDQUOT, ENOENT, EIO, ENOMEM}) {
    const std::string shown = std::strerror(error);
    all.push_back({"fopen: " + shown, {always(Op::fopen, error)}, kNotOpened});
    all.push_back({"no folder: " + shown,
                   {always(Op::access, error, kFolder), always(Op::fopen, error)},
                   kNotOpened});
    all.push_back(
        {"rotation: " + shown, {always(Op::rename, error)}, kNotRenamed, kRotatedSize - 1});
  }
  // An entry waits in the stream's buffer until it is flushed, which is not looked at.
  for (const int error : {ENOSPC, EIO, EDQUOT, EROFS, EFBIG}) {
    all.push_back(
        {"write: " + std::string(std::strerror(error)), {always(Op::stream_write, error)}, {}});
  }
  all.push_back({"rotation", {}, {}, kRotatedSize - 1});
  all.push_back({"close", {always(Op::fclose, EIO)}, {}, kRotatedSize - 1});
  return all;
}

std::vector<Trouble> troubles_of_all_files() {
  std::vector<Trouble> all;
  for (const int error : {ENOSPC, EROFS, EDQUOT, EIO}) {
    all.push_back({"no file and no folder: " + std::string(std::strerror(error)),
                   {always(Op::fopen, error), always(Op::mkdir, error, kTempFolder)},
                   kNotOpened});
  }
  for (const Op op : {Op::store_set, Op::store_save}) {
    all.push_back({sim::op_name(op), {always(op, EIO, "")}, {}});
  }
  return all;
}

const std::vector<Operation> kOperations = {
    {"Upgrade", [] { return vemk_dual_upgrade(nullptr); },
     [](reference::Library& library) { return library.upgrade(); }},
    {"Sync", [] { return vemk_dual_sync_system(); },
     [](reference::Library& library) { return library.sync(); }},
    kVerify,
    kUpgradeType,
    kSetBootToSystem,
    kSetSystemStatus,
    kSetFotaStatus,
    kInitFlags,
};

class WorkFilesSweepTest
    : public FaultSweep,
      public ::testing::WithParamInterface<std::tuple<sim::System, Operation>> {
 protected:
  static const Operation& swept() { return std::get<1>(GetParam()); }

  WorkFilesSweepTest() {
    use_small_device(std::get<0>(GetParam()));
    put_package(support::system_package(2100));
    before_each([this] {
      device().write_file(kLog, std::string(trouble_.log_size, ' '));
      for (const sim::Fault& fault : trouble_.faults) {
        device().faults().add(fault);
      }
    });
    with_fresh_log([this](std::string& message) { remove_trouble(message); });
  }

  void run_with(const Trouble& trouble) {
    SCOPED_TRACE(trouble.name);
    trouble_ = trouble;
    told_ = 0;
    expect_same(swept());
    EXPECT_EQ(told_ > 0, !trouble.said.empty());
  }

  // The writer's own words stand behind the diagnostic that it could not write.
  void remove_trouble(std::string& message) {
    const std::string end = "\n" + trouble_.said;
    const std::string with_end = message + "\n";
    if (!trouble_.said.empty() && with_end.size() >= end.size() &&
        with_end.compare(with_end.size() - end.size(), end.size(), end) == 0) {
      message.erase(with_end.size() - end.size());
      ++told_;
    }
  }

  Trouble trouble_;
  std::size_t told_ = 0;
};

TEST_P(WorkFilesSweepTest, LogTroubleChangesNothingElse) {
  for (const Trouble& trouble : troubles_of_the_log()) {
    run_with(trouble);
  }
}

TEST_P(WorkFilesSweepTest, FilesAndStoreMayRefuse) {
  for (const Trouble& trouble : troubles_of_all_files()) {
    run_with(trouble);
  }
}

// Only the entry is lost that was to be written then.
TEST_P(WorkFilesSweepTest, LosesOneEntryByOneWriteThatFails) {
  trouble_ = {"one write", {{Op::stream_write, kLog, kNever, ENOSPC}}, {}};
  std::size_t entries = 0;
  expect_same(swept(), {}, [&](const LibraryRun& run) {
    entries = run.log.size();
    EXPECT_EQ(support::log_file(device()), run.log);
    EXPECT_EQ(device().count(Op::stream_write), entries);
  });
  for (std::size_t at = 1; at <= entries && !HasFailure(); ++at) {
    SCOPED_TRACE(at);
    trouble_.faults[0].at = at;
    expect_same(swept(), {}, [&](LibraryRun run) {
      run.log.erase(run.log.begin() + static_cast<std::ptrdiff_t>(at) - 1);
      EXPECT_TRUE(support::log_file(device()) == run.log);
    });
  }
}

INSTANTIATE_TEST_SUITE_P(Of, WorkFilesSweepTest,
                         ::testing::Combine(::testing::Values(sim::System::a, sim::System::b),
                                            ::testing::ValuesIn(kOperations)),
                         [](const auto& sweep) {
                           return run_name(std::get<0>(sweep.param), std::get<1>(sweep.param).name);
                         });

}  // namespace
