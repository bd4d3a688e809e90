// SPDX-License-Identifier: Apache-2.0
//
// The built zozale-package, run as a person runs it: answers, messages, exit codes.
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "support.h"

namespace package_test {
namespace {

using Json = nlohmann::json;

class CommandLine : public FolderTest {
 protected:
  CommandLine() {
    write("zImage", image_without_zero_byte(3000));
    write("rootfs.squashfs", image_with_zero_byte(5000));
    write("notes.txt", "read me");
    write("table.conf", table_text({"kernel", "rootfs"}, {}));
  }
  RunResult run(const std::vector<std::string>& arguments) const {
    return run_tool(folder(), arguments);
  }
  // Makes "a.package" from all of the above.
  RunResult create() const {
    return run({"create", "--partition", "kernel=zImage", "--partition", "rootfs=rootfs.squashfs",
                "--extra", "notes=notes.txt", "--table", "table.conf", "-o", "a.package"});
  }
};

TEST_F(CommandLine, MakesShowsChecksAndExtracts) {
  const RunResult created = create();
  EXPECT_EQ(created.exit_code, 0);
  EXPECT_EQ(created.err, "");
  EXPECT_THAT(created.out, StartsWith("created \"a.package\": "));
  EXPECT_THAT(created.out, HasSubstr("  partition \"kernel\": 2.9 KiB (3000 bytes)\n"
                                     "  partition \"rootfs\": 4.8 KiB (5000 bytes), padded with "));
  EXPECT_THAT(created.out, HasSubstr("  extra \"notes\": 7 bytes\n"));

  const RunResult checked = run({"check", "a.package", "--table", "table.conf"});
  EXPECT_EQ(checked.exit_code, 0);
  EXPECT_EQ(checked.out, "\"a.package\" is good: 0 errors, 0 warnings\n");
  EXPECT_EQ(checked.err, "");

  const RunResult extracted = run({"extract", "a.package", "-o", "out"});
  EXPECT_EQ(extracted.exit_code, 0);
  EXPECT_THAT(
      extracted.out,
      StartsWith("extracted \"out/kernel\": 2.9 KiB (3000 bytes)\nextracted \"out/rootfs\""));
  EXPECT_EQ(read_bytes(path("out/kernel")), read_bytes(path("zImage")));
  EXPECT_EQ(read_bytes(path("out/extra/notes")), "read me");
}

TEST_F(CommandLine, GivesTheSameBytesEachTime) {
  ASSERT_EQ(create().exit_code, 0);
  const std::string first = read_bytes(path("a.package"));
  ASSERT_EQ(create().exit_code, 0);
  EXPECT_EQ(read_bytes(path("a.package")), first);
}

TEST_F(CommandLine, FillsTheHead) {
  const RunResult created = run({"create",     "--partition",
                                 "oem=zImage", "--type",
                                 "oem",        "--package-version",
                                 "12",         "--package-type",
                                 "4",          "--plat",
                                 "-1",         "--version-src",
                                 "V1",         "--version-dst",
                                 "V2",         "--erase-block",
                                 "16KiB",      "--block-size",
                                 "2048",       "-o",
                                 "b"});
  ASSERT_EQ(created.exit_code, 0);
  EXPECT_EQ(created.err,
            "zozale-package: warning: table: none given: names and order are not compared with a "
            "device's; give its partition table file with --table\n");
  const Json head = Json::parse(run({"show", "--json", "b"}).out)["head"];
  EXPECT_EQ(head["upgrade_type"], 2);
  EXPECT_EQ(head["upgrade_package_version"], 12);
  EXPECT_EQ(head["upgrade_package_type"], 4);
  EXPECT_EQ(head["plat"], -1);
  EXPECT_EQ(head["version_src"], "V1");
  EXPECT_EQ(head["version_dst"], "V2");
  EXPECT_EQ(head["block_size"], 2048);
  EXPECT_EQ(head["partition_num"], 1);
  EXPECT_EQ(head["extra_num"], 0);
  EXPECT_EQ(head["hash_type"], 0);
}

TEST_F(CommandLine, TakesAManifestAndLetsOptionsWin) {
  write("in/kernel.img", "kernel");
  write("in/manifest.toml",
        "type = \"platform\"\npackage_version = 1\nplat = 5\n"
        "[[partition]]\nname = \"kernel\"\nfile = \"kernel.img\"\n");
  const RunResult created =
      run({"create", "in/manifest.toml", "-o", "b", "--package-version", "2"});
  EXPECT_EQ(created.exit_code, 0);
  const Json shown = Json::parse(run({"show", "--json", "b"}).out);
  EXPECT_EQ(shown["head"]["upgrade_type"], 1);
  EXPECT_EQ(shown["head"]["upgrade_package_version"], 2);
  EXPECT_EQ(shown["head"]["plat"], 5);
  EXPECT_EQ(shown["partitions"][0]["name"], "kernel");
}

TEST_F(CommandLine, TakesFilesFromOnePlaceOnly) {
  write("manifest.toml", "");
  const RunResult result =
      run({"create", "manifest.toml", "--partition", "kernel=zImage", "-o", "b"});
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_EQ(result.err,
            "zozale-package: the files come from the manifest \"manifest.toml\" or from "
            "--partition and --extra, not from both\n");
}

TEST_F(CommandLine, ShowsAPackage) {
  ASSERT_EQ(create().exit_code, 0);
  const RunResult shown = run({"show", "a.package"});
  EXPECT_EQ(shown.exit_code, 0);
  EXPECT_THAT(shown.out, StartsWith("package \"a.package\": "));
  EXPECT_THAT(shown.out, HasSubstr("\n  type              0 (system)\n"));
  EXPECT_THAT(shown.out, HasSubstr("\npartition[0] \"kernel\"\n"
                                   "  length            2.9 KiB (3000 bytes)\n"
                                   "  offset            632\n"
                                   "  partition type    0\n"
                                   "  zipped            0\n"
                                   "  SHA-512           " +
                                   zozale::hex(sha512(read_bytes(path("zImage")))) +
                                   "\n                    a device compares 64 of 64 bytes\n"));
  EXPECT_THAT(shown.out, HasSubstr("a device compares none of it\n"));
}

TEST_F(CommandLine, ShowsHowFarADeviceCompares) {
  const std::string image = read_bytes(path("rootfs.squashfs"));
  ASSERT_EQ(
      run({"create", "--partition", "rootfs=rootfs.squashfs", "--allow-zero-bytes", "-o", "b"})
          .exit_code,
      0);
  const size_t compared = zozale::compared_bytes(sha512(image));
  EXPECT_THAT(run({"show", "b"}).out,
              HasSubstr("a device compares " + std::to_string(compared) + " of 64 bytes"));
  const Json shown = Json::parse(run({"show", "b", "--json"}).out);
  EXPECT_EQ(shown["partitions"][0]["hash"]["compared_bytes"], compared);

  const RunResult checked = run({"check", "b"});
  EXPECT_EQ(checked.exit_code, 0);
  EXPECT_THAT(checked.out, HasSubstr("warning: partition[0].hash: " + zozale::hex(sha512(image)) +
                                     ": the digest holds a zero byte, so a device compares only "
                                     "the first " +
                                     std::to_string(compared) + " of 64 bytes"));
  EXPECT_THAT(checked.out, HasSubstr("\"b\" is good: 0 errors, "));
}

TEST_F(CommandLine, AnswersInJson) {
  ASSERT_EQ(create().exit_code, 0);
  const Json shown = Json::parse(run({"show", "--json", "a.package"}).out);
  EXPECT_EQ(shown["schema"], "zozale-package/1");
  EXPECT_EQ(shown["file"], "a.package");
  EXPECT_EQ(shown["size"], read_bytes(path("a.package")).size());
  EXPECT_EQ(shown["partitions"].size(), 2U);
  EXPECT_EQ(shown["partitions"][0]["len"], 3000);
  EXPECT_EQ(shown["partitions"][0]["offset"], 632);
  EXPECT_EQ(shown["partitions"][0]["hash"]["sha512"],
            zozale::hex(sha512(read_bytes(path("zImage")))));
  EXPECT_EQ(shown["extras"][0]["name"], "notes");

  std::string bytes = read_bytes(path("a.package"));
  bytes[256] = '\x1b';
  write("a.package", bytes);
  const RunResult checked = run({"check", "--json", "a.package"});
  EXPECT_EQ(checked.exit_code, 3);
  const Json verdict = Json::parse(checked.out);
  EXPECT_EQ(verdict["schema"], "zozale-package/1");
  EXPECT_EQ(verdict["good"], false);
  EXPECT_EQ(verdict["errors"], 2);
  EXPECT_EQ(verdict["findings"][0]["severity"], "error");
  EXPECT_EQ(verdict["findings"][0]["field"], "partition[0].name");
  EXPECT_EQ(verdict["findings"][0]["value"], "\"\\x1bernel\"");
  EXPECT_EQ(verdict["findings"][1]["field"], "head.hash");
}

TEST_F(CommandLine, NeverPrintsWhatAHostilePackageHolds) {
  RawPackage package;
  package.partition("\x1b[2J\xff", "image").extra("\x1b]0;x\x07", "extra").layout();
  memcpy(package.head.version_dst, "\x1b[31m", 5);
  write("b", package.bytes());
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"show", "b"},
                                                    {"show", "--json", "b"},
                                                    {"check", "b"},
                                                    {"check", "--json", "b"},
                                                    {"extract", "b", "-o", "o"}}) {
    const RunResult result = run(arguments);
    EXPECT_THAT(result.out + result.err, Not(HasSubstr("\x1b"))) << arguments[0];
    EXPECT_THAT(result.out + result.err, Not(HasSubstr("\xff"))) << arguments[0];
  }
}

