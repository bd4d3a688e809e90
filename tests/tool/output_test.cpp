// SPDX-License-Identifier: Apache-2.0
//
// What appears where: bar, lines, JSON, the library's own lines; and wrong usage.
#include <algorithm>
#include <sstream>

#include "tool_test.h"

namespace tool {
namespace {

class OutputTest : public ToolTest {
 protected:
  OutputTest() {
    sim::Layout layout = sim::test_layout(512, 4, 40);
    use(layout);
    put_package(support::system_package(60000));
  }

  // What stood in the terminal's line, one state after the other.
  static std::vector<std::string> bars(const Ended& run) {
    std::vector<std::string> bars;
    std::istringstream text(run.out);
    for (std::string bar; std::getline(text, bar, '\r');) {
      if (bar.substr(0, 1) == "[") {
        bars.push_back(bar);
      }
    }
    return bars;
  }

  static int percent(const std::string& bar) {
    const std::size_t end = bar.find(" %");
    return end == std::string::npos ? -1 : std::stoi(bar.substr(end - 3, 3));
  }
};

TEST_F(OutputTest, ATerminalShowsABarThatMovesWithinAPartition) {
  device().partition("rootfs2").set_bad(5);
  device().partition("rootfs2").set_bad(6);

  const Ended run = zozale_on_terminal({"install"});

  EXPECT_EQ(run.status, 0) << run;
  const std::vector<std::string> shown = bars(run);
  const auto writing = std::count_if(shown.begin(), shown.end(), [](const std::string& bar) {
    return bar.find("writing rootfs2, ") != std::string::npos;
  });
  EXPECT_GE(writing, 30) << run;
  EXPECT_TRUE(run.says("2 bad blocks skipped")) << run;
  EXPECT_TRUE(run.says("of 58.5 KiB")) << run;
}

TEST_F(OutputTest, TheBarNeverGoesBackAndIsFullOnlyAtTheEnd) {
  const Ended run = zozale_on_terminal({"install"});

  const std::vector<std::string> shown = bars(run);
  ASSERT_GT(shown.size(), 3U) << run;
  int last = 0;
  for (const std::string& bar : shown) {
    EXPECT_GE(percent(bar), last) << bar;
    last = percent(bar);
  }
  EXPECT_EQ(last, 100);
  EXPECT_LT(percent(shown[shown.size() - 2]), 100);
  EXPECT_NE(shown.back().find("done"), std::string::npos);
}

TEST_F(OutputTest, AFailureNeverShowsAFullBar) {
  // The last check reads the last image back.
  device().faults().add({sim::Op::memerase, "flags", 3, EIO, true, std::nullopt});

  const Ended run = zozale_on_terminal({"install"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_FALSE(run.says("100 %")) << run;
}

TEST_F(OutputTest, WithoutATerminalThereArePlainLines) {
  const Ended run = zozale({"install"});

  EXPECT_EQ(run.out.find('\r'), std::string::npos) << run;
  EXPECT_TRUE(run.says("%  writing kernel2, ")) << run;
  EXPECT_TRUE(run.says("%  checking what was written to oemdata2, ")) << run;
  EXPECT_TRUE(run.says("100 %  done\n")) << run;
  EXPECT_LT(std::count(run.out.begin(), run.out.end(), '\n'), 40) << run;
}

TEST_F(OutputTest, TheLibrarysLinesStayAway) {
  for (const Arguments& command : std::vector<Arguments>{
           {"status"}, {"verify"}, {"install"}, {"sync"}, {"switch", "B"}, {"doctor"}}) {
    const Ended run = zozale(command);
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_FALSE(run.says("fota_upi")) << run;
    EXPECT_FALSE(run.complains("fota_upi")) << run;
  }
}

TEST_F(OutputTest, VerboseShowsThemOnStandardError) {
  const Ended run = zozale({"install", "--verbose"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_FALSE(run.says("fota_upi")) << run;
  EXPECT_TRUE(run.complains("<<<<<<<<<<<begin  Upgrade>>>>>>>>>>>>")) << run;
  EXPECT_TRUE(run.complains("[upi_verify-")) << run;
}

TEST_F(OutputTest, VerboseShowsEveryLineThatTheLogFileHolds) {
  device().remove_file("/cache/ovu_fota_ab/upi_ab.log");

  const Ended run = zozale({"sync", "--verbose"});

  EXPECT_EQ(support::parse_console(run.err), support::log_file(device()));
}

TEST_F(OutputTest, EveryCommandSpeaksJson) {
  const std::vector<Arguments> commands = {{"status"},
                                           {"verify"},
                                           {"type"},
                                           {"install", "--dry-run"},
                                           {"install"},
                                           {"sync"},
                                           {"sync", "--dry-run"},
                                           {"switch", "B"},
                                           {"mark", "B", "successful"},
                                           {"acknowledge"},
                                           {"init-flags", "--force"},
                                           {"watch"},
                                           {"doctor"}};
  for (const Arguments& command : commands) {
    Arguments with_json = command;
    with_json.emplace_back("--json");
    const Ended run = zozale(with_json);
    const nlohmann::json told = run.json();
    EXPECT_EQ(told["schema"], "zozale/1") << run;
    EXPECT_EQ(told["command"], command.front()) << run;
    EXPECT_EQ(told["exit"], run.status) << run;
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(run.err, "");
  }
}

TEST_F(OutputTest, EveryFailureSpeaksJson) {
  device().write_file("/proc/mtd", "");
  const std::vector<Arguments> commands = {
      {"status"},    {"verify"},      {"install", "--dry-run"},    {"install"},
      {"sync"},      {"switch", "B"}, {"mark", "B", "successful"}, {"acknowledge"},
      {"init-flags"}};
  for (const Arguments& command : commands) {
    Arguments with_json = command;
    with_json.emplace_back("--json");
    const Ended run = zozale(with_json);
    EXPECT_EQ(run.status, 4) << run;
    const nlohmann::json error = run.json()["error"];
    for (const char* part : {"what", "expected", "found", "next"}) {
      EXPECT_NE(error[part].get<std::string>(), "") << part << run;
    }
    EXPECT_EQ(run.err, "");
  }
}

TEST_F(OutputTest, NamesThatAreNoTextDoNotBreakJsonOrATerminal) {
  support::PackageFile package = support::system_package();
  package.partitions[0].name = "ker\x1b[2Jnel\xff";
  put_package(package);

  const Ended text = zozale({"install"});
  EXPECT_EQ(text.status, 3);
  EXPECT_EQ(text.err.find('\x1b'), std::string::npos) << text;

  EXPECT_EQ(zozale({"install", "--json"}).json()["exit"], 3);
}

TEST_F(OutputTest, WrongUsageIsRefused) {
  for (const Arguments& command : std::vector<Arguments>{{},
                                                         {"bogus"},
                                                         {"switch"},
                                                         {"switch", "C"},
                                                         {"mark", "A"},
                                                         {"mark", "A", "healthy"},
                                                         {"install", "--no-such-option"},
                                                         {"status", "extra"},
                                                         {"status", "doctor"}}) {
    const Ended run = zozale_untouched(command);
    EXPECT_EQ(run.status, 2) << run;
    EXPECT_NE(run.err, "") << run;
    EXPECT_EQ(run.out, "") << run;
  }
}

TEST_F(OutputTest, HelpAndVersionAreNoFailure) {
  EXPECT_TRUE(zozale({"--help"}).says("Exit codes: 0 done, 1 the operation failed"));
  EXPECT_EQ(zozale({"install", "--help"}).status, 0);
  EXPECT_EQ(zozale({"--version"}).status, 0);
}

// A flash node must never become descriptor 1: the library's lines would go into it.
TEST_F(OutputTest, WorksWithClosedStandardStreams) {
  const Ended run =
      run_on_device({"/bin/sh", "-c", std::string(DEVICE_TOOL) + " install 0<&- 1>&- 2>&-"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(record().status(sim::System::b), sim::kStatusBootable);
  EXPECT_EQ(device().nand().rule_breaks().total(), 0U);
}

TEST_F(OutputTest, GoesOnWhenItsReaderGoesAway) {
  const Ended run = run_on_device({"/bin/sh", "-c", std::string(DEVICE_TOOL) + " install | true"});

  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "4") << run;
}

TEST_F(OutputTest, AFullDiskIsTold) {
  const Ended run = run_on_device(
      {"/bin/sh", "-c", std::string(DEVICE_TOOL) + " status > /dev/full; echo $? >&2"});

  EXPECT_EQ(run.err, "zozale: cannot write to standard output; the command itself succeeded\n1\n");
}

TEST_F(OutputTest, SaysSoWhenThePlatformsStoreIsMissing) {
  // The real process, off the simulated device: nothing provides the store there.
  const Ended run =
      run_on_device({"/bin/sh", "-c", "LD_PRELOAD= " + std::string(DEVICE_TOOL) + " watch"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_TRUE(run.complains("the platform's configuration store is missing")) << run;
  EXPECT_TRUE(run.complains("ZOZALE_PLATFORM_LIBRARIES")) << run;
}

TEST_F(OutputTest, FindsTheStoreThatAPlatformBuiltIn) {
  const Ended run = run_on_device(
      {"/bin/sh", "-c", "LD_PRELOAD= " + std::string(DEVICE_TOOL_WITH_STORE) + " watch"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("upgrade: installed\n")) << run;
}

}  // namespace
}  // namespace tool
