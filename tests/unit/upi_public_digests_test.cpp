// SPDX-License-Identifier: Apache-2.0
//
// Copying, comparing and showing digests.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "tests/support/device_test.h"
#include "upi_public.h"

namespace {

using support::logged;
using support::LogLine;
using Lines = std::vector<LogLine>;

// 64 bytes and, behind them, some that are nobody's.
using Buffer = std::array<char, 72>;

Buffer filled(char byte) {
  Buffer buffer;
  buffer.fill(byte);
  return buffer;
}

class DigestsTest : public support::DeviceTest {};

TEST_F(DigestsTest, SelectorsHaveTheirValues) {
  EXPECT_EQ(HASH_SHA512, 0);
  EXPECT_EQ(HASH_SHA526, 1);
}

// --- hash_copy ----------------------------------------------------------------------------------

TEST_F(DigestsTest, CopyTakesAll64BytesWithoutAZero) {
  Buffer from = filled('s');
  Buffer to = filled('d');
  EXPECT_EQ(hash_copy(to.data(), from.data(), 0), 0);
  EXPECT_EQ(std::string(to.data(), to.size()), std::string(64, 's') + std::string(8, 'd'));
}

TEST_F(DigestsTest, CopyStopsAtTheFirstZeroAndFillsWithZeros) {
  Buffer from = filled('s');
  from[10] = '\0';
  Buffer to = filled('d');
  EXPECT_EQ(hash_copy(to.data(), from.data(), 0), 0);
  EXPECT_EQ(std::string(to.data(), to.size()),
            std::string(10, 's') + std::string(54, '\0') + std::string(8, 'd'));
}

TEST_F(DigestsTest, CopyOfALeadingZeroIsAllZeros) {
  Buffer from = filled('s');
  from[0] = '\0';
  Buffer to = filled('d');
  EXPECT_EQ(hash_copy(to.data(), from.data(), 0), 0);
  EXPECT_EQ(std::string(to.data(), to.size()), std::string(64, '\0') + std::string(8, 'd'));
}

TEST_F(DigestsTest, CopyOfAnotherTypeCopiesNothing) {
  for (const int type : {1, 2, -1}) {
    Buffer from = filled('s');
    Buffer to = filled('d');
    const Lines lines = logged([&] { EXPECT_EQ(hash_copy(to.data(), from.data(), type), 0); });
    EXPECT_EQ(to, filled('d')) << type;
    EXPECT_TRUE(lines.empty()) << type;
  }
}

// --- hash_compare -------------------------------------------------------------------------------

TEST_F(DigestsTest, CompareFindsEqualDigestsEqual) {
  Buffer a = filled('x');
  Buffer b = filled('x');
  const Lines lines = logged([&] { EXPECT_EQ(hash_compare(a.data(), b.data(), 0), 0); });
  EXPECT_TRUE(lines.empty());
}

TEST_F(DigestsTest, CompareLooksAt64BytesOnly) {
  Buffer a = filled('x');
  Buffer b = filled('x');
  b[64] = 'y';
  EXPECT_EQ(hash_compare(a.data(), b.data(), 0), 0);
}

TEST_F(DigestsTest, CompareTellsTheSignOfTheFirstDifference) {
  for (const std::size_t place : {std::size_t{0}, std::size_t{31}, std::size_t{63}}) {
    Buffer a = filled('x');
    Buffer b = filled('x');
    b[place] = 'y';
    EXPECT_LT(hash_compare(a.data(), b.data(), 0), 0) << place;
    EXPECT_GT(hash_compare(b.data(), a.data(), 0), 0) << place;
  }
}

TEST_F(DigestsTest, CompareTakesBytesAsUnsigned) {
  Buffer a = filled('x');
  Buffer b = filled('x');
  a[5] = '\x7F';
  b[5] = '\x80';
  EXPECT_LT(hash_compare(a.data(), b.data(), 0), 0);
}

TEST_F(DigestsTest, CompareStopsAtACommonZero) {
  Buffer a = filled('x');
  Buffer b = filled('y');
  for (std::size_t i = 0; i < 20; ++i) {
    b[i] = 'x';
  }
  a[20] = b[20] = '\0';
  EXPECT_EQ(hash_compare(a.data(), b.data(), 0), 0);
}

TEST_F(DigestsTest, CompareSeesAZeroOfOneSideOnly) {
  Buffer a = filled('x');
  Buffer b = filled('x');
  a[20] = '\0';
  EXPECT_LT(hash_compare(a.data(), b.data(), 0), 0);
  EXPECT_GT(hash_compare(b.data(), a.data(), 0), 0);
}

TEST_F(DigestsTest, CompareKnowsNoOtherType) {
  for (const int type : {1, 2, -1}) {
    Buffer a = filled('x');
    const Lines lines = logged([&] { EXPECT_EQ(hash_compare(a.data(), a.data(), type), -1); });
    EXPECT_EQ(lines, (Lines{{"hash_compare", "Unknown hash type"}})) << type;
  }
}

// --- show_hash_hex ------------------------------------------------------------------------------

TEST_F(DigestsTest, ShowPrintsEveryByteInLowerCaseAndABlank) {
  std::array<char, 64> digest{};
  std::string text;
  for (unsigned i = 0; i < digest.size(); ++i) {
    const unsigned byte = (i * 37U + 9U) & 0xFFU;
    digest.at(i) = static_cast<char>(byte);
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
    text += ' ';
  }
  ASSERT_EQ(text.size(), 192U);
  const Lines lines = logged([&] { show_hash_hex(0, "package hash:", digest.data()); });
  EXPECT_EQ(lines, (Lines{{"show_hash_hex", "package hash::" + text}}));
}

TEST_F(DigestsTest, ShowDoesNotStopAtZerosAndDoesNotExtendSigns) {
  std::array<char, 64> digest{};
  digest[1] = '\xFF';
  std::string text = "00 ff ";
  for (int i = 2; i < 64; ++i) {
    text += "00 ";
  }
  const Lines lines = logged([&] { show_hash_hex(0, "t", digest.data()); });
  EXPECT_EQ(lines, (Lines{{"show_hash_hex", "t:" + text}}));
}

TEST_F(DigestsTest, ShowKnowsNoOtherType) {
  std::array<char, 64> digest{};
  EXPECT_EQ(logged([&] { show_hash_hex(1, "title:", digest.data()); }),
            (Lines{{"show_hash_hex", "Invalid hash len: 1"}}));
  EXPECT_EQ(logged([&] { show_hash_hex(-3, "title:", digest.data()); }),
            (Lines{{"show_hash_hex", "Invalid hash len: -3"}}));
}

}  // namespace
