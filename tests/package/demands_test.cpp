// SPDX-License-Identifier: Apache-2.0
//
// zozale-package check with what is asked of a package: signer, version, platform.
#include <limits>
#include <nlohmann/json.hpp>

#include "common/check_time.h"
#include "support.h"
#include "tests/pki/pki.h"

namespace package_test {
namespace {

using Json = nlohmann::json;

class DemandsTest : public FolderTest {
 protected:
  DemandsTest() { write_package(3, 7); }

  void write_package(int32_t version, int32_t plat) {
    RawPackage package;
    package.head.upgrade_type = 1;
    package.head.upgrade_package_version = version;
    package.head.plat = plat;
    package.partition("kernel", image_without_zero_byte(500)).layout();
    content_ = package.bytes();
    write("p", content_);
  }
  RunResult check(const std::vector<std::string>& demands) const {
    std::vector<std::string> arguments = {"check", "p"};
    arguments.insert(arguments.end(), demands.begin(), demands.end());
    return run_tool(folder(), arguments);
  }
  void sign(const std::string& file = "p.p7s") {
    write("trust.pem", root_.pem());
    write(file, pki::sign(content_, {release_}));
  }

  std::string content_;
  const pki::Identity root_{pki::authority("Root")};
  const pki::Identity release_ = root_.issue(pki::Wish());
};

TEST_F(DemandsTest, ALowerVersionIsRefused) {
  const RunResult refused = check({"--min-version", "4"});
  EXPECT_EQ(refused.exit_code, 3);
  EXPECT_THAT(refused.out,
              StartsWith("error: head.upgrade_package_version: 3: the package is too old: its "
                         "version is 3, at least 4 is wanted; "));
  EXPECT_EQ(check({"--min-version", "3"}).exit_code, 0);
  EXPECT_EQ(check({"--min-version", "2"}).exit_code, 0);
}

// As signed numbers, to the ends of their range.
TEST_F(DemandsTest, VersionsCompareAsNumbers) {
  constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  const auto code = [this](int32_t version, const std::string& wanted) {
    write_package(version, 0);
    return check({"--min-version", wanted}).exit_code;
  };
  EXPECT_EQ(code(10, "9"), 0);
  EXPECT_EQ(code(9, "10"), 3);
  EXPECT_EQ(code(0, "1"), 3);
  EXPECT_EQ(code(-1, "0"), 3);
  EXPECT_EQ(code(0, "-1"), 0);
  EXPECT_EQ(code(kMost, "2147483647"), 0);
  EXPECT_EQ(code(kMost - 1, "2147483647"), 3);
  EXPECT_EQ(code(kLeast, "-2147483648"), 0);
  EXPECT_EQ(code(kLeast, "-2147483647"), 3);
}

TEST_F(DemandsTest, WhatIsNoNumberIsNotCompared) {
  for (const char* option : {"--min-version", "--plat"}) {
    for (const char* value : {"1.5.0", "v3", "3 ", " 3", "+3", "0x3", "3e0", "2147483648",
                              "-2147483649", "99999999999999999999", "", "-"}) {
      const RunResult refused = check({std::string(option) + "=" + value});
      EXPECT_EQ(refused.exit_code, 2) << option << value;
      EXPECT_EQ(refused.out, "") << option << value;
    }
  }
  EXPECT_THAT(check({"--min-version", "1.5.0"}).err,
              HasSubstr("\"1.5.0\" is no whole number from -2147483648 to 2147483647"));
}

// Nobody takes 010 for 8.
TEST_F(DemandsTest, LeadingZerosMeanNothing) {
  EXPECT_EQ(check({"--plat", "007"}).exit_code, 0);
  write_package(8, 0);
  EXPECT_EQ(check({"--min-version", "010"}).exit_code, 3);
}

TEST_F(DemandsTest, AnotherPlatformIsRefused) {
  const RunResult refused = check({"--plat", "8"});
  EXPECT_EQ(refused.exit_code, 3);
  EXPECT_THAT(refused.out, StartsWith("error: head.plat: 7: the package is for another device: its "
                                      "platform is 7, 8 is wanted; "));
  EXPECT_EQ(check({"--plat", "7"}).exit_code, 0);
  write_package(3, -5);
  EXPECT_EQ(check({"--plat", "-5"}).exit_code, 0);
  EXPECT_EQ(check({"--plat", "5"}).exit_code, 3);
}

TEST_F(DemandsTest, ASignedPackageIsGoodAndItsSignerNamed) {
  sign();
  const RunResult good = check({"--trust", "trust.pem"});
  EXPECT_EQ(good.exit_code, 0);
  EXPECT_EQ(good.out,
            "signed by CN=Release, trusted by CN=Root\n\"p\" is good: 0 errors, 0 warnings\n");
  const Json told = Json::parse(check({"--trust", "trust.pem", "--json"}).out);
  EXPECT_EQ(told["good"], true);
  EXPECT_EQ(told["signature"]["subject"], "CN=Release");
  EXPECT_EQ(told["signature"]["trusted_by"], "CN=Root");
}

TEST_F(DemandsTest, AnUnsignedPackageIsAnError) {
  write("trust.pem", root_.pem());
  const Json told = Json::parse(check({"--trust", "trust.pem", "--json"}).out);
  EXPECT_EQ(told["good"], false);
  EXPECT_EQ(told["findings"][0]["field"], "signature");
  EXPECT_THAT(told["findings"][0]["text"].get<std::string>(),
              StartsWith("the package is not signed; expected: its signature at p.p7s; "));
  EXPECT_FALSE(told.contains("signature"));
}

TEST_F(DemandsTest, EverythingThatIsWrongIsTold) {
  sign();
  content_.back() ^= 1;
  write("p", content_);
  const Json told = Json::parse(
      check({"--trust", "trust.pem", "--min-version", "4", "--plat", "1", "--json"}).out);
  std::vector<std::string> fields;
  for (const Json& finding : told["findings"]) {
    fields.push_back(finding["field"]);
  }
  EXPECT_THAT(fields, ElementsAre("signature", "head.upgrade_package_version", "head.plat",
                                  "head.hash", "partition[0].hash"));
}

TEST_F(DemandsTest, TheSignatureMayLieElsewhere) {
  sign("elsewhere/s");
  EXPECT_EQ(check({"--trust", "trust.pem"}).exit_code, 3);
  EXPECT_EQ(check({"--trust", "trust.pem", "--signature", "elsewhere/s"}).exit_code, 0);
}

TEST_F(DemandsTest, TheTimeCanBeChosen) {
  sign();
  const auto code = [this](const std::vector<std::string>& time) {
    std::vector<std::string> demands = {"--trust", "trust.pem"};
    demands.insert(demands.end(), time.begin(), time.end());
    return check(demands).exit_code;
  };
  EXPECT_EQ(code({"--time", "clock"}), 0);
  EXPECT_EQ(code({"--time", "signing"}), 0);
  EXPECT_EQ(code({"--time", "2001-01-01"}), 3);
  EXPECT_EQ(code({"--time", "2037-01-01T00:00:00Z"}), 3);
  EXPECT_EQ(code({"--no-check-time"}), 0);
  for (const char* wrong : {"", "now", "2026", "2026-13-01", "2026-02-30", "2026-01-01 00:00:00",
                            "1969-12-31", "2026-01-01T25:00:00Z"}) {
    EXPECT_EQ(code({std::string("--time=") + wrong}), 2) << wrong;
  }
  EXPECT_EQ(code({"--time", "signing", "--no-check-time"}), 2);
}

TEST_F(DemandsTest, OptionsOfASignatureNeedTrust) {
  for (const auto& demands :
       {std::vector<std::string>{"--signature", "s"}, std::vector<std::string>{"--time", "signing"},
        std::vector<std::string>{"--no-check-time"}}) {
    const RunResult refused = check(demands);
    EXPECT_EQ(refused.exit_code, 2);
    EXPECT_THAT(refused.err, HasSubstr("requires --trust"));
  }
}

// What a shell makes of a variable that was never set.
TEST_F(DemandsTest, AnEmptyNameOfAFileIsWrongUsage) {
  sign();
  for (const auto& demands :
       std::vector<std::vector<std::string>>{{"--trust", ""},
                                             {"--trust="},
                                             {"--trust", "trust.pem", "--signature", ""},
                                             {"--table", ""}}) {
    const RunResult refused = check(demands);
    EXPECT_EQ(refused.exit_code, 2) << demands.back();
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, HasSubstr(demands.size() == 1 ? "--trust" : *(demands.end() - 2)));
  }
}

TEST_F(DemandsTest, TrustThatCannotBeReadIsNoFaultOfThePackage) {
  const RunResult refused = check({"--trust", "none.pem"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_EQ(refused.err, "zozale-package: cannot open \"none.pem\": No such file or directory\n");
}

TEST(CheckTimeTest, ReadsTimesInUtc) {
  EXPECT_EQ(zozale::parse_check_time("1970-01-02")->time, 86400);
  EXPECT_EQ(zozale::parse_check_time("2001-09-09T01:46:40Z")->time, 1000000000);
  EXPECT_EQ(zozale::utc_text(static_cast<time_t>(1000000000)), "2001-09-09T01:46:40Z");
  EXPECT_EQ(zozale::parse_check_time("2000-02-29")->time, 951782400);
  EXPECT_FALSE(zozale::parse_check_time("2001-02-29"));
}

}  // namespace
}  // namespace package_test
