// SPDX-License-Identifier: Apache-2.0
//
// The table of exit codes in zozale(1). Of its reasons these have tests of their own, which expect
// the code: a followed operation that fails or stands still (watch_test.cpp), a question that is
// not answered with y (boot_test.cpp), output that cannot be printed and no configuration store
// (output_test.cpp), signatures (authenticity_test.cpp), an exchanged package (exchange_test.cpp).
#include "tool_test.h"

namespace tool {
namespace {

enum class Break {
  kNothing,
  kFlash,    // erasing "flags" fails
  kPackage,  // its last byte is another one
  kNoPackage,
  kPartition,    // kernel2 is not in the kernel's table
  kKind,         // oemdata is no raw MTD partition
  kRoom,         // kernel2 has two good blocks
  kRecord,       // neither copy is valid
  kCommandLine,  // names no system
  kTable,        // no table the library would take
};

struct Reason {
  int code;
  Break broken;
  Arguments command;
};

class ExitCodeTest : public ToolTest, public ::testing::WithParamInterface<Reason> {
 protected:
  void break_it(Break broken) {
    switch (broken) {
      case Break::kNothing:
        break;
      case Break::kFlash:
        device().faults().add({sim::Op::memerase, "flags", 1, EIO, true, std::nullopt});
        break;
      case Break::kPackage:
        damage_package();
        break;
      case Break::kNoPackage:
        device().remove_file(support::kPackagePath);
        break;
      case Break::kPartition:
        lose_partition("kernel2");
        break;
      case Break::kKind:
        change_table([](sim::Layout& layout) { layout.oem[0].partition_type = 2; });
        break;
      case Break::kRoom:
        for (std::uint32_t block = 0; block < 6; ++block) {
          device().partition("kernel2").set_bad(block);
        }
        break;
      case Break::kRecord:
        device().partition("flags").wipe();
        break;
      case Break::kCommandLine:
        device().write_file("/proc/cmdline", "quiet\n");
        break;
      case Break::kTable:
        change_table([](sim::Layout& layout) { layout.plat = 1; });
        break;
    }
  }

 private:
  void damage_package() {
    sim::Bytes package = support::system_package(kImageSize).bytes();
    package.back() ^= 1;
    put_package(package);
  }

  void lose_partition(const std::string& name) {
    sim::Layout layout = sim::test_layout();
    for (sim::PartitionLayout& partition : layout.partitions) {
      partition.name = partition.name == name ? "lost" : partition.name;
    }
    device().write_file("/proc/mtd", sim::mtd_text(layout));
  }

  void change_table(const std::function<void(sim::Layout&)>& change) {
    sim::Layout layout = sim::test_layout();
    change(layout);
    device().write_file("/etc_ro/systemPartitionInfo.conf", sim::table_text(layout));
  }
};

TEST_P(ExitCodeTest, IsAsDocumented) {
  put_package(support::system_package(kImageSize));
  break_it(GetParam().broken);

  const Ended run = zozale(GetParam().command);

  EXPECT_EQ(run.status, GetParam().code) << run;
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, ExitCodeTest,
    ::testing::Values(
        Reason{0, Break::kNothing, {"install"}}, Reason{0, Break::kNothing, {"sync"}},
        Reason{0, Break::kNothing, {"switch", "A"}},  // nothing left to do
        Reason{1, Break::kFlash, {"install"}}, Reason{1, Break::kFlash, {"sync"}},
        Reason{1, Break::kFlash, {"mark", "B", "successful"}},
        Reason{1, Break::kFlash, {"init-flags", "--force"}},
        Reason{2, Break::kNothing, {"upgrade"}}, Reason{2, Break::kNothing, {"init-flags"}},
        Reason{3, Break::kPackage, {"verify"}}, Reason{3, Break::kPackage, {"install"}},
        Reason{2, Break::kNothing, {"install", "--time", "signing"}},
        Reason{3, Break::kNothing, {"install", "--plat", "1"}},
        Reason{3, Break::kNothing, {"verify", "--min-version", "2"}},
        Reason{4, Break::kNothing, {"verify", "--trust", "/etc_ro/none.pem"}},
        Reason{3, Break::kNoPackage, {"install"}}, Reason{3, Break::kNoPackage, {"type"}},
        Reason{4, Break::kPartition, {"install"}}, Reason{4, Break::kPartition, {"sync"}},
        Reason{4, Break::kKind, {"sync"}}, Reason{4, Break::kRoom, {"install"}},
        Reason{4, Break::kRoom, {"sync"}}, Reason{4, Break::kRecord, {"status"}},
        Reason{4, Break::kRecord, {"install"}}, Reason{4, Break::kRecord, {"switch", "B"}},
        Reason{4, Break::kCommandLine, {"status"}}, Reason{4, Break::kCommandLine, {"verify"}},
        Reason{4, Break::kTable, {"verify"}}, Reason{4, Break::kTable, {"sync"}},
        Reason{4, Break::kTable, {"doctor"}}));

}  // namespace
}  // namespace tool
