// SPDX-License-Identifier: Apache-2.0
//
// zozale-sim from outside, and programs that know nothing of it.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/support/device_test.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

struct Finished {
  int status = -1;
  std::string output;  // of both streams
};

Finished run_shell(const std::string& command) {
  Finished finished;
  FILE* pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
  std::array<char, 4096> part{};
  while (const std::size_t count = fread(part.data(), 1, part.size(), pipe)) {
    finished.output.append(part.data(), count);
  }
  const int status = pclose(pipe);
  finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return finished;
}

class ToolTest : public ::testing::Test {
 protected:
  ToolTest() { make(std::string(LAYOUTS) + "/small.toml"); }

  void make(const std::string& layout) {
    std::filesystem::remove_all(device);
    const Finished made = tool("create", "--layout " + layout);
    EXPECT_EQ(made.status, 0) << made.output;
  }
  Finished tool(const std::string& command, const std::string& arguments = {}) const {
    return run_shell(std::string(SIM_TOOL) + " " + command + " " + device + " " + arguments);
  }
  Finished run(const std::string& command) const { return tool("run", "-- " + command); }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(device + "/" + name) << text;
  }
  nlohmann::json shown() const { return nlohmann::json::parse(tool("show", "--json").output); }

  support::TempFolder folder;
  std::string device = folder.path() / "device";
};

constexpr const char* kGuestOutput =
    "dev:    size   erasesize  name\n"
    "mtd0: 00005000 00000800 \"flags\"\n"
    "mtd1: 00008000 00000800 \"kernel\"\n"
    "mtd2: 00008000 00000800 \"kernel2\"\n"
    "mtd3: 00010000 00000800 \"rootfs\"\n"
    "mtd4: 00010000 00000800 \"rootfs2\"\n"
    "mtd5: 00004000 00000800 \"oemdata\"\n"
    "mtd6: 00004000 00000800 \"oemdata2\"\n"
    "erase protected -1 Read-only file system\n"
    "lift 0\n"
    "erase 0\n"
    "write 512\n"
    "seek 0\n"
    "read 512\n"
    "bytes 5a 5a\n"
    "bad 0\n"
    "sync -1 Invalid argument\n"
    "close 0\n"
    "mkdir 0\n"
    "stat 0\n"
    "size 5\n"
    "rename 0\n"
    "gone -1 No such file or directory\n"
    "set 0\n"
    "save 0\n";

class AnyGuest : public ToolTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(AnyGuest, SeesTheDevice) {
  const Finished guest = run(std::string(GetParam()) + " 3");
  EXPECT_EQ(guest.output, kGuestOutput);
  EXPECT_EQ(guest.status, 3);
  const auto after = shown();
  EXPECT_EQ(after["store"]["guest"], "1");
  EXPECT_EQ(after["operations"]["page-program"], 1);
  EXPECT_EQ(after["partitions"][1]["erases"][0], 1);
}

INSTANTIATE_TEST_SUITE_P(Builds, AnyGuest, ::testing::Values(PLAIN_GUEST, FORTIFIED_GUEST));

TEST_F(ToolTest, ServesConstructors) {
  EXPECT_EQ(run(EARLY_GUEST).output, "console=ttyS0,115200 system=system_a rootwait\n");
}

TEST_F(ToolTest, RunsProgramsOfTheSystem) {
  EXPECT_EQ(run("cat /proc/cmdline").output, "console=ttyS0,115200 system=system_a rootwait\n");
  EXPECT_EQ(run("sh -c 'echo hi > /cache/hi && cat /cache/hi'").output, "hi\n");
  EXPECT_EQ(run("sh -c 'cd /cache && ls'").output, "hi\n");
  EXPECT_EQ(run("dd if=/dev/mtd1 of=/cache/dump bs=4096 count=1 status=none").output, "");
  EXPECT_EQ(std::filesystem::file_size(device + "/root/cache/dump"), 4096U);
}

TEST_F(ToolTest, PassesOnHowAProgramEnds) {
  EXPECT_EQ(run("false").status, 1);
  EXPECT_EQ(run("sh -c 'exit 42'").status, 42);
  EXPECT_EQ(run("sh -c 'kill -9 $$'").status, 128 + 9);
  const Finished missing = run("no-such-program");
  EXPECT_EQ(missing.status, 127);
  EXPECT_THAT(missing.output, HasSubstr("no-such-program: No such file or directory"));
  EXPECT_EQ(run("/etc/passwd").status, 126);
}

TEST_F(ToolTest, PassesOnStandardInput) {
  EXPECT_EQ(run_shell("echo typed | " SIM_TOOL " run " + device + " -- cat").output, "typed\n");
}

