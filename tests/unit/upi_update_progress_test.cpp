// SPDX-License-Identifier: Apache-2.0
//
// How an upgrade reports: the store, the caller's record, the callback.
#include <climits>
#include <string>

#include "upgrade_test.h"
#include "upi_update.h"

namespace {

using support::pattern;
using Messages = std::vector<std::string>;
using Store = std::vector<std::pair<std::string, std::string>>;

const std::string kStatus = "fota_ab_upgrade_status";
const std::string kTotal = "fota_ab_upgrade_total_size";
const std::string kUpdated = "fota_ab_upgrade_updated_size";

// What a callback saw when it was called.
struct Report {
  z_upgrade_status_info_t* address;
  z_upgrade_status_info_t status;
  std::size_t stored;  // values set in the store so far
};

std::vector<Report> g_reports;

void remember(z_upgrade_status_info_t* status) {
  g_reports.push_back({status, *status, sim::store_sets().size()});
}

std::vector<std::vector<int>> reported() {
  std::vector<std::vector<int>> found;
  found.reserve(g_reports.size());
  for (const Report& report : g_reports) {
    found.push_back(
        {report.status.upgrade_status, report.status.total_size, report.status.upgraded_size});
  }
  return found;
}

class ProgressTest : public UpgradeTest {
 protected:
  ProgressTest() {
    g_reports.clear();
    g_flush_status = nullptr;
  }
  ~ProgressTest() override { g_flush_status = nullptr; }

  z_upgrade_status_info_t status_{-7, -8, -9};
  z_upgrade_flush_status_t sink_{&status_, reinterpret_cast<void (*)()>(remember)};

