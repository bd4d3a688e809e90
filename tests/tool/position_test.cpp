// SPDX-License-Identifier: Apache-2.0
#include "zozale/position.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/device_test.h"

namespace zozale::tool {
namespace {

class PositionTest : public ::testing::Test {
 protected:
  PositionTest() { std::ofstream(path_) << "0123456789"; }

  support::TempFolder folder_;
  std::string path_ = (folder_.path() / "file").string();
};

TEST_F(PositionTest, IsNothingForAFileThatIsNotOpenOrNotThere) {
  EXPECT_FALSE(position_in(FileIdentity::of(path_)));
  EXPECT_FALSE(position_in(FileIdentity::of(path_ + "x")));
}

TEST_F(PositionTest, IsThatOfTheDescriptorThatWasOpenedLast) {
  const FileIdentity file = FileIdentity::of(path_);
  const int first = open(path_.c_str(), O_RDONLY);
  lseek(first, 3, SEEK_SET);
  EXPECT_EQ(position_in(file), 3U);
  const int second = open(path_.c_str(), O_RDONLY);
  EXPECT_EQ(position_in(file), 0U);
  char bytes[7];
  EXPECT_EQ(read(second, bytes, sizeof(bytes)), 7);
  EXPECT_EQ(position_in(file), 7U);
  close(second);
  EXPECT_EQ(position_in(file), 3U);
  close(first);
}

}  // namespace
}  // namespace zozale::tool
