// SPDX-License-Identifier: Apache-2.0
#include "sim/layout.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/device_test.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

// What reading a file of this content says when it fails; empty when it is read.
template <typename Read>
std::string complaint(const std::string& content, Read read) {
  const support::TempFolder folder;
  const auto file = folder.path() / "file.toml";
  std::ofstream(file) << content;
  try {
    read(file);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

std::string layout_complaint(const std::string& content) {
  return complaint(content, [](const auto& file) { sim::read_layout(file); });
}

std::string faults_complaint(const std::string& content) {
  return complaint(content, [](const auto& file) { sim::read_faults(file); });
}

sim::Layout shipped(const char* name) {
  return sim::read_layout(std::filesystem::path(LAYOUTS) / name);
}

TEST(Layout, DemoIsRead) {
  const sim::Layout layout = shipped("demo.toml");
  ASSERT_EQ(layout.partitions.size(), 7U);
  EXPECT_EQ(layout.partitions[0].name, "flags");
  EXPECT_EQ(layout.partitions[0].bad, (std::vector<std::uint32_t>{0, 3}));
  EXPECT_EQ(layout.geometry.block_size(), 131072U);
  EXPECT_EQ(layout.platform.size(), 2U);
  EXPECT_EQ(layout.oem.size(), 1U);
}

TEST(Layout, SmallIsRead) {
  EXPECT_EQ(shipped("small.toml").geometry.block_size(), 2048U);
}

TEST(Layout, TextsAreTheKernelsAndThePlatforms) {
  const sim::Layout layout = shipped("demo.toml");
  EXPECT_THAT(sim::mtd_text(layout),
              HasSubstr("dev:    size   erasesize  name\nmtd0: 00140000 00020000 \"flags\"\n"
                        "mtd1: 00800000 00020000 \"kernel\"\n"));
  EXPECT_EQ(sim::cmdline_text(layout, sim::System::b),
            "console=ttyS0,115200 system=system_b root=/dev/mtdblock3 rootwait\n");
  EXPECT_EQ(sim::table_text(layout),
            "[Head]\nmagic=SUPI\nplat=0\nplat_partition_num=2\noem_partition_num=1\n"
            "[Platform_Partition_Info]\nname=kernel\nsystem_type=0\npartition_type=0\n"
            "name=rootfs\nsystem_type=0\npartition_type=0\n"
            "[Oem_Partition_Info]\nname=oemdata\nsystem_type=0\npartition_type=0\n");
}

TEST(Layout, EntriesMayBeTables) {
  const support::TempFolder folder;
  const auto file = folder.path() / "file.toml";
  std::ofstream(file) << "[[partition]]\nname = \"flags\"\nblocks = 2\n"
                         "[table]\nplatform = [{name = \"nv\", partition_type = 2}]\n";
  const sim::Layout layout = sim::read_layout(file);
  ASSERT_EQ(layout.platform.size(), 1U);
  EXPECT_EQ(layout.platform[0].name, "nv");
  EXPECT_EQ(layout.platform[0].partition_type, 2);
}

TEST(Layout, MistakesAreNamed) {
  const std::string one = "[[partition]]\nname = \"a\"\nblocks = 4\n";
  EXPECT_EQ(layout_complaint(one), "");
  EXPECT_THAT(layout_complaint(""), HasSubstr("partition: found 0 of them, expected 1 to 64"));
  EXPECT_THAT(layout_complaint(one + "bad = [4]\n"),
              AllOf(HasSubstr("file.toml:4: partition[0].bad: found 4"), HasSubstr("0 to 3")));
  EXPECT_THAT(layout_complaint(one + "[geometry]\npage_size = 1000\n"),
              HasSubstr("geometry.page_size: found 1000, expected a power of two"));
  EXPECT_THAT(layout_complaint(one + "[geometry]\npages_per_block = 0\n"),
              HasSubstr("geometry.pages_per_block: found 0"));
  EXPECT_THAT(layout_complaint("[[partition]]\nname = 5\nblocks = 4\n"),
              HasSubstr("partition[0].name: found 5, expected a text in quotes"));
  EXPECT_THAT(layout_complaint("[[partition]]\nname = \"a\"\n"),
              HasSubstr("partition[0].blocks: found nothing"));
  EXPECT_THAT(layout_complaint("running = \"C\"\n" + one),
              HasSubstr("running: found 'C', expected \"A\" or \"B\""));
  EXPECT_THAT(layout_complaint("speed = 3\n" + one), HasSubstr("speed: no such key"));
  EXPECT_THAT(layout_complaint("partition = 3\n"),
              HasSubstr("partition: found 3, expected a list"));
  EXPECT_THAT(layout_complaint(one + "[table]\nplatform = [3]\n"),
              HasSubstr("table.platform: found [ 3 ]"));
  EXPECT_THAT(layout_complaint("nonsense ="), HasSubstr("file.toml:1: "));
  EXPECT_THAT(layout_complaint("[[partition]]\nname = \"a\"\nblocks = 40000\n"),
              HasSubstr("less than 4 GiB"));
}

TEST(Layout, MissingFileIsNamed) {
  try {
    sim::read_layout("/no/such.toml");
    FAIL() << "it was read";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "/no/such.toml: no such file");
  }
}

TEST(FaultsFile, IsRead) {
  const support::TempFolder folder;
  const auto file = folder.path() / "faults.toml";
  std::ofstream(file) << R"(
[[fault]]
operation = "MEMERASE"
where = "kernel2"
at = 3
errno = "ENOMEM"
forever = true

[[fault]]
operation = "read"
bytes = 100

[power_cut]
at = 17
kind = "torn"
byte = 9
page = 2

[[block]]
partition = "kernel"
block = 5
defect = "worn"

[[page]]
partition = "kernel"
block = 1
page = 2
defect = "unstable"

[[page]]
partition = "kernel"
block = 1
page = 3
defect = "misread"
)";
  const sim::FaultPlan plan = sim::read_faults(file);
  ASSERT_EQ(plan.faults.size(), 2U);
  EXPECT_EQ(plan.faults[0].op, sim::Op::memerase);
  EXPECT_EQ(plan.faults[0].where, "kernel2");
  EXPECT_EQ(plan.faults[0].at, 3U);
  EXPECT_EQ(plan.faults[0].error, ENOMEM);
  EXPECT_TRUE(plan.faults[0].forever);
  EXPECT_EQ(plan.faults[1].bytes, 100U);
  ASSERT_TRUE(plan.power_cut);
  EXPECT_EQ(plan.power_cut->at, 17U);
  EXPECT_EQ(plan.power_cut->kind, sim::CutKind::torn);
  EXPECT_EQ(plan.power_cut->byte, 9U);
  EXPECT_EQ(plan.power_cut->page, 2U);
  EXPECT_EQ(plan.blocks.at(0).defect, "worn");
  EXPECT_EQ(plan.pages.at(0).page, 2U);
  EXPECT_EQ(plan.pages.at(1).defect, "misread");
}