TEST_F(CommandLine, RefusesABadPlan) {
  const RunResult result = run({"create", "--partition", "kernel=zImage", "--partition",
                                "kernel=zImage", "--table", "table.conf", "-o", "b"});
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "zozale-package: error: partition[1].name: \"kernel\": partition[0].name has the same "
            "name: a device looks entries up by name and always finds the first; remove or rename "
            "one\n"
            "zozale-package: error: partition[1].name: \"kernel\": the table has \"rootfs\" here; "
            "type 0 (system) carries exactly the table's partitions, in its order: kernel, "
            "rootfs\n"
            "zozale-package: refused; no package was made\n");
  EXPECT_THAT(files(), ElementsAre("notes.txt", "rootfs.squashfs", "table.conf", "zImage"));
}

TEST_F(CommandLine, EndsWith1WhenAnOperationFails) {
  EXPECT_EQ(run({"create", "--partition", "kernel=none", "-o", "b"}).exit_code, 1);
  EXPECT_EQ(run({"create", "--partition", "kernel=zImage", "-o", "none/b"}).err,
            "zozale-package: cannot create \"none/b\": No such file or directory\n");
  EXPECT_EQ(run({"create", "none.toml", "-o", "b"}).exit_code, 1);
  EXPECT_EQ(run({"show", "none"}).exit_code, 1);
  EXPECT_EQ(run({"check", "none"}).err,
            "zozale-package: cannot open \"none\": No such file or directory\n");
  EXPECT_EQ(run({"check", "zImage", "--table", "none"}).exit_code, 1);
  EXPECT_EQ(run({"extract", "none", "-o", "out"}).exit_code, 1);
  ASSERT_EQ(create().exit_code, 0);
  ASSERT_EQ(run({"extract", "a.package", "-o", "out"}).exit_code, 0);
  const RunResult again = run({"extract", "a.package", "-o", "out"});
  EXPECT_EQ(again.exit_code, 1);
  EXPECT_EQ(again.err, "zozale-package: \"out/kernel\" exists; give --force to replace it\n");
  EXPECT_EQ(run({"extract", "a.package", "-o", "out", "--force"}).exit_code, 0);
}