  static LibraryRun flush(int status, int total, int updated) {
    return run_library([=] {
      upi_flush_upgrade_status(status, total, updated);
      return 0;
    });
  }
  std::vector<int> record() const {
    return {status_.upgrade_status, status_.total_size, status_.upgraded_size};
  }
};

// --- One report. ---

TEST_F(ProgressTest, WithoutASinkGoesToTheStoreOnly) {
  const LibraryRun run = flush(UPGRADE_STATUS_UPDATING, 1000, 10);

  EXPECT_EQ(run.store, (Store{{kStatus, "3"}, {kTotal, "1000"}, {kUpdated, "10"}}));
  EXPECT_EQ(run.saves, 3U);
  EXPECT_EQ(run.log, (std::vector<support::LogLine>{
                         {"upi_flush_upgrade_status", "upi_flush_upgrade_status func begin!"},
                         {"upi_flush_upgrade_status",
                          "Update status: [3](UPGRADE_STATUS_UPDATING) total_size:1000, updated "
                          "size:10!"},
                         {"upi_flush_upgrade_status", "upi_flush_upgrade_status func end!"}}));
  EXPECT_TRUE(g_reports.empty());
}

TEST_F(ProgressTest, EverySetIsSavedAtOnce) {
  const LibraryRun run = flush(UPGRADE_STATUS_UPDATING, 1, 2);
  std::vector<sim::Op> store_calls;
  for (const sim::Call& call : run.calls) {
    if (call.op == sim::Op::store_set || call.op == sim::Op::store_save) {
      store_calls.push_back(call.op);
    }
  }
  EXPECT_EQ(store_calls,
            (std::vector<sim::Op>{sim::Op::store_set, sim::Op::store_save, sim::Op::store_set,
                                  sim::Op::store_save, sim::Op::store_set, sim::Op::store_save}));
  EXPECT_EQ(device().store().get(kUpdated), "2");
}

TEST_F(ProgressTest, WithoutARecordMakesNoCallback) {
  sink_.status = nullptr;
  g_flush_status = &sink_;
  const LibraryRun run = flush(UPGRADE_STATUS_UPDATING, 1000, 10);

  EXPECT_EQ(run.store.size(), 3U);
  EXPECT_TRUE(g_reports.empty());
}

TEST_F(ProgressTest, WithoutACallbackFillsTheRecord) {
  sink_.status_cb = nullptr;
  g_flush_status = &sink_;
  flush(UPGRADE_STATUS_UPDATING, 1000, 10);

  EXPECT_EQ(record(), (std::vector<int>{3, 1000, 10}));
  EXPECT_TRUE(g_reports.empty());
}

TEST_F(ProgressTest, TheCallbackSeesStoreAndRecordFilled) {
  g_flush_status = &sink_;
  const std::size_t stored = sim::store_sets().size();
  flush(UPGRADE_STATUS_UPDATE_SUCCESS, 5, 4);

  ASSERT_EQ(g_reports.size(), 1U);
  EXPECT_EQ(g_reports[0].address, &status_);
  EXPECT_EQ(reported(), (std::vector<std::vector<int>>{{4, 5, 4}}));
  EXPECT_EQ(g_reports[0].stored, stored + 3);
}

TEST_F(ProgressTest, ASizeOfMinusOneStaysAsItWas) {
  g_flush_status = &sink_;
  EXPECT_EQ(flush(UPGRADE_STATUS_UPDATING, -1, -1).store, (Store{{kStatus, "3"}}));
  EXPECT_EQ(record(), (std::vector<int>{3, -8, -9}));
  EXPECT_EQ(flush(UPGRADE_STATUS_UPDATING, 50, -1).store, (Store{{kStatus, "3"}, {kTotal, "50"}}));
  EXPECT_EQ(record(), (std::vector<int>{3, 50, -9}));
  EXPECT_EQ(flush(UPGRADE_STATUS_UPDATING, -1, 6).store, (Store{{kStatus, "3"}, {kUpdated, "6"}}));
  EXPECT_EQ(record(), (std::vector<int>{3, 50, 6}));
  EXPECT_EQ(g_reports.size(), 3U);
}

TEST_F(ProgressTest, OtherNegativeSizesAreSizes) {
  g_flush_status = &sink_;
  const LibraryRun run = flush(UPGRADE_STATUS_UPDATING, -2, INT_MIN);
  EXPECT_EQ(run.store, (Store{{kStatus, "3"}, {kTotal, "-2"}, {kUpdated, "-2147483648"}}));
  EXPECT_EQ(record(), (std::vector<int>{3, -2, INT_MIN}));
}

TEST_F(ProgressTest, AnUnknownStatusIsStoredAsItIs) {
  g_flush_status = &sink_;
  for (const int status : {-1, 8, 100, INT_MAX, INT_MIN}) {
    const std::string number = std::to_string(status);
    const LibraryRun run = flush(status, -1, -1);
    EXPECT_TRUE(run.said(
        "upi_flush_upgrade_status",
        "Update status: [" + number + "](UPGRADE_STATUS_UNKNOWN) total_size:-1, updated size:-1!"));
    EXPECT_EQ(run.store, (Store{{kStatus, number}}));
    EXPECT_EQ(status_.upgrade_status, status);
  }
}

TEST(StatusNames, AreThoseOfTheEnumeration) {
  EXPECT_STREQ(update_status_to_string(0), "UPGRADE_STATUS_VERIFING");
  EXPECT_STREQ(update_status_to_string(1), "UPGRADE_STATUS_VERIFY_SUCCESS");
  EXPECT_STREQ(update_status_to_string(2), "UPGRADE_STATUS_VERIFY_FAIL");
  EXPECT_STREQ(update_status_to_string(3), "UPGRADE_STATUS_UPDATING");
  EXPECT_STREQ(update_status_to_string(4), "UPGRADE_STATUS_UPDATE_SUCCESS");
  EXPECT_STREQ(update_status_to_string(5), "UPGRADE_STATUS_UPDATE_FAIL");
  EXPECT_STREQ(update_status_to_string(6), "UPGRADE_STATUS_NO_NEED_UPDATE");
  EXPECT_STREQ(update_status_to_string(7), "UPGRADE_STATUS_NEED_UPDATE");
  for (const int other : {-1, 8, INT_MIN, INT_MAX}) {
    EXPECT_STREQ(update_status_to_string(other), "UPGRADE_STATUS_UNKNOWN");
  }
}

// --- The reports of a whole upgrade. ---

TEST_F(ProgressTest, OfAnUpgradeComesOncePerPartition) {
  support::PackageFile package = support::system_package(100);
  package.partitions[1].data = pattern(5000);
  package.partitions[2].data = pattern(7);
  put_package(package);
  target_of("rootfs").flash(package.partitions[1].data);

  const LibraryRun run = upgrade(&sink_);

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(reported(), (std::vector<std::vector<int>>{{3, 0, 0},
                                                       {3, 5107, 0},
                                                       {3, 5107, 100},
                                                       {3, 5107, 5100},
                                                       {3, 5107, 5107},
                                                       {4, 5107, 5107}}));
  EXPECT_EQ(run.store, (Store{{kStatus, "3"},
                              {kTotal, "0"},
                              {kUpdated, "0"},
                              {kStatus, "3"},
                              {kTotal, "5107"},
                              {kStatus, "3"},
                              {kUpdated, "100"},
                              {kStatus, "3"},
                              {kUpdated, "5100"},
                              {kStatus, "3"},
                              {kUpdated, "5107"},
                              {kStatus, "4"}}));
  EXPECT_EQ(run.saves, run.store.size());
}

TEST_F(ProgressTest, OfAFailedUpgradeStopsWhereItFailed) {
  put_package(support::system_package(100));
  device().faults().add({sim::Op::write, target_name("rootfs")});

  const LibraryRun run = upgrade(&sink_);

  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(reported(),
            (std::vector<std::vector<int>>{{3, 0, 0}, {3, 300, 0}, {3, 300, 100}, {5, 300, 100}}));
  EXPECT_EQ(run.store.back(), (std::pair<std::string, std::string>{kStatus, "5"}));
  EXPECT_EQ(device().store().get(kUpdated), "100");
}

TEST_F(ProgressTest, OfAFailedPreparationIsTheBeginningAndTheEnd) {
  EXPECT_EQ(upgrade(&sink_).result, 0);
  EXPECT_EQ(reported(), (std::vector<std::vector<int>>{{3, 0, 0}, {5, 0, 0}}));
}

TEST_F(ProgressTest, OfAnEmptyPackageCountsNothing) {
  put_package(platform_package({}));
  EXPECT_EQ(upgrade(&sink_).result, 0);
  EXPECT_EQ(reported(), (std::vector<std::vector<int>>{{3, 0, 0}, {3, 0, 0}, {4, 0, 0}}));
}

TEST_F(ProgressTest, TheSinkIsKeptUntilTheNextUpgrade) {
  EXPECT_EQ(g_flush_status, nullptr);
  upgrade(&sink_);
  EXPECT_EQ(g_flush_status, &sink_);
  z_upgrade_flush_status_t other{nullptr, nullptr};
  upgrade(&other);
  EXPECT_EQ(g_flush_status, &other);
  upgrade(nullptr);
  EXPECT_EQ(g_flush_status, nullptr);
}

TEST_F(ProgressTest, ANullSinkInstallsJustTheSame) {
  const support::PackageFile package = support::system_package(4000);
  put_package(package);
  g_flush_status = &sink_;

  EXPECT_EQ(upgrade(nullptr).result, 0);
  EXPECT_TRUE(g_reports.empty());
  EXPECT_EQ(record(), (std::vector<int>{-7, -8, -9}));
  expect_image(target_of("oemdata"), package.partitions[2].data);
}

// The sum of the lengths wraps as 32 bits do, and is told as a signed number.
TEST_F(ProgressTest, TheTotalIsSignedAndOf32Bits) {
  support::PackageEntry huge{"kernel", {}};
  huge.len = INT_MAX;
  support::PackageEntry more{"rootfs", {}};
  more.len = 2;
  put_package(platform_package({huge, more}));

  const LibraryRun run = upgrade(&sink_);

  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(status_.total_size, INT_MIN + 1);
  EXPECT_TRUE(run.said("upi_flush_upgrade_status",
                       "Update status: [3](UPGRADE_STATUS_UPDATING) total_size:-2147483647, "
                       "updated size:-1!"));
}

}  // namespace
