// SPDX-License-Identifier: Apache-2.0
//
// The list of device checks on the simulated device, against the answers that Linux 6.1 gave with
// its NAND simulator of the same layout and defects.
#include "mtd_checks.h"

#include <fstream>
#include <sstream>

#include "tests/support/device_test.h"

namespace {

class MtdChecksTest : public support::DeviceTest {};

// 16 blocks of 128 KiB: the geometry of the kernel's NAND simulator.
sim::Layout layout() {
  sim::Layout layout = sim::test_layout(2048, 64, 16);
  layout.partitions[1].bad = {5, 6};
  return layout;
}

std::string answers(const mtd_checks::Device& device) {
  char* text = nullptr;
  std::size_t length = 0;
  FILE* out = open_memstream(&text, &length);
  EXPECT_TRUE(mtd_checks::run(device, out));
  fclose(out);
  std::string answer(text, length);
  free(text);
  return answer;
}

TEST_F(MtdChecksTest, AnswersAreTheKernels) {
  allow_rule_breaks();
  use(layout());
  partition("kernel").set_erase_defect(9, sim::EraseDefect::worn);
  partition("kernel").set_page_defects(10, 3, sim::kPageFailsProgram);
  partition("kernel").set_page_defects(11, 2, sim::kPageUnreadable);
  mtd_checks::Device checked;
  checked.node = "/dev/mtd1";
  checked.worn_block = 9;
  checked.failing_page = mtd_checks::PageAt{10, 3};
  checked.unreadable_page = mtd_checks::PageAt{11, 2};
  std::ifstream in(MTD_ANSWERS);
  std::ostringstream expected;
  expected << in.rdbuf();
  EXPECT_EQ(answers(checked), expected.str());
}

TEST_F(MtdChecksTest, NeedsADevice) {
  mtd_checks::Device checked;
  checked.node = "/dev/mtd77";
  FILE* out = tmpfile();
  EXPECT_FALSE(mtd_checks::run(checked, out));
  fclose(out);
}

}  // namespace
