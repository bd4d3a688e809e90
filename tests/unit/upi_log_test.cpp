// SPDX-License-Identifier: Apache-2.0
//
// The log file: its entries, its folder, its rotation.
#include "upi_log.h"

#include <unistd.h>

#include <cerrno>

#include "tests/unit/log_test.h"
#include "upi_public.h"

namespace unit {
namespace {

using support::LogLine;
using support::printed;

constexpr char kFolder[] = "/cache/ovu_fota_ab/";
constexpr char kBackup[] = "/cache/ovu_fota_ab/upi_ab.log_bak";
constexpr std::size_t kLimit = 1048576;

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(LogTest, EntryIsFollowedByBlankLineFeedBlank) {
  EXPECT_EQ(append("one\n"), "");
  EXPECT_EQ(append("two"), "");
  EXPECT_EQ(device().read_file(kLog), "one\n \n two \n ");
}

TEST_F(LogTest, EntryIsNoFormat) {
  EXPECT_EQ(append("100% %s %n"), "");
  EXPECT_EQ(device().read_file(kLog), "100% %s %n \n ");
}

TEST_F(LogTest, EmptyEntryIsTheTrailerAlone) {
  append("");
  EXPECT_EQ(device().read_file(kLog), " \n ");
}

TEST_F(LogTest, NullFileNameWritesNothing) {
  char info[] = "text";
  EXPECT_EQ(printed([&] { upi_fwrite(nullptr, info); }), "filename is err.\n");
  EXPECT_FALSE(device().has_file(kLog));
  EXPECT_EQ(device().count(sim::Op::fopen), 0U);
}

TEST_F(LogTest, EmptyFileNameWritesNothing) {
  EXPECT_EQ(append("text", ""), "filename is err.\n");
  EXPECT_FALSE(device().has_file(kLog));
  EXPECT_EQ(device().count(sim::Op::fopen), 0U);
}

TEST_F(LogTest, EmptyFileNameWritesNothingToAnOpenLogEither) {
  append("one");
  EXPECT_EQ(append("two", ""), "filename is err.\n");
  EXPECT_EQ(device().read_file(kLog), "one \n ");
}

TEST_F(LogTest, OpensOnTheFirstEntryOnly) {
  const sim::Recording recording;
  append("one");
  append("two");
  const auto asked = recording.calls(sim::Op::access);
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_EQ(asked[0].flags, R_OK);
  const auto opened = recording.calls(sim::Op::fopen);
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_EQ(opened[0].path, kLog);
  EXPECT_EQ(opened[0].text, "a+");
  EXPECT_TRUE(recording.calls(sim::Op::mkdir).empty());
  EXPECT_TRUE(recording.calls(sim::Op::fclose).empty());
}

TEST_F(LogTest, OpenStreamKeepsItsFileWhateverNameComesNext) {
  append("one");
  append("two", "/cache/ovu_fota_ab/other.log");
  EXPECT_EQ(device().read_file(kLog), "one \n two \n ");
  EXPECT_FALSE(device().has_file("/cache/ovu_fota_ab/other.log"));
}

TEST_F(LogTest, AppendsToWhatIsThere) {
  device().write_file(kLog, "before\n");
  append("one");
  EXPECT_EQ(device().read_file(kLog), "before\none \n ");
}

TEST_F(LogTest, EveryEntryIsOneWrite) {
  watch_flushes();
  const sim::Recording recording;
  append("one");
  append("three");
  const auto writes = recording.calls(sim::Op::write, kLog);
  ASSERT_EQ(writes.size(), 2U);
  EXPECT_EQ(writes[0].length, 3 + kTrailer);
  EXPECT_EQ(writes[1].length, 5 + kTrailer);
}

// --- The work folder. ---------------------------------------------------------------------------

TEST_F(LogTest, MakesTheMissingWorkFolder) {
  remove_folder("/cache/ovu_fota_ab");
  const sim::Recording recording;
  EXPECT_EQ(append("one"), "");
  EXPECT_EQ(device().read_file(kLog), "one \n ");
  const auto made = recording.calls(sim::Op::mkdir);
  ASSERT_EQ(made.size(), 1U);
  EXPECT_EQ(made[0].flags, 0777);
}

// The second attempt to make the folder finds it made, which is told and does no harm.
TEST_F(LogTest, MakesTheWorkFolderWithAllAncestorsMissing) {
  remove_folder("/cache");
  EXPECT_EQ(
      support::parse_console(append("one")),
      (std::vector<LogLine>{{"upi_create_folder", "Create folder problem value: -1, errno: 17"}}));
  EXPECT_EQ(append("two"), "");
  EXPECT_TRUE(std::filesystem::is_directory(device().host_path(kFolder)));
  const std::string file = device().read_file(kLog);
  const std::string tail = "one \n two \n ";
  ASSERT_GE(file.size(), tail.size());
  EXPECT_EQ(file.substr(file.size() - tail.size()), tail);
}

TEST_F(LogTest, FolderThatCannotBeMadeIsToldOnceAndCostsTheFileOnly) {
  remove_folder("/cache/ovu_fota_ab");
  fail_always(sim::Op::mkdir, "", EACCES);
  const std::string console = append("one");
  EXPECT_EQ(occurrences(console, "Create folder problem value: -1, errno: 13\n"), 1U);
  EXPECT_GE(occurrences(console, "fopen /cache/ovu_fota_ab/upi_ab.log failed \n"), 1U);
  EXPECT_FALSE(device().has_file(kLog));
}

TEST_F(LogTest, DiagnosticIsPrintedWhenTheFolderCannotBeMade) {
  remove_folder("/cache/ovu_fota_ab");
  fail_always(sim::Op::mkdir, "", EACCES);
  const auto lines = support::logged([] { upi_check_file_existence("/cache/none"); });
  EXPECT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], (LogLine{"upi_check_file_existence", "/cache/none not exist"}));
  EXPECT_EQ(lines[1].function, "upi_create_folder");
}

