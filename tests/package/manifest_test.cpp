// SPDX-License-Identifier: Apache-2.0
//
// Manifests, good ones and every kind that is refused.
#include "manifest.h"

#include "common/error.h"
#include "support.h"

namespace package_test {
namespace {

using zozale::PackagePlan;

class Manifest : public FolderTest {
 protected:
  PackagePlan read(const std::string& text) const {
    return zozale::read_manifest(write("in/manifest.toml", text));
  }
  // The message about the manifest, its path cut out, with the exit code in front.
  std::string message_of(const std::string& text) const {
    const std::string message = error_of([&] { read(text); });
    const std::string manifest = "2 \"" + path("in/manifest.toml") + "\"";
    EXPECT_THAT(message, StartsWith(manifest));
    return "2" + message.substr(std::min(message.size(), manifest.size()));
  }
};

TEST_F(Manifest, GivesAWholePlan) {
  const PackagePlan plan = read(R"(
type = "oem"
package_version = 7
package_type = -2147483648
plat = 2147483647
version_src = "1.0"
version_dst = "ü"
erase_block = 0x40000
block_size = 2048
allow_zero_bytes = true
table = "../table.conf"
[[partition]]
name = "kernel"
file = "zImage"
[[partition]]
name = "rootfs"
file = "/abs/rootfs"
[[extra]]
name = "notes"
file = "sub/notes"
)");
  EXPECT_EQ(plan.upgrade_type, 2);
  EXPECT_EQ(plan.package_version, 7);
  EXPECT_EQ(plan.package_type, INT32_MIN);
  EXPECT_EQ(plan.plat, INT32_MAX);
  EXPECT_EQ(plan.version_src, "1.0");
  EXPECT_EQ(plan.version_dst, "ü");
  EXPECT_EQ(plan.erase_block, 262144U);
  EXPECT_EQ(plan.block_size, 2048);
  EXPECT_TRUE(plan.allow_zero_bytes);
  EXPECT_EQ(plan.table_path, path("in/../table.conf"));
  ASSERT_EQ(plan.partitions.size(), 2U);
  EXPECT_EQ(plan.partitions[0].name, "kernel");
  EXPECT_EQ(plan.partitions[0].path, path("in/zImage"));
  EXPECT_EQ(plan.partitions[1].path, "/abs/rootfs");
  ASSERT_EQ(plan.extras.size(), 1U);
  EXPECT_EQ(plan.extras[0].path, path("in/sub/notes"));
}

TEST_F(Manifest, MayLeaveEverythingOut) {
  const PackagePlan plan = read("");
  EXPECT_EQ(plan.upgrade_type, 0);
  EXPECT_EQ(plan.erase_block, 131072U);
  EXPECT_FALSE(plan.block_size);
  EXPECT_FALSE(plan.allow_zero_bytes);
  EXPECT_TRUE(plan.partitions.empty());
}

TEST_F(Manifest, TakesTypesByNameAndNumber) {
  EXPECT_EQ(read("type = \"system\"").upgrade_type, 0);
  EXPECT_EQ(read("type = \"platform\"").upgrade_type, 1);
  EXPECT_EQ(read("type = 2").upgrade_type, 2);
  EXPECT_EQ(message_of("type = \"both\""),
            "2, line 1: wrong value for \"type\": 'both'; allowed are \"system\", \"platform\", "
            "\"oem\" and 0, 1, 2");
  EXPECT_EQ(message_of("\ntype = 3"),
            "2, line 2: wrong value for \"type\": 3; allowed are whole numbers from 0 to 2");
}

TEST_F(Manifest, RefusesUnknownKeys) {
  EXPECT_THAT(
      message_of("plat = 0\nversion = 1"),
      StartsWith("2, line 2: unknown key \"version\"; known here are type, package_version"));
  EXPECT_EQ(message_of("[[partition]]\nname = \"a\"\nfile = \"b\"\nzipped = 1"),
            "2, line 4: unknown key \"zipped\"; known here are name, file");
}

TEST_F(Manifest, RefusesWrongValues) {
  EXPECT_EQ(message_of("plat = 2147483648"),
            "2, line 1: wrong value for \"plat\": 2147483648; allowed are whole numbers from "
            "-2147483648 to 2147483647");
  EXPECT_EQ(message_of("plat = \"1\""),
            "2, line 1: wrong value for \"plat\": '1'; allowed are whole numbers from -2147483648 "
            "to 2147483647");
  EXPECT_THAT(message_of("plat = 1.5"), HasSubstr("wrong value for \"plat\": 1.5;"));
  EXPECT_THAT(message_of("erase_block = -1"), HasSubstr("whole numbers from 0 to 2147483647"));
  EXPECT_EQ(message_of("version_dst = 1"),
            "2, line 1: wrong value for \"version_dst\": 1; allowed are texts in quotes");
  EXPECT_EQ(message_of("allow_zero_bytes = 1"),
            "2, line 1: wrong value for \"allow_zero_bytes\": 1; allowed are true and false");
  EXPECT_THAT(message_of("partition = \"kernel\""), HasSubstr("tables headed [[partition]]"));
  EXPECT_THAT(message_of("extra = [1]"), HasSubstr("tables headed [[extra]]"));
}

TEST_F(Manifest, RefusesFilesWithoutNameOrPath) {
  EXPECT_EQ(message_of("[[partition]]\nfile = \"b\""), "2, line 1: the key \"name\" is missing");
  EXPECT_EQ(message_of("[[partition]]\nname = \"a\""), "2, line 1: the key \"file\" is missing");
  EXPECT_EQ(message_of("[[partition]]\nname = \"a\"\nfile = \"\""),
            "2: \"\" is not the path of a file");
  EXPECT_EQ(message_of("[[partition]]\nname = \"a\"\nfile = \"b\\u0000c\""),
            "2: \"b\\x00c\" is not the path of a file");
}

TEST_F(Manifest, RefusesWhatIsNotToml) {
  EXPECT_THAT(message_of("plat = 0\nplat = 1"), StartsWith("2, line 2: "));
  EXPECT_THAT(message_of("a = [[[["), StartsWith("2, line 1: "));
  EXPECT_THAT(message_of(std::string("\xff\xfe\x00\x01", 4)), StartsWith("2, line 1: "));
}

TEST_F(Manifest, NamesAFileThatIsNotThere) {
  EXPECT_THROW(zozale::read_manifest(path("none")), zozale::Error);
}

}  // namespace
}  // namespace package_test