TEST(FaultsFile, MistakesAreNamed) {
  EXPECT_THAT(faults_complaint("[[fault]]\noperation = \"explode\"\n"),
              AllOf(HasSubstr("fault[0].operation: found 'explode'"), HasSubstr("MEMERASE64")));
  EXPECT_THAT(faults_complaint("[[fault]]\noperation = \"read\"\nerrno = \"EODD\"\n"),
              HasSubstr("fault[0].errno: found 'EODD'"));
  EXPECT_THAT(faults_complaint("[[fault]]\noperation = \"read\"\nat = 0\n"),
              HasSubstr("fault[0].at: found 0"));
  EXPECT_THAT(faults_complaint("[power_cut]\nat = 1\nkind = \"slow\"\n"),
              HasSubstr("power_cut.kind: found 'slow'"));
  EXPECT_THAT(faults_complaint("[[block]]\npartition = \"k\"\nblock = 1\ndefect = \"old\"\n"),
              HasSubstr("block[0].defect: found 'old', expected one of: bad, worn"));
  EXPECT_THAT(faults_complaint("fault = 1\n"), HasSubstr("fault: found 1, expected a list"));
}

TEST(SimulatorPage, NamesEveryOperation) {
  std::ifstream in(SIMULATOR_PAGE);
  std::ostringstream page;
  page << in.rdbuf();
  for (std::size_t i = 0; i < sim::kOpCount; ++i) {
    const std::string name = sim::op_name(static_cast<sim::Op>(i));
    EXPECT_THAT(page.str(), HasSubstr("`" + name + "`"));
  }
}

}  // namespace