TEST_F(ToolTest, TracesCalls) {
  const std::string trace = folder.path() / "trace";
  EXPECT_EQ(tool("run", "--trace " + trace + " -- cat /dev/mtd5").status, 0);
  std::ostringstream text;
  text << std::ifstream(trace).rdbuf();
  EXPECT_THAT(text.str(), AllOf(HasSubstr("open /dev/mtd5 (oemdata) flags=0x0 = "),
                                HasSubstr("read /dev/mtd5 (oemdata) offset=0 length=")));
}

TEST_F(ToolTest, PowerCutEndsTheProgram) {
  write("faults.toml", "[power_cut]\nat = 2\nkind = \"before\"\n");
  const Finished cut = run(PLAIN_GUEST);
  EXPECT_EQ(cut.status, 76);
  EXPECT_THAT(cut.output, HasSubstr("the power went; start the device again: zozale-sim reboot"));
  const Finished off = run("true");
  EXPECT_EQ(off.status, 125);
  EXPECT_THAT(off.output, HasSubstr("the device is off after a power cut"));
  EXPECT_EQ(tool("reboot").status, 0);
  EXPECT_EQ(run(std::string(PLAIN_GUEST) + " 0").status, 0) << "a cut does not strike twice";
}

TEST_F(ToolTest, ChangedFaultsStrikeAnew) {
  write("faults.toml", "[[fault]]\noperation = \"access\"\n");
  EXPECT_EQ(run("test -r /cache").status, 1);
  EXPECT_EQ(run("test -r /cache").status, 0);
  write("faults.toml", "[[fault]]\noperation = \"access\"\nat = 1\n");
  EXPECT_EQ(run("test -r /cache").status, 1);
  write("faults.toml", "[[fault]]\noperation = \"access\"\nforever = true\n");
  EXPECT_EQ(run("test -r /cache").status, 1);
  std::filesystem::remove(device + "/faults.toml");
  EXPECT_EQ(run("test -r /cache").status, 0);
}

TEST_F(ToolTest, PagesBeyondCorrectionReadWrong) {
  const auto checksum = [this] { return run("cksum /dev/mtd5").output; };
  const std::string page = "[[page]]\npartition = \"oemdata\"\nblock = 0\npage = 1\ndefect = ";
  const std::string right = checksum();
  write("faults.toml", page + "\"unreadable\"\n");
  const std::string unreadable = checksum();
  EXPECT_NE(unreadable, right);
  EXPECT_NE(checksum(), unreadable);
  write("faults.toml", page + "\"misread\"\n");
  const std::string misread = checksum();
  EXPECT_NE(misread, right);
  EXPECT_EQ(checksum(), misread);
}

TEST_F(ToolTest, WrongFaultsAreNamed) {
  write("faults.toml", "[[block]]\npartition = \"attic\"\nblock = 0\ndefect = \"bad\"\n");
  const Finished refused = run("true");
  EXPECT_EQ(refused.status, 125);
  EXPECT_THAT(refused.output, HasSubstr("attic"));
}

TEST_F(ToolTest, ProgramGoesOnAfterAskingForAReboot) {
  const Finished asked = run(std::string(PLAIN_GUEST) + " reboot");
  EXPECT_EQ(asked.status, 5);
  EXPECT_THAT(asked.output, AllOf(HasSubstr("reboot 0\n"), HasSubstr("asked for a reboot")));
  EXPECT_EQ(run("true").status, 125);
  EXPECT_EQ(tool("reboot").status, 0);
  EXPECT_EQ(run("true").status, 0);
}

TEST_F(ToolTest, ProgramThatLingersIsEnded) {
  const Finished asked = run(std::string(PLAIN_GUEST) + " linger");
  EXPECT_EQ(asked.status, 0);
  EXPECT_THAT(asked.output, HasSubstr("reboot 0\n"));
}

TEST_F(ToolTest, CreateNamesItsTrouble) {
  const Finished again = tool("create", "--layout " LAYOUTS "/small.toml");
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.output, HasSubstr("exists; a new device needs a folder of its own"));
  EXPECT_EQ(tool("create", "--layout /no/such.toml").status, 1);
  EXPECT_EQ(tool("create").status, 2);
}

TEST_F(ToolTest, UsageIsChecked) {
  EXPECT_EQ(run_shell(SIM_TOOL).status, 2);
  EXPECT_EQ(run_shell(SIM_TOOL " frobnicate").status, 2);
  EXPECT_EQ(run_shell(SIM_TOOL " --help").status, 0);
  EXPECT_THAT(run_shell(SIM_TOOL " --version").output, HasSubstr("."));
  EXPECT_EQ(tool("run").status, 2);
  EXPECT_EQ(tool("reboot", "--does-not-come-up C").status, 2);
  const Finished nowhere = run_shell(SIM_TOOL " show /nowhere");
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_THAT(nowhere.output, HasSubstr("/nowhere: not a device (no state.bin)"));
}