TEST_F(LogTest, WorkFolderIsTriedAgainWithTheNextEntry) {
  remove_folder("/cache/ovu_fota_ab");
  fail(sim::Op::mkdir, "", EACCES);
  append("lost");
  append("kept");
  const std::string file = device().read_file(kLog);
  EXPECT_EQ(file.find("lost"), std::string::npos);
  EXPECT_NE(file.find("kept \n "), std::string::npos);
}

TEST_F(LogTest, FileThatCannotBeOpenedIsTriedAgain) {
  fail(sim::Op::fopen, kLog, EMFILE);
  EXPECT_EQ(append("lost"), "fopen /cache/ovu_fota_ab/upi_ab.log failed \n");
  EXPECT_EQ(append("kept"), "");
  EXPECT_EQ(device().read_file(kLog), "kept \n ");
}

// --- Rotation. ----------------------------------------------------------------------------------

TEST_F(LogTest, RotatesAtExactlyOneMebibyte) {
  put_log(kLimit - 10 - kTrailer);
  EXPECT_EQ(append("0123456789"), "");
  EXPECT_EQ(size_of(kBackup), kLimit);
  EXPECT_FALSE(device().has_file(kLog));
  append("next");
  EXPECT_EQ(device().read_file(kLog), "next \n ");
}

TEST_F(LogTest, DoesNotRotateOneByteBelow) {
  put_log(kLimit - 1 - 10 - kTrailer);
  append("0123456789");
  EXPECT_FALSE(device().has_file(kBackup));
  EXPECT_EQ(size_of(kLog), kLimit - 1);
  append("");
  EXPECT_EQ(size_of(kBackup), kLimit - 1 + kTrailer);
  EXPECT_FALSE(device().has_file(kLog));
}

TEST_F(LogTest, CountsItsOwnEntriesTowardsTheLimit) {
  const std::string entry(65536 - kTrailer, 'e');
  for (int i = 0; i < 15; ++i) {
    append(entry);
  }
  EXPECT_FALSE(device().has_file(kBackup));
  append(entry);
  EXPECT_EQ(size_of(kBackup), kLimit);
  EXPECT_FALSE(device().has_file(kLog));
}

TEST_F(LogTest, RotationReplacesTheEarlierBackup) {
  put_log(kLimit);
  append("first");
  EXPECT_EQ(size_of(kBackup), kLimit + 5 + kTrailer);
  append(std::string(kLimit, 's'));
  const std::string backup = device().read_file(kBackup);
  EXPECT_EQ(backup.size(), kLimit + kTrailer);
  EXPECT_EQ(backup.substr(0, 3), "sss");
  EXPECT_FALSE(device().has_file(kLog));
}