TEST_F(CommandLine, EndsWith2OnWrongUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"pack"},
      {"create"},
      {"create", "--partition", "kernel=zImage"},
      {"create", "--partition", "kernel", "-o", "b"},
      {"create", "--partition", "kernel=", "-o", "b"},
      {"create", "--partition", "kernel=zImage", "--type", "both", "-o", "b"},
      {"create", "--partition", "kernel=zImage", "--type", "3", "-o", "b"},
      {"create", "--partition", "kernel=zImage", "--plat", "2147483648", "-o", "b"},
      {"create", "--partition", "kernel=zImage", "--plat", "one", "-o", "b"},
      {"create", "--partition", "kernel=zImage", "--erase-block", "4GiB", "-o", "b"},
      {"create", "--partition", "kernel=zImage", "-o", "zImage"},
      {"create", "zImage", "-o", "b"},
      {"create", "--partition", "kernel=zImage", "--unknown", "-o", "b"},
      {"show"},
      {"show", "a", "b"},
      {"check"},
      {"extract", "zImage"},
  };
  for (const std::vector<std::string>& arguments : wrong) {
    const RunResult result = run(arguments);
    EXPECT_EQ(result.exit_code, 2) << ::testing::PrintToString(arguments);
    EXPECT_THAT(result.err, Not(IsEmpty())) << ::testing::PrintToString(arguments);
  }
  EXPECT_THAT(files(), ElementsAre("notes.txt", "rootfs.squashfs", "table.conf", "zImage"));
  ASSERT_EQ(create().exit_code, 0);
  EXPECT_EQ(run({"extract", "a.package", "-o", "o", "--partition", "none"}).exit_code, 2);
}

