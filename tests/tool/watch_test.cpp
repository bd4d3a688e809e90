// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <thread>

#include "tool_test.h"

namespace tool {
namespace {

class WatchTest : public ToolTest {
 protected:
  void put_status(const std::string& status) {
    device().store().put("fota_ab_upgrade_status", status);
  }
  // Runs watch and gives the store a new state after each of its looks: `next` is called each time
  // the tool has read the store, with the number of reads of the status so far.
  Ended watch_while(const std::function<void(std::uint64_t)>& next, Arguments more = {}) {
    Arguments command = {"watch", "--interval", "0.01"};
    command.insert(command.end(), more.begin(), more.end());
    std::atomic<bool> ended = false;
    std::thread writer([this, &ended, &next] {
      std::uint64_t seen = 0;
      while (!ended) {
        const std::uint64_t reads = device().count(sim::Op::store_get);
        if (reads != seen) {
          seen = reads;
          next(reads);
        }
        std::this_thread::yield();
      }
    });
    Ended run = zozale(command);
    ended = true;
    writer.join();
    return run;
  }
};

// A look reads four keys, and each of them once more to see whether it was written.
constexpr std::uint64_t kReadsOfALook = 8;

TEST_F(WatchTest, EndsAtOnceWhenNothingIsUnderWay) {
  const Ended run = zozale({"watch"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("No operation is under way.")) << run;
  EXPECT_TRUE(run.says("upgrade: none yet")) << run;
  EXPECT_EQ(zozale({"watch", "--json"}).json()["nothing_to_do"], true);
}

TEST_F(WatchTest, FollowsAnUpgradeUntilItSucceeds) {
  put_status("3");
  device().store().put("fota_ab_upgrade_total_size", "4096");
  device().store().put("fota_ab_upgrade_updated_size", "1024");

  const Ended run = watch_while([this](std::uint64_t reads) {
    if (reads >= kReadsOfALook) {
      put_status("4");
    }
  });

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.out, "upgrade: installing, 1.0 KiB of 4.0 KiB, 25 %\nupgrade: installed\n");
}

TEST_F(WatchTest, FailsWhenTheOperationFails) {
  put_status("3");

  const Ended run = watch_while([this](std::uint64_t reads) {
    if (reads >= kReadsOfALook) {
      put_status("5");
    }
  });

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("upgrade: installation failed")) << run;
  EXPECT_TRUE(run.complains("/cache/ovu_fota_ab/upi_ab.log")) << run;
}

// An installation is "verified" for a moment.
TEST_F(WatchTest, DoesNotTakeVerifiedForTheEndOfAnInstallation) {
  put_status("0");

  const Ended run = watch_while([this](std::uint64_t reads) {
    if (reads >= 4 * kReadsOfALook) {
      put_status("4");
    } else if (reads >= 2 * kReadsOfALook) {
      put_status("3");
    } else if (reads >= kReadsOfALook) {
      put_status("1");
    }
  });

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.out.substr(0, 38), "upgrade: verifying\nupgrade: verified\nu") << run;
  EXPECT_TRUE(run.says("upgrade: installed\n")) << run;
}

TEST_F(WatchTest, FollowsASynchronisation) {
  device().store().put("fota_ab_aa_sync_status", "1");

  const Ended run = watch_while([this](std::uint64_t reads) {
    if (reads >= kReadsOfALook) {
      device().store().put("fota_ab_aa_sync_status", "0");
    }
  });

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.out, "synchronisation: synchronising\nsynchronisation: synchronised\n");
}

TEST_F(WatchTest, GivesUpOnAnOperationThatStands) {
  put_status("3");

  const Ended run = zozale({"watch", "--interval", "0.01", "--timeout", "0.05"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("the operation does not go on")) << run;
}

TEST_F(WatchTest, TellsEventsAsJsonLines) {
  put_status("3");

  const Ended run = watch_while(
      [this](std::uint64_t reads) {
        if (reads >= kReadsOfALook) {
          put_status("4");
        }
      },
      {"--json"});

  std::istringstream lines(run.out);
  std::string line;
  std::vector<nlohmann::json> events;
  while (std::getline(lines, line) && line.front() == '{' && line.size() > 1) {
    events.push_back(nlohmann::json::parse(line));
  }
  ASSERT_EQ(events.size(), 3U) << run;
  EXPECT_EQ(events[0]["event"], "progress");
  EXPECT_EQ(events[0]["status"], "installing");
  EXPECT_EQ(events[1]["status"], "installed");
  EXPECT_EQ(events[2]["event"], "end");
  EXPECT_EQ(events[2]["exit"], 0);
}

TEST_F(WatchTest, RefusesAnIntervalOfNothing) {
  EXPECT_EQ(zozale({"watch", "--interval", "0"}).status, 2);
}

TEST_F(WatchTest, WritesNothing) {
  EXPECT_EQ(zozale_untouched({"watch"}).status, 0);
}

}  // namespace
}  // namespace tool
