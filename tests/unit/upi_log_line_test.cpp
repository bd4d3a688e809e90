// SPDX-License-Identifier: Apache-2.0
//
// Diagnostics, on the console and in the log file; and the clocks that stamp them.
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <vector>

#include "tests/unit/fake_clock.h"
#include "tests/unit/log_test.h"
#include "upi_log.h"
#include "upi_public.h"
#include "upi_upgrade_package.h"

namespace {

// While one exists, it answers gettimeofday(); each question moves it on.
class Clock {
 public:
  explicit Clock(long seconds, long microseconds, long step = 0)
      : seconds_(seconds), microseconds_(microseconds), step_(step) {
    current = this;
  }
  ~Clock() { current = nullptr; }
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;

  timeval read() {
    const timeval now = {seconds_, microseconds_};
    microseconds_ += step_;
    ++asked_;
    return now;
  }
  int asked() const { return asked_; }

  static Clock* current;

 private:
  long seconds_;
  long microseconds_;
  long step_;
  int asked_ = 0;
};
Clock* Clock::current = nullptr;

}  // namespace

// The library finds this one before the C library's.
extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  if (Clock::current != nullptr) {
    *now = Clock::current->read();
    return 0;
  }
  timespec real{};
  const long result = syscall(SYS_clock_gettime, CLOCK_REALTIME, &real);
  *now = {real.tv_sec, real.tv_nsec / 1000};
  return static_cast<int>(result);
}

namespace unit {
namespace {

using support::LogLine;
using support::printed;

// --- The clocks. --------------------------------------------------------------------------------

TEST(TimeText, IsSecondsAndSixDigitsOfMicroseconds) {
  const Clock clock(1700000000, 42);
  EXPECT_STREQ(upi_get_time_us(), "1700000000:000042");
}

TEST(TimeText, NeedsNoPaddingForLargeMicroseconds) {
  const Clock clock(7, 999999);
  EXPECT_STREQ(upi_get_time_us(), "7:999999");
}

TEST(TimeText, MayLieBeforeTheEpoch) {
  const Clock clock(-12, 42);
  EXPECT_STREQ(upi_get_time_us(), "-12:000042");
}

TEST(TimeText, StandsInOneBufferThatTheNextCallOverwrites) {
  const Clock clock(1700000000, 5, 2);
  const char* const first = upi_get_time_us();
  EXPECT_STREQ(first, "1700000000:000005");
  const char* const second = upi_get_time_us();
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "1700000000:000007");
}

TEST(Timestamp, CountsMicrosecondsOfTheWallClock) {
  const FakeClock clock({12345678});
  EXPECT_EQ(timestamp_now(), 12345678U);
}

TEST(Timestamp, WrapsAt32Bits) {
  const FakeClock clock({4294967295, 4294967296, 1700000000123456});
  EXPECT_EQ(timestamp_now(), 0xFFFFFFFFU);
  EXPECT_EQ(timestamp_now(), 0U);
  EXPECT_EQ(timestamp_now(), static_cast<unsigned>(1700000000123456ULL));
}

// --- Diagnostics. -------------------------------------------------------------------------------

TEST_F(LogTest, DiagnosticHasTimeTagFunctionAndLine) {
  const Clock clock(1700000000, 7);
  const std::string console = printed([] { upi_check_file_existence("/cache/none"); });
  const std::string before = "[1700000000:000007][fota_upi] [upi_check_file_existence-";
  const std::string behind = "]: /cache/none not exist\n";
  ASSERT_GT(console.size(), before.size() + behind.size());
  EXPECT_EQ(console.substr(0, before.size()), before);
  EXPECT_EQ(console.substr(console.size() - behind.size()), behind);
  const std::string line =
      console.substr(before.size(), console.size() - before.size() - behind.size());
  EXPECT_EQ(line.find_first_not_of("0123456789"), std::string::npos) << line;
}

TEST_F(LogTest, FileHoldsTheDiagnosticAndTheTrailer) {
  std::string console;
  {
    const Clock clock(1700000000, 7);
    console = printed([] { upi_check_file_existence("/cache/none"); });
  }
  EXPECT_EQ(console.substr(0, 30), "[1700000000:000007][fota_upi] ");
  EXPECT_EQ(device().read_file(kLog), console + " \n ");
}

TEST_F(LogTest, ClockIsAskedForEachDestination) {
  const Clock clock(1700000000, 1, 1);
  EXPECT_EQ(printed([] { upi_check_file_existence("/cache/none"); }).substr(0, 20),
            "[1700000000:000001][");
  EXPECT_EQ(device().read_file(kLog).substr(0, 20), "[1700000000:000002][");
  EXPECT_EQ(clock.asked(), 2);
}

TEST_F(LogTest, DiagnosticIsOneWriteToTheFile) {
  watch_flushes();
  const sim::Recording recording;
  const std::string console = printed([] { upi_check_file_existence("/cache/none"); });
  const auto writes = recording.calls(sim::Op::write, kLog);
  ASSERT_EQ(writes.size(), 1U);
  EXPECT_EQ(writes[0].length, console.size() + kTrailer);
}

std::string long_path(std::size_t length) {
  std::string path = "/cache";
  while (path.size() < length) {
    path += "/" + std::string(49, 'p');
  }
  path.resize(length);
  return path;
}

// The file's copy is cut to 509 characters, line feed and all; the console's is whole.
TEST_F(LogTest, LongDiagnosticIsCutInTheFileOnly) {
  const Clock clock(1700000000, 7);
  std::string file;
  for (const std::size_t length : {1010U, 1200U, 1250U, 1300U, 4000U, 20000U}) {
    const std::string path = long_path(length);
    const std::string console = printed([&] { upi_check_file_existence(path.c_str()); });
    EXPECT_EQ(support::parse_console(console),
              (std::vector<LogLine>{{"upi_check_file_existence", path + " not exist"}}));
    file += console.substr(0, 509) + " \n ";
    EXPECT_EQ(device().read_file(kLog), file);
  }
}

TEST_F(LogTest, DiagnosticOfEveryLengthIsWholeOnTheConsole) {
  const std::string console = printed([] {
    for (std::size_t length = 400; length < 1500; ++length) {
      upi_check_file_existence(long_path(length).c_str());
    }
  });
  const auto lines = support::parse_console(console);
  ASSERT_EQ(lines.size(), 1100U);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    ASSERT_EQ(lines[i], (LogLine{"upi_check_file_existence", long_path(400 + i) + " not exist"}));
  }
}

