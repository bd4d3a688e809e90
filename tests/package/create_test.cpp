// SPDX-License-Identifier: Apache-2.0
//
// What create_package() writes, byte by byte.
#include "create.h"

#include <cstring>

#include "check.h"
#include "package_view.h"
#include "support.h"

namespace package_test {
namespace {

using zozale::create_package;
using zozale::CreateResult;
using zozale::InputFile;
using zozale::PackagePlan;
using zozale::PackageView;

class Create : public FolderTest {
 protected:
  // A plan for these partitions, each with its image in a file.
  PackagePlan plan_of(const std::vector<std::pair<std::string, std::string>>& images) const {
    PackagePlan plan;
    for (const auto& [name, image] : images) {
      plan.partitions.push_back({name, write(name + ".img", image)});
    }
    return plan;
  }
  CreateResult make(const PackagePlan& plan) const { return create_package(plan, out()); }
  // Makes the package, which must succeed, and reads it back.
  PackageView made(const PackagePlan& plan) const {
    const CreateResult result = make(plan);
    EXPECT_TRUE(result.package);
    EXPECT_THAT(errors(result.findings), IsEmpty());
    const InputFile file(out());
    return zozale::read_package(file).package.value();
  }
  std::string out() const { return path("out.package"); }
};

TEST_F(Create, LaysOutHeadTablesImagesAndExtras) {
  const std::string kernel = image_without_zero_byte(1000);
  const std::string rootfs = image_without_zero_byte(3001);
  PackagePlan plan = plan_of({{"kernel", kernel}, {"rootfs", rootfs}});
  plan.extras.push_back({"notes", write("notes.txt", "read me")});
  plan.upgrade_type = 1;
  plan.package_version = -7;
  plan.package_type = 3;
  plan.plat = 0x01020304;
  plan.version_src = "V1";
  plan.version_dst = std::string(63, 'v');
  plan.block_size = 4096;
  plan.allow_zero_bytes = true;

  RawPackage expected;
  expected.partition("kernel", kernel).partition("rootfs", rootfs).extra("notes", "read me");
  expected.layout();
  expected.head.upgrade_type = 1;
  expected.head.upgrade_package_version = -7;
  expected.head.upgrade_package_type = 3;
  expected.head.plat = 0x01020304;
  memcpy(expected.head.version_src, "V1", 2);
  memset(expected.head.version_dst, 'v', 63);
  expected.head.block_size = 4096;

  EXPECT_TRUE(make(plan).package);
  EXPECT_EQ(read_bytes(out()), expected.bytes());
}

TEST_F(Create, WritesTheEraseBlockAsBlockSizeUnlessToldOtherwise) {
  PackagePlan plan = plan_of({{"kernel", "k"}});
  EXPECT_EQ(made(plan).head.block_size, 131072);
  plan.erase_block = 16384;
  EXPECT_EQ(made(plan).head.block_size, 16384);
  plan.block_size = 0;
  EXPECT_EQ(made(plan).head.block_size, 0);
}

TEST_F(Create, GivesTheSameBytesForTheSameInput) {
  PackagePlan plan =
      plan_of({{"kernel", image_with_zero_byte(5000)}, {"rootfs", pattern(70000, 9)}});
  plan.extras.push_back({"notes", write("notes.txt", "read me")});
  EXPECT_TRUE(make(plan).package);
  const std::string first = read_bytes(out());
  EXPECT_TRUE(make(plan).package);
  EXPECT_EQ(read_bytes(out()), first);
}

TEST_F(Create, TakesFortyNineOfEach) {
  PackagePlan plan;
  for (int i = 0; i < 49; ++i) {
    const std::string name = "p" + std::to_string(100 + i);
    plan.partitions.push_back({name, write(name, name)});
    plan.extras.push_back({name, path(name)});
  }
  const PackageView package = made(plan);
  EXPECT_EQ(package.partitions.size(), 49U);
  EXPECT_EQ(package.extras.size(), 49U);
  EXPECT_EQ(package.partitions[48].name, "p148");
  EXPECT_THAT(errors(zozale::check_package(InputFile(out()), nullptr)), IsEmpty());
}

TEST_F(Create, TakesNamesUpToTheirLimits) {
  const std::string longest(29, 'p');
  PackagePlan plan = plan_of({{longest, "image"}});
  plan.extras.push_back({std::string(31, 'e'), plan.partitions[0].path});
  const PackageView package = made(plan);
  EXPECT_EQ(package.partitions[0].name, longest);
  EXPECT_EQ(package.extras[0].name, std::string(31, 'e'));
  EXPECT_TRUE(package.extras[0].terminated);
}

TEST_F(Create, MayHoldExtraFilesAlone) {
  PackagePlan plan;
  plan.extras.push_back({"notes", write("notes.txt", "x")});
  const CreateResult result = make(plan);
  EXPECT_TRUE(result.package);
  EXPECT_THAT(warnings(result.findings), ElementsAre("partitions: 0"));
}

TEST_F(Create, AllowsAPartitionAndAnExtraFileOfOneName) {
  PackagePlan plan = plan_of({{"kernel", "image"}});
  plan.extras.push_back({"kernel", plan.partitions[0].path});
  plan.extras.push_back({"kernel2", plan.partitions[0].path});
  EXPECT_EQ(made(plan).extras.size(), 2U);
}

// A digest with a zero byte, and the padding that a plain search finds for it.
TEST_F(Create, PadsAnImageUntilItsDigestHoldsNoZeroByte) {
  const std::string image = image_with_zero_byte(5000);
  std::string padded = image;
  while (zozale::has_zero_byte(sha512(padded))) {
    padded += '\xff';
  }
  const PackagePlan plan = plan_of({{"kernel", image}});
  const CreateResult result = make(plan);
  ASSERT_TRUE(result.package);
  EXPECT_EQ(result.package->partitions[0].len, 5000U);
  EXPECT_EQ(result.package->partitions[0].padding, padded.size() - image.size());
  const InputFile file(out());
  const PackageView package = zozale::read_package(file).package.value();
  EXPECT_EQ(static_cast<size_t>(package.partitions[0].len), padded.size());
  EXPECT_EQ(package.partitions[0].hash, sha512(padded));
  EXPECT_EQ(read_bytes(out()).substr(384, padded.size()), padded);
}

TEST_F(Create, PadsBehindEachImageAlone) {
  const std::string image = image_with_zero_byte(5000);
  const PackageView package = made(plan_of({{"a", image}, {"b", "second"}}));
  EXPECT_EQ(package.partitions[1].offset, package.partitions[0].offset + package.partitions[0].len);
  EXPECT_EQ(read_bytes(out()).substr(static_cast<size_t>(package.partitions[1].offset), 6),
            "second");
}

TEST_F(Create, LeavesZeroBytesWhenTold) {
  const std::string image = image_with_zero_byte(5000);
  PackagePlan plan = plan_of({{"kernel", image}});
  plan.allow_zero_bytes = true;
  const PackageView package = made(plan);
  EXPECT_EQ(package.partitions[0].len, 5000);
  EXPECT_EQ(package.file_size, 384U + 5000U);
}

TEST_F(Create, NeverPadsExtraFiles) {
  PackagePlan plan = plan_of({{"kernel", "image"}});
  plan.extras.push_back({"notes", write("notes", image_with_zero_byte(100))});
  const PackageView package = made(plan);
  EXPECT_EQ(package.extras[0].len, 100);
  EXPECT_TRUE(zozale::has_zero_byte(package.extras[0].hash));
  EXPECT_THAT(zozale::check_package(InputFile(out()), nullptr), IsEmpty());
}

TEST_F(Create, PadsTheFileForItsContentDigest) {
  // Every version differs in the head alone, so a digest with a zero byte is searched by the image.
  for (uint32_t seed = 0;; ++seed) {
    const std::string image = pattern(900, seed);
    RawPackage plain;
    plain.partition("kernel", image).layout();
    const std::string content = plain.bytes().substr(256);
    if (zozale::has_zero_byte(sha512(image)) || !zozale::has_zero_byte(sha512(content))) {
      continue;
    }
    const CreateResult result = make(plan_of({{"kernel", image}}));
    ASSERT_TRUE(result.package);
    EXPECT_GT(result.package->content_padding, 0U);
    const std::string bytes = read_bytes(out());
    EXPECT_EQ(bytes.substr(256),
              content + std::string(static_cast<size_t>(result.package->content_padding), '\xff'));
    EXPECT_THAT(zozale::check_package(InputFile(out()), nullptr), IsEmpty());
    return;
  }
}

// Every package that create makes passes check without a warning, whatever the images.
TEST_F(Create, MakesOnlyPackagesThatPassTheCheck) {
  for (uint32_t seed = 0; seed < 60; ++seed) {
    const PackagePlan plan =
        plan_of({{"a", pattern(1 + seed * 37, seed)}, {"b", pattern(200 + seed, seed + 1000)}});
    ASSERT_TRUE(make(plan).package);
    EXPECT_THAT(zozale::check_package(InputFile(out()), nullptr), IsEmpty()) << seed;
  }
}

TEST_F(Create, PadsUpToTheEndOfTheEraseBlockAndNoFurther) {
  const std::string image = image_with_zero_byte(4095);
  const bool one_byte_helps = !zozale::has_zero_byte(sha512(image + '\xff'));
  PackagePlan plan = plan_of({{"kernel", image}});
  plan.erase_block = 4096;
  EXPECT_EQ(make(plan).package.has_value(), one_byte_helps);
  plan.erase_block = 8192;
  EXPECT_TRUE(make(plan).package);
}

TEST_F(Create, RefusesAFullEraseBlockWhoseDigestHoldsAZeroByte) {
  const std::string image = image_with_zero_byte(8192);
  PackagePlan plan = plan_of({{"kernel", image}});
  plan.erase_block = 4096;
  const CreateResult result = make(plan);
  EXPECT_FALSE(result.package);
  const zozale::Digest digest = sha512(image);
  EXPECT_EQ(text_of(result.findings, "partition[0].hash"),
            "the digest of \"" + plan.partitions[0].path +
                "\" holds a zero byte, so a device compares only the first " +
                std::to_string(zozale::compared_bytes(digest)) +
                " of 64 bytes, and the 0 bytes left in its last erase block of 4096 bytes do not "
                "help; add a byte or more to the image, build it anew, or give --allow-zero-bytes");
  EXPECT_THAT(files(), ElementsAre("kernel.img"));

  plan.allow_zero_bytes = true;
  EXPECT_TRUE(make(plan).package);
}

TEST_F(Create, TakesAFullEraseBlockWhoseDigestIsGood) {
  PackagePlan plan = plan_of({{"kernel", image_without_zero_byte(8192)}});
  plan.erase_block = 4096;
  EXPECT_EQ(made(plan).partitions[0].len, 8192);
}

TEST(Padding, IsTheFewestBytesThatHelp) {
  const std::string image = image_with_zero_byte(77);
  zozale::Sha512 hash;
  hash.update(image.data(), image.size());
  uint64_t expected = 0;
  for (std::string padded = image; zozale::has_zero_byte(sha512(padded)); padded += '\xff') {
    ++expected;
  }
  EXPECT_EQ(zozale::padding_without_zero_byte(hash, 4096), expected);
  EXPECT_EQ(zozale::padding_without_zero_byte(hash, expected), expected);
  EXPECT_EQ(zozale::padding_without_zero_byte(hash, expected - 1), std::nullopt);
  EXPECT_EQ(zozale::padding_without_zero_byte(hash, 0), std::nullopt);
  const std::string good = image_without_zero_byte(77);
  zozale::Sha512 other;
  other.update(good.data(), good.size());
  EXPECT_EQ(zozale::padding_without_zero_byte(other, 0), 0U);
}

TEST_F(Create, ReplacesAnOlderPackageAtOnce) {
  write("out.package", "older");
  EXPECT_TRUE(make(plan_of({{"kernel", "image"}})).package);
  EXPECT_THAT(read_bytes(out()), StartsWith("FOTA"));
  EXPECT_THAT(files(), ElementsAre("kernel.img", "out.package"));
}

}  // namespace
}  // namespace package_test