TEST_F(CommandLine, EndsWith3OnABadPackage) {
  for (const char* command : {"show", "check", "extract"}) {
    std::vector<std::string> arguments = {command, "zImage"};
    if (arguments[0] == "extract") {
      arguments.insert(arguments.end(), {"-o", "out"});
    }
    const RunResult result = run(arguments);
    EXPECT_EQ(result.exit_code, 3) << command;
    EXPECT_THAT(result.out + result.err, HasSubstr("error: head.magic_word: ")) << command;
  }
  ASSERT_EQ(create().exit_code, 0);
  write("table.conf", table_text({"rootfs", "kernel"}, {}));
  const RunResult result = run({"check", "a.package", "--table", "table.conf"});
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_THAT(result.out, HasSubstr("\"a.package\" is BAD: 2 errors, 0 warnings\n"));
}

TEST_F(CommandLine, HelpsAndTellsItsVersion) {
  EXPECT_EQ(run({"--help"}).exit_code, 0);
  EXPECT_EQ(run({"create", "--help"}).exit_code, 0);
  EXPECT_THAT(run({"--version"}).out, StartsWith("zozale-package "));
}

TEST_F(CommandLine, TakesOneFileAnOption) {
  ASSERT_EQ(create().exit_code, 0);
  const RunResult result = run({"extract", "--partition", "kernel", "a.package", "-o", "out"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "extracted \"out/kernel\": 2.9 KiB (3000 bytes)\n");
}

// What a test changes at its peril: the end of an answer that nobody could read.
TEST_F(CommandLine, FailsWhenItsAnswerCannotBeWritten) {
  ASSERT_EQ(create().exit_code, 0);
  const std::string command =
      std::string(PACKAGE_TOOL) + " show " + path("a.package") + " > /dev/full 2> " + path("err");
  const int status = system(command.c_str());
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(read_bytes(path("err")), "zozale-package: cannot write to standard output\n");
}

}  // namespace
}  // namespace package_test