TEST_F(ToolTest, ShowsTheDevice) {
  make(std::string(LAYOUTS) + "/demo.toml");
  const Finished text = tool("show");
  EXPECT_EQ(text.status, 0);
  EXPECT_THAT(text.output, AllOf(HasSubstr("mtd0  flags            10      8"), HasSubstr("0 3\n"),
                                 HasSubstr("block 1: not valid"), HasSubstr("none was broken")));
  const auto json = shown();
  EXPECT_EQ(json["schema"], "zozale-sim.show");
  EXPECT_EQ(json["version"], 1);
  EXPECT_EQ(json["running"], "A");
  EXPECT_EQ(json["partitions"][0]["bad_blocks"], nlohmann::json::array({0, 3}));
  EXPECT_EQ(json["flags"]["main"]["block"], 1);
  EXPECT_EQ(json["flags"]["main"]["valid"], false);
}

TEST_F(ToolTest, ShowsTheRecord) {
  {
    sim::Device opened = sim::Device::open(device);
    sim::BootRecord record = sim::factory_record();
    record.set_status(sim::System::b, sim::kStatusUnbootable);
    record.set_boot_to(sim::System::b);
    sim::write_records(opened, record);
  }
  const auto json = shown();
  EXPECT_EQ(json["flags"]["main"]["boot_to"], "B");
  EXPECT_EQ(json["flags"]["backup"]["B"]["status"], "unbootable");
  EXPECT_EQ(json["flags"]["next_start"], "A");
  EXPECT_THAT(tool("show").output,
              AllOf(HasSubstr("boot to B, fota status 0; A bootable, 0 attempts; B unbootable"),
                    HasSubstr("Next start: system A: the boot target must not be booted")));
}

TEST_F(ToolTest, RebootTellsWhatItDoes) {
  EXPECT_THAT(tool("reboot").output, HasSubstr("The device runs system A."));
  {
    sim::Device opened = sim::Device::open(device);
    sim::BootRecord record = sim::factory_record();
    record.set_boot_to(sim::System::b);
    sim::write_records(opened, record);
  }
  const Finished back = tool("reboot", "--does-not-come-up B");
  EXPECT_EQ(back.status, 0);
  EXPECT_THAT(back.output, AllOf(HasSubstr("Start 3, system B: it is bootable"),
                                 HasSubstr("Start 4, system A: the boot target's attempts"),
                                 HasSubstr("The device runs system A.")));
  const Finished dead = tool("reboot", "--does-not-come-up A --does-not-come-up B --limit 4");
  EXPECT_EQ(dead.status, 3);
  EXPECT_THAT(dead.output, HasSubstr("did not come up in 4 starts"));
}

TEST_F(ToolTest, PowerMayGoWhileTheBootLoaderWrites) {
  {
    sim::Device opened = sim::Device::open(device);
    sim::write_records(opened, sim::factory_record());
    opened.faults().set_power_cut({3, sim::CutKind::torn, {}, {}});
  }
  const Finished cut = tool("reboot");
  EXPECT_EQ(cut.status, 76);
  EXPECT_THAT(cut.output, HasSubstr("the power went while the boot loader wrote"));
  EXPECT_EQ(tool("reboot").status, 0);
}

TEST_F(ToolTest, DumpsPastBadBlocks) {
  write("image", std::string(3000, 'x'));
  {
    sim::Device opened = sim::Device::open(device);
    opened.partition("oemdata").set_bad(0);
  }
  EXPECT_EQ(tool("flash", "oemdata " + device + "/image").status, 0);
  EXPECT_EQ(tool("dump", "oemdata " + device + "/good").status, 0);
  EXPECT_EQ(tool("dump", "oemdata --raw " + device + "/raw").status, 0);
  std::ostringstream good;
  good << std::ifstream(device + "/good").rdbuf();
  EXPECT_EQ(good.str(), std::string(3000, 'x') + std::string(7 * 2048 - 3000, '\xFF'));
  EXPECT_EQ(std::filesystem::file_size(device + "/raw"), 8U * 2048);
  const Finished unknown = tool("dump", "attic " + device + "/x");
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.output, HasSubstr("no partition \"attic\"; the device has: flags kernel"));
  write("image", std::string(20000, 'x'));
  EXPECT_THAT(tool("flash", "oemdata " + device + "/image").output,
              HasSubstr("has good blocks for 14336 bytes, not for 20000"));
}

}  // namespace