TEST_F(LogTest, ErrnoFollowsADiagnosticOfEveryLength) {
  std::vector<LogLine> expected;
  const auto lines = support::logged([&] {
    for (std::size_t length = 1100; length < 1500; ++length) {
      const std::string path = long_path(length);
      const std::string message =
          "Open upgrade package file[" + path + "] error, error:2[No such file or directory]";
      expected.push_back({"init_upgrade_package_info", message});
      EXPECT_EQ(init_upgrade_package_info(path.c_str()), -1);
    }
  });
  ASSERT_EQ(lines.size(), 2 * expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(lines[2 * i + 1], expected[i]);
  }
}

TEST_F(LogTest, DiagnosticOf509CharactersIsWholeInTheFile) {
  const Clock clock(1700000000, 7);
  const std::string probe = printed([] { upi_check_file_existence("/cache/none"); });
  const std::size_t frame = probe.size() - std::string("/cache/none").size();
  for (const std::size_t length : {std::size_t{509}, std::size_t{510}}) {
    static_cast<void>(printed([] { upi_close_logfile(); }));
    device().remove_file(kLog);
    const std::string path = long_path(length - frame);
    const std::string console = printed([&] { upi_check_file_existence(path.c_str()); });
    ASSERT_EQ(console.size(), length);
    const std::string file = device().read_file(kLog);
    EXPECT_EQ(file, console.substr(0, 509) + " \n ");
  }
}

TEST_F(LogTest, TextOfADiagnosticIsNoFormat) {
  const auto lines = support::logged([] { upi_check_file_existence("/cache/%s%n%d"); });
  EXPECT_EQ(lines, (std::vector<LogLine>{{"upi_check_file_existence", "/cache/%s%n%d not exist"}}));
  EXPECT_EQ(support::log_file(device()), lines);
}

TEST_F(LogTest, LogThatCannotBeOpenedCostsTheFileCopyOnly) {
  fail_always(sim::Op::fopen, kLog, EACCES);
  const std::string console = printed([] { upi_check_file_existence("/cache/none"); });
  const std::string told = "fopen /cache/ovu_fota_ab/upi_ab.log failed \n";
  EXPECT_EQ(console.substr(console.size() - told.size()), told);
  EXPECT_NE(console.find("/cache/none not exist\n"), std::string::npos);
  EXPECT_FALSE(device().has_file(kLog));
}

}  // namespace
}  // namespace unit
