// SPDX-License-Identifier: Apache-2.0
//
// Taking images out of packages, kind and hostile ones.
#include "extract.h"

#include "create.h"
#include "support.h"

namespace package_test {
namespace {

using zozale::ExtractPlan;
using zozale::ExtractResult;

class Extract : public FolderTest {
 protected:
  ExtractPlan plan_of(const RawPackage& package) const { return plan_of(package.bytes()); }
  ExtractPlan plan_of(const std::string& bytes) const {
    ExtractPlan plan;
    plan.package_path = write("package", bytes);
    plan.folder = path("out");
    return plan;
  }
  static std::string message_of(const ExtractPlan& plan) {
    return error_of([&] { zozale::extract(plan); });
  }
};

RawPackage good_package() {
  RawPackage package;
  package.partition("kernel", "the kernel").partition("rootfs", "the root");
  package.extra("notes", "read me").extra("kernel", "an extra").layout();
  return package;
}

TEST_F(Extract, WritesEveryFile) {
  const ExtractResult result = zozale::extract(plan_of(good_package()));
  EXPECT_THAT(result.findings, IsEmpty());
  ASSERT_EQ(result.files.size(), 4U);
  EXPECT_EQ(result.files[0].path, path("out/kernel"));
  EXPECT_EQ(result.files[0].len, 10U);
  EXPECT_THAT(files(), ElementsAre("out/extra/kernel", "out/extra/notes", "out/kernel",
                                   "out/rootfs", "package"));
  EXPECT_EQ(read_bytes(path("out/kernel")), "the kernel");
  EXPECT_EQ(read_bytes(path("out/rootfs")), "the root");
  EXPECT_EQ(read_bytes(path("out/extra/notes")), "read me");
  EXPECT_EQ(read_bytes(path("out/extra/kernel")), "an extra");
}

TEST_F(Extract, GivesBackWhatCreateTook) {
  zozale::PackagePlan create;
  create.partitions = {{"kernel", write("k.img", image_without_zero_byte(300000))},
                       {"rootfs", write("r.img", image_with_zero_byte(5000))}};
  create.extras = {{"notes", write("notes.txt", image_with_zero_byte(50))}};
  ASSERT_TRUE(zozale::create_package(create, path("package")).package);
  ExtractPlan plan;
  plan.package_path = path("package");
  plan.folder = path("out");
  EXPECT_THAT(zozale::extract(plan).findings, IsEmpty());
  EXPECT_EQ(read_bytes(path("out/kernel")), read_bytes(path("k.img")));
  EXPECT_EQ(read_bytes(path("out/extra/notes")), read_bytes(path("notes.txt")));
  const std::string rootfs = read_bytes(path("out/rootfs"));
  EXPECT_EQ(rootfs.substr(0, 5000), read_bytes(path("r.img")));
  EXPECT_EQ(rootfs.substr(5000), std::string(rootfs.size() - 5000, '\xff'));
}

TEST_F(Extract, TakesOnlyWhatIsAskedFor) {
  ExtractPlan plan = plan_of(good_package());
  plan.partitions = {"rootfs"};
  plan.extras = {"kernel"};
  EXPECT_THAT(zozale::extract(plan).findings, IsEmpty());
  EXPECT_THAT(files(), ElementsAre("out/extra/kernel", "out/rootfs", "package"));
}

TEST_F(Extract, NamesWhatThereIsWhenANameIsUnknown) {
  ExtractPlan plan = plan_of(good_package());
  plan.partitions = {"kern"};
  EXPECT_EQ(message_of(plan),
            "2 the package has no partition \"kern\"; it has \"kernel\", \"rootfs\"");
  plan.partitions.clear();
  plan.extras = {"more"};
  EXPECT_EQ(message_of(plan),
            "2 the package has no extra file \"more\"; it has \"notes\", \"kernel\"");
  plan = plan_of(RawPackage().partition("a", "b").layout());
  plan.extras = {"x"};
  EXPECT_EQ(message_of(plan), "2 the package has no extra file \"x\"; it has none");
}

TEST_F(Extract, ReplacesNothingUnasked) {
  ExtractPlan plan = plan_of(good_package());
  write("out/rootfs", "mine");
  EXPECT_EQ(message_of(plan),
            "1 \"" + path("out/rootfs") + "\" exists; give --force to replace it");
  EXPECT_THAT(files(), ElementsAre("out/rootfs", "package"));
  EXPECT_EQ(read_bytes(path("out/rootfs")), "mine");
  plan.replace = true;
  EXPECT_THAT(zozale::extract(plan).findings, IsEmpty());
  EXPECT_EQ(read_bytes(path("out/rootfs")), "the root");
}

TEST_F(Extract, DoesNotFollowALinkThatStandsInItsWay) {
  ExtractPlan plan = plan_of(good_package());
  write("mine", "mine");
  std::filesystem::create_directory(path("out"));
  std::filesystem::create_symlink("../mine", path("out/kernel"));
  plan.replace = true;
  EXPECT_EQ(message_of(plan),
            "1 cannot replace \"" + path("out/kernel") + "\": it is not a regular file");
  EXPECT_EQ(read_bytes(path("mine")), "mine");
}

TEST_F(Extract, StaysInItsFolderWhateverTheNames) {
  RawPackage package;
  package.partition("../up", "1").partition("/etc/x", "2").partition("..", "3").partition(".", "4");
  package.partition("", "5").partition("extra", "6").partition(".hidden", "7");
  package.partition(std::string(32, '/'), "8").partition("a\nb\x1b", "9").partition("%2e", "10");
  package.extra("../../up", "11").extra("..", "12").extra("extra", "13").layout();
  EXPECT_THAT(zozale::extract(plan_of(package)).findings, IsEmpty());
  std::string slashes;
  for (int i = 0; i < 32; ++i) {
    slashes += "%2f";
  }
  EXPECT_THAT(files(),
              ::testing::UnorderedElementsAre(
                  "out/%2e.%2fup", "out/%2fetc%2fx", "out/%2e.", "out/%2e", "out/%", "out/%65xtra",
                  "out/%2ehidden", "out/" + slashes, "out/a%0ab%1b", "out/%252e",
                  "out/extra/%2e.%2f..%2fup", "out/extra/%2e.", "out/extra/extra", "package"));
}

TEST_F(Extract, RefusesTwoEntriesThatBecomeOneFile) {
  RawPackage package;
  package.partition("kernel", "1").partition("kernel", "2").layout();
  ExtractPlan plan = plan_of(package);
  EXPECT_THAT(errors(zozale::extract(plan).findings), ElementsAre("partition[1].name: \"kernel\""));
  EXPECT_THAT(files(), ElementsAre("package"));
  plan.partitions = {"kernel"};
  EXPECT_THAT(zozale::extract(plan).findings, IsEmpty());
  EXPECT_EQ(read_bytes(path("out/kernel")), "1");
}

TEST_F(Extract, WritesNothingOfADamagedPackage) {
  RawPackage package = good_package();
  package.payload[0] ^= 1;
  EXPECT_THAT(errors(zozale::extract(plan_of(package)).findings),
              ElementsAre(StartsWith("partition[0].hash: ")));
  std::string bytes = good_package().bytes();
  bytes[164] ^= 1;
  EXPECT_THAT(errors(zozale::extract(plan_of(bytes)).findings),
              ElementsAre(StartsWith("head.hash: ")));
  EXPECT_THAT(errors(zozale::extract(plan_of("FOTA")).findings), ElementsAre("file size: 4 bytes"));
  EXPECT_THAT(files(), ElementsAre("package"));
}

TEST_F(Extract, TakesAGoodImageOutOfADamagedPackage) {
  RawPackage package = good_package();
  package.payload[0] ^= 1;
  ExtractPlan plan = plan_of(package.bytes_unsealed());
  plan.partitions = {"rootfs"};
  EXPECT_THAT(zozale::extract(plan).findings, IsEmpty());
  EXPECT_EQ(read_bytes(path("out/rootfs")), "the root");
}

TEST_F(Extract, RefusesRangesOutsideTheFile) {
  for (const int32_t len : {0, -1, 1000, INT32_MAX}) {
    RawPackage package = good_package();
    package.partitions[0].len = len;
    EXPECT_THAT(errors(zozale::extract(plan_of(package)).findings),
                ElementsAre("partition[0].len: " + std::to_string(len)));
  }
  RawPackage package = good_package();
  package.extras[0].offset = -1;
  EXPECT_THAT(errors(zozale::extract(plan_of(package)).findings),
              ElementsAre("extra[0].offset: -1"));
  EXPECT_THAT(files(), ElementsAre("package"));
}

TEST_F(Extract, NamesTheFolderThatCannotBeMade) {
  ExtractPlan plan = plan_of(good_package());
  write("file", "");
  plan.folder = path("file");
  EXPECT_THAT(message_of(plan), HasSubstr("Not a directory"));
}

}  // namespace
}  // namespace package_test
