// SPDX-License-Identifier: Apache-2.0
#include "zozale/capture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/captured.h"

namespace zozale::tool {
namespace {

std::vector<std::string> captured(const std::function<void()>& body) {
  std::vector<std::string> lines;
  {
    const Capture capture([&lines](std::string_view line) { lines.emplace_back(line); }, [] {});
    body();
  }
  return lines;
}

TEST(CaptureTest, TakesLinesOffStandardOutput) {
  std::vector<std::string> lines;
  const std::string out = support::printed([&lines] {
    printf("before\n");
    lines = captured([] { printf("one\ntwo\n"); });
    printf("after\n");
  });
  EXPECT_EQ(lines, (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(out, "before\nafter\n");
}

TEST(CaptureTest, TakesWhatIsWrittenPastStdio) {
  EXPECT_EQ(captured([] { EXPECT_EQ(write(STDOUT_FILENO, "raw\n", 4), 4); }),
            std::vector<std::string>{"raw"});
}

TEST(CaptureTest, HandsOnALastLineWithoutALineFeed) {
  EXPECT_EQ(captured([] { printf("a\nrest"); }), (std::vector<std::string>{"a", "rest"}));
}

TEST(CaptureTest, NeverWaitsForAFullPipe) {
  constexpr int kLines = 200000;
  const auto lines = captured([] {
    for (int i = 0; i < kLines; ++i) {
      printf("line %d with some more text to fill the pipe\n", i);
    }
  });
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(kLines));
  EXPECT_EQ(lines.back(), "line 199999 with some more text to fill the pipe");
}

TEST(CaptureTest, TakesALineLongerThanThePipe) {
  const std::string line(300000, 'x');
  EXPECT_EQ(captured([&line] { printf("%s\n", line.c_str()); }), std::vector<std::string>{line});
}

// A daemon that the library starts may keep standard output open for ever.
TEST(CaptureTest, EndsWhileAChildStillHoldsThePipe) {
  int to_child[2];
  ASSERT_EQ(pipe(to_child), 0);
  const auto lines = captured([&to_child] {
    printf("line\n");
    fflush(stdout);
    if (fork() == 0) {
      char byte = 0;
      close(to_child[1]);
      _exit(read(to_child[0], &byte, 1) == 0 ? 0 : 1);
    }
  });
  EXPECT_EQ(lines, std::vector<std::string>{"line"});
  close(to_child[0]);
  close(to_child[1]);
}

TEST(CaptureTest, LeavesNoDescriptorOpen) {
  const int before = dup(STDIN_FILENO);
  close(before);
  captured([] { printf("line\n"); });
  const int after = dup(STDIN_FILENO);
  close(after);
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace zozale::tool