TEST_F(LogTest, RotationClosesTheStream) {
  put_log(kLimit);
  const sim::Recording recording;
  append("one");
  EXPECT_EQ(recording.calls(sim::Op::fclose, kLog).size(), 1U);
  EXPECT_TRUE(sim::open_descriptors().empty());
}

TEST_F(LogTest, FailingRenameIsToldAndKeepsTheLog) {
  put_log(kLimit);
  fail(sim::Op::rename, kLog, EACCES);
  EXPECT_EQ(append("one"), "rename file fail:/cache/ovu_fota_ab/upi_ab.log!\n");
  EXPECT_FALSE(device().has_file(kBackup));
  EXPECT_EQ(size_of(kLog), kLimit + 3 + kTrailer);
  EXPECT_EQ(append("two"), "");
  EXPECT_EQ(size_of(kBackup), kLimit + 6 + 2 * kTrailer);
}

TEST_F(LogTest, FailingRenameRemovesNoLogHoweverLarge) {
  put_log(3 * kLimit);
  fail_always(sim::Op::rename, kLog, EACCES);
  const sim::Recording recording;
  append("one");
  append("two");
  EXPECT_EQ(size_of(kLog), 3 * kLimit + 6 + 2 * kTrailer);
  EXPECT_TRUE(recording.calls(sim::Op::unlink).empty());
}

// Cut to 1022 characters, as the name's buffer has it.
TEST_F(LogTest, BackupNameIsCutAtItsLimit) {
  std::string name = "/cache";
  while (name.size() < 1000) {
    name += "/" + std::string(99, 'd');
  }
  name.resize(1020, 'f');
  device().write_file(name, std::string(kLimit, 'x'));
  EXPECT_EQ(append("one", name), "");
  EXPECT_TRUE(device().has_file(name + "_b"));
  EXPECT_FALSE(device().has_file(name + "_bak"));
}

// --- Errors while writing, closing. -------------------------------------------------------------

// Larger than any stream's buffer: the stream must write while it formats.
const std::string kLargeEntry(100000, 'l');

TEST_F(LogTest, WriteErrorIsToldAndForgetsTheStream) {
  fail(sim::Op::stream_write, kLog, ENOSPC);
  const sim::Recording recording;
  EXPECT_EQ(append(kLargeEntry), "write failed  28(No space left on device)\n");
  EXPECT_EQ(recording.calls(sim::Op::fclose, kLog).size(), 1U);
  EXPECT_EQ(append("kept"), "");
  EXPECT_EQ(recording.calls(sim::Op::fopen, kLog).size(), 2U);
  const std::string file = device().read_file(kLog);
  ASSERT_GE(file.size(), 7U);
  EXPECT_EQ(file.substr(file.size() - 7), "kept \n ");
}

TEST_F(LogTest, WriteErrorDoesNotRotate) {
  put_log(kLimit - 1);
  fail(sim::Op::stream_write, kLog, EIO);
  EXPECT_EQ(append(kLargeEntry), "write failed  5(Input/output error)\n");
  EXPECT_FALSE(device().has_file(kBackup));
}

TEST_F(LogTest, CloseTellsAPathOfItsOwn) {
  EXPECT_EQ(printed([] { upi_close_logfile(); }), "Close /cache/fota_ab/upi_ab.log file!\n");
}

TEST_F(LogTest, CloseClosesAndTheNextEntryOpensAgain) {
  append("one");
  const sim::Recording recording;
  EXPECT_EQ(printed([] { upi_close_logfile(); }), "Close /cache/fota_ab/upi_ab.log file!\n");
  EXPECT_TRUE(sim::open_descriptors().empty());
  EXPECT_EQ(printed([] { upi_close_logfile(); }), "Close /cache/fota_ab/upi_ab.log file!\n");
  EXPECT_EQ(recording.calls(sim::Op::fclose).size(), 1U);
  append("two");
  EXPECT_EQ(recording.calls(sim::Op::fopen, kLog).size(), 1U);
  EXPECT_EQ(device().read_file(kLog), "one \n two \n ");
}

}  // namespace
}  // namespace unit
