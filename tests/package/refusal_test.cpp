// SPDX-License-Identifier: Apache-2.0
//
// Every plan that create_package() refuses, and that nothing is left behind then.
#include "create.h"
#include "plan_rules.h"
#include "support.h"

namespace package_test {
namespace {

using zozale::CreateResult;
using zozale::Findings;
using zozale::PackagePlan;

class Refusal : public FolderTest {
 protected:
  Refusal() : image_(write("image", "bytes of an image")) {}

  // A plan whose partitions all hold the same image.
  PackagePlan plan_of(const std::vector<std::string>& names) const {
    PackagePlan plan;
    for (const std::string& name : names) {
      plan.partitions.push_back({name, image_});
    }
    return plan;
  }
  // The findings of a plan that must be refused without leaving a file.
  Findings refused(const PackagePlan& plan) const {
    const std::vector<std::string> before = files();
    const CreateResult result = zozale::create_package(plan, path("out.package"));
    EXPECT_FALSE(result.package);
    EXPECT_EQ(files(), before);
    return result.findings;
  }
  std::string message_of(const PackagePlan& plan) const {
    return error_of([&] { zozale::create_package(plan, path("out.package")); });
  }

  const std::string image_;
};

TEST_F(Refusal, OfMoreThanFortyNineEntries) {
  PackagePlan plan;
  for (int i = 0; i < 50; ++i) {
    plan.partitions.push_back({"p" + std::to_string(100 + i), image_});
    plan.extras.push_back({"e" + std::to_string(100 + i), image_});
  }
  const Findings findings = refused(plan);
  EXPECT_THAT(errors(findings), ElementsAre("partitions: 50", "extras: 50"));
  EXPECT_EQ(text_of(findings, "partitions"),
            "at most 49 are allowed: a device refuses more; leave some out");
}

TEST_F(Refusal, OfNothing) {
  const Findings findings = refused({});
  EXPECT_THAT(errors(findings), ElementsAre("payload: none"));
  EXPECT_THAT(text_of(findings, "payload"), HasSubstr("at least one"));
}

TEST_F(Refusal, OfTwoEntriesOfOneName) {
  PackagePlan plan = plan_of({"kernel", "rootfs", "kernel"});
  plan.extras = {{"notes", image_}, {"notes", image_}};
  const Findings findings = refused(plan);
  EXPECT_THAT(errors(findings),
              ElementsAre("partition[2].name: \"kernel\"", "extra[1].name: \"notes\""));
  EXPECT_EQ(text_of(findings, "partition[2].name"),
            "partition[0].name has the same name: a device looks entries up by name and always "
            "finds the first; remove or rename one");
}

TEST_F(Refusal, OfANameThatIsSystemBsOfAnother) {
  const Findings findings = refused(plan_of({"kernel", "kernel2"}));
  EXPECT_THAT(errors(findings), ElementsAre("partition[1].name: \"kernel2\""));
  EXPECT_EQ(text_of(findings, "partition[1].name"),
            "this is also system B's partition of \"kernel\" (partition[0].name): while system B "
            "runs, its own partition would be erased; rename one");
  EXPECT_THAT(errors(refused(plan_of({"kernel2", "kernel22"}))), ::testing::SizeIs(1));
}

TEST_F(Refusal, OfEmptyNames) {
  PackagePlan plan = plan_of({"", ""});
  plan.extras = {{"", image_}};
  EXPECT_THAT(errors(refused(plan)), ElementsAre("partition[0].name: \"\"",
                                                 "partition[1].name: \"\"", "extra[0].name: \"\""));
}

TEST_F(Refusal, OfNamesThatADeviceWouldCut) {
  for (const size_t length : {30U, 31U, 32U, 300U}) {
    const std::string name(length, 'n');
    const Findings findings = refused(plan_of({name}));
    EXPECT_EQ(text_of(findings, "partition[0].name"),
              "the name has " + std::to_string(length) +
                  " characters, at most 29 are allowed: a device cuts system B's name, this one "
                  "and a 2, to 30 characters; without its 2 it names the RUNNING system's "
                  "partition, which would be erased; use a shorter name (file \"" +
                  image_ + "\")");
  }
  PackagePlan plan = plan_of({"kernel"});
  plan.extras = {{std::string(32, 'e'), image_}};
  EXPECT_THAT(errors(refused(plan)), ::testing::SizeIs(1));
}

TEST_F(Refusal, OfCharactersThatNoTableHolds) {
  for (const std::string bad : {" ", "\t", "\n", "\"", "\x7f", "\xc3\xa4"}) {
    const Findings findings = refused(plan_of({"ker" + bad + "nel"}));
    EXPECT_THAT(text_of(findings, "partition[0].name"),
                StartsWith("the name holds the character "));
  }
}

TEST_F(Refusal, OfEmptyFiles) {
  PackagePlan plan = plan_of({"kernel"});
  plan.partitions[0].path = write("empty", "");
  plan.extras = {{"notes", path("empty")}};
  const Findings findings = refused(plan);
  EXPECT_THAT(errors(findings), ElementsAre("partition[0].len: 0", "extra[0].len: 0"));
  EXPECT_EQ(text_of(findings, "partition[0].len"),
            "\"" + path("empty") +
                "\" is empty: a device hashes an entry without bytes past the end of the file for "
                "ever; give a file that holds something");
}

TEST_F(Refusal, OfImagesPastTwoGibibytes) {
  PackagePlan plan = plan_of({"kernel"});
  plan.partitions[0].path = write_sparse("huge", 0x80000000);
  const Findings findings = refused(plan);
  EXPECT_THAT(errors(findings), ElementsAre("partition[0].len: 2147483648",
                                            "package size: 2.0 GiB (2147484032 bytes)"));
  EXPECT_EQ(
      text_of(findings, "partition[0].len"),
      "\"" + path("huge") + "\" is larger than 2147483647 bytes, the most that the field holds");
}

TEST_F(Refusal, OfPackagesWhoseOffsetsDoNotFit) {
  PackagePlan plan = plan_of({"a", "b", "c"});
  for (zozale::PlannedFile& file : plan.partitions) {
    file.path = write_sparse("large", 0x7FFFFFFF);
  }
  const Findings findings = refused(plan);
  EXPECT_THAT(errors(findings), ElementsAre("package size: 6.0 GiB (6442451581 bytes)"));
  EXPECT_THAT(text_of(findings, "package size"), HasSubstr("pass byte 2147483647"));
}

TEST_F(Refusal, BeginsOneByteBehindTheLargestPackage) {
  const PackagePlan plan = plan_of({"kernel"});
  const auto findings_of = [&](uint64_t size) {
    zozale::PlanFiles files;
    files.partitions.emplace_back(write_sparse("image", size));
    return zozale::check_plan_sizes(plan, files);
  };
  EXPECT_THAT(findings_of(0x80000000 - 384), IsEmpty());
  EXPECT_THAT(errors(findings_of(0x80000000 - 383)),
              ElementsAre("package size: 2.0 GiB (2147483649 bytes)"));
}

TEST_F(Refusal, OfUnknownTypesAndBlocks) {
  PackagePlan plan = plan_of({"kernel"});
  plan.upgrade_type = 3;
  plan.erase_block = 0;
  EXPECT_THAT(errors(refused(plan)), ElementsAre("type: 3", "erase_block: 0"));
  plan.upgrade_type = -1;
  plan.erase_block = 0x80000000;
  EXPECT_THAT(errors(refused(plan)), ElementsAre("type: -1", "erase_block: 2147483648"));
}

TEST_F(Refusal, OfVersionsThatDoNotFit) {
  PackagePlan plan = plan_of({"kernel"});
  plan.version_src = std::string(64, 'v');
  plan.version_dst = "V\n1";
  const Findings findings = refused(plan);
  EXPECT_EQ(text_of(findings, "version_src"),
            "it has 64 bytes, at most 63 fit its field with a terminator");
  EXPECT_THAT(text_of(findings, "version_dst"), StartsWith("it holds a control character"));
}

TEST_F(Refusal, OfTypeZeroThatIsNotTheTable) {
  const std::string table = write("table.conf", table_text({"kernel", "rootfs"}, {"oemdata"}));
  const auto findings_of = [&](const std::vector<std::string>& names) {
    PackagePlan plan = plan_of(names);
    plan.table_path = table;
    return refused(plan);
  };
  const Findings order = findings_of({"rootfs", "kernel", "oemdata"});
  EXPECT_THAT(errors(order),
              ElementsAre("partition[0].name: \"rootfs\"", "partition[1].name: \"kernel\""));
  EXPECT_EQ(text_of(order, "partition[0].name"),
            "the table has \"kernel\" here; type 0 (system) carries exactly the table's "
            "partitions, in its order: kernel, rootfs, oemdata");
  EXPECT_THAT(errors(findings_of({"oemdata", "kernel", "rootfs"})), ::testing::SizeIs(3));
  const Findings few = findings_of({"kernel", "rootfs"});
  EXPECT_THAT(errors(few), ElementsAre("partitions: 2"));
  EXPECT_THAT(text_of(few, "partitions"), StartsWith("the table has 3; type 0 (system)"));
  EXPECT_THAT(errors(findings_of({"kernel", "rootfs", "oemdata", "more"})),
              ElementsAre("partitions: 4"));
}

TEST_F(Refusal, OfPartitionsThatAreNotInTheTypesList) {
  PackagePlan plan = plan_of({"rootfs", "oemdata"});
  plan.table_path = write("table.conf", table_text({"kernel", "rootfs"}, {"oemdata"}));
  plan.upgrade_type = 1;
  const Findings platform = refused(plan);
  EXPECT_THAT(errors(platform), ElementsAre("partition[1].name: \"oemdata\""));
  EXPECT_EQ(text_of(platform, "partition[1].name"),
            "it is none of the table's platform partitions, and a device refuses the package; they "
            "are: kernel, rootfs");
  plan.upgrade_type = 2;
  EXPECT_THAT(errors(refused(plan)), ElementsAre("partition[0].name: \"rootfs\""));
}

TEST_F(Refusal, DoesNotMeetWhatTheTableAllows) {
  const std::string table = write("table.conf", table_text({"kernel", "rootfs"}, {"oemdata"}));
  const auto made = [&](int32_t type, const std::vector<std::string>& names) {
    PackagePlan plan = plan_of(names);
    plan.table_path = table;
    plan.upgrade_type = type;
    const CreateResult result = zozale::create_package(plan, path("out.package"));
    EXPECT_THAT(result.findings, IsEmpty());
    return result.package.has_value();
  };
  EXPECT_TRUE(made(0, {"kernel", "rootfs", "oemdata"}));
  EXPECT_TRUE(made(1, {"rootfs", "kernel"}));
  EXPECT_TRUE(made(1, {"rootfs"}));
  EXPECT_TRUE(made(2, {"oemdata"}));
}

TEST_F(Refusal, OfATableThatADeviceRefuses) {
  PackagePlan plan = plan_of({"kernel"});
  std::string text = table_text({"kernel"}, {});
  text.replace(text.find("plat=0"), 6, "plat=1");
  plan.table_path = write("table.conf", text);
  const Findings findings = refused(plan);
  EXPECT_THAT(errors(findings), ElementsAre("\"" + plan.table_path + "\": plat: 1"));
}

TEST_F(Refusal, OfATableWhoseOwnNamesMeet) {
  PackagePlan plan = plan_of({"kernel"});
  plan.upgrade_type = 1;
  plan.table_path = write("table.conf", table_text({"kernel", "kernel2"}, {}));
  EXPECT_THAT(errors(refused(plan)),
              ElementsAre("\"" + plan.table_path + "\": platform[1].name: \"kernel2\""));
}

TEST_F(Refusal, WarnsThatNoTableWasGiven) {
  const CreateResult result = zozale::create_package(plan_of({"kernel"}), path("out.package"));
  EXPECT_TRUE(result.package);
  EXPECT_THAT(warnings(result.findings), ElementsAre("table: none given"));
}

TEST_F(Refusal, NamesFilesThatCannotBeRead) {
  PackagePlan plan = plan_of({"kernel"});
  plan.partitions[0].path = path("none");
  EXPECT_EQ(message_of(plan), "1 cannot open \"" + path("none") + "\": No such file or directory");
  plan.table_path = path("table");
  EXPECT_EQ(message_of(plan), "1 cannot open \"" + path("table") + "\": No such file or directory");
}

TEST_F(Refusal, OfAPackageThatWouldReplaceItsOwnImage) {
  PackagePlan plan = plan_of({"kernel"});
  std::filesystem::create_hard_link(image_, path("out.package"));
  EXPECT_EQ(message_of(plan), "2 the package \"" + path("out.package") +
                                  "\" would replace the file \"" + image_ +
                                  "\" that goes into it; choose another name");
  EXPECT_EQ(read_bytes(image_), "bytes of an image");
}

}  // namespace
}  // namespace package_test
