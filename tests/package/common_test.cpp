// SPDX-License-Identifier: Apache-2.0
//
// What the tools share: texts, digests, files.
#include "common/error.h"
#include "common/file.h"
#include "common/sha512.h"
#include "common/text.h"
#include "support.h"

#include <sys/stat.h>

namespace package_test {
namespace {

using zozale::Digest;
using zozale::Error;
using zozale::InputFile;
using zozale::OutputFile;
using zozale::Sha512;

TEST(Text, ShowsUnprintableBytesAsHex) {
  EXPECT_EQ(zozale::printable("kernel ~!"), "kernel ~!");
  EXPECT_EQ(zozale::printable(std::string("a\0b\x1b\x7f\xffz", 7)), "a\\x00b\\x1b\\x7f\\xffz");
  EXPECT_EQ(zozale::printable("\\x00"), "\\\\x00");
  EXPECT_EQ(zozale::in_quotes("a\n"), "\"a\\x0a\"");
}

TEST(Text, ShowsSizesInTheLargestUnit) {
  EXPECT_EQ(zozale::human_size(0), "0 bytes");
  EXPECT_EQ(zozale::human_size(1), "1 byte");
  EXPECT_EQ(zozale::human_size(1023), "1023 bytes");
  EXPECT_EQ(zozale::human_size(1024), "1.0 KiB (1024 bytes)");
  EXPECT_EQ(zozale::human_size(1024 * 1024 - 1), "1023.9 KiB (1048575 bytes)");
  EXPECT_EQ(zozale::human_size(0x7FFFFFFF), "1.9 GiB (2147483647 bytes)");
  EXPECT_EQ(zozale::human_size(UINT64_MAX), "15.9 EiB (18446744073709551615 bytes)");
}

TEST(Text, TakesAFieldUpToItsTerminatorOrItsEnd) {
  const char terminated[4] = {'a', 'b', '\0', 'c'};
  const char full[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(zozale::field_text(terminated), "ab");
  EXPECT_EQ(zozale::field_text(full), "abcd");
}

TEST(Digests, HashAsTheStandardSays) {
  Sha512 hash;
  EXPECT_EQ(zozale::hex(hash.digest()).substr(0, 16), "cf83e1357eefb8bd");
  hash.update("a", 1);
  hash.update("bc", 2);
  EXPECT_EQ(zozale::hex(hash.digest()).substr(0, 16), "ddaf35a193617aba");
  EXPECT_EQ(hash.digest(), sha512("abc"));
}

TEST(Digests, GoOnAfterADigestWasTaken) {
  Sha512 hash;
  hash.update("ab", 2);
  EXPECT_EQ(hash.digest(), sha512("ab"));
  Sha512 copy = hash;
  copy.update("x", 1);
  hash.update("c", 1);
  EXPECT_EQ(hash.digest(), sha512("abc"));
  EXPECT_EQ(copy.digest(), sha512("abx"));
}

TEST(Digests, CountWhatAStringComparisonSees) {
  Digest digest;
  digest.fill(7);
  EXPECT_EQ(zozale::compared_bytes(digest), 64U);
  EXPECT_FALSE(zozale::has_zero_byte(digest));
  digest[63] = 0;
  EXPECT_EQ(zozale::compared_bytes(digest), 64U);
  EXPECT_TRUE(zozale::has_zero_byte(digest));
  digest[5] = 0;
  EXPECT_EQ(zozale::compared_bytes(digest), 6U);
  digest[0] = 0;
  EXPECT_EQ(zozale::compared_bytes(digest), 1U);
}

// strncmp() itself is the measure of compared_bytes().
TEST(Digests, CompareAsFarAsStrncmpDoes) {
  for (size_t zero = 0; zero < 64; ++zero) {
    Digest digest;
    digest.fill(7);
    digest[zero] = 0;
    for (size_t changed = 0; changed < 64; ++changed) {
      Digest other = digest;
      other[changed] ^= 1U;
      const bool seen = strncmp(reinterpret_cast<const char*>(digest.data()),
                                reinterpret_cast<const char*>(other.data()), 64) != 0;
      EXPECT_EQ(seen, changed < zozale::compared_bytes(digest)) << zero << " " << changed;
    }
  }
}

TEST(Digests, OfARangeReadOnlyTheRange) {
  const std::string bytes = pattern(700000, 1);
  const zozale::MemorySource source(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  EXPECT_EQ(zozale::hash_range(source, 0, bytes.size()).digest(), sha512(bytes));
  EXPECT_EQ(zozale::hash_range(source, 3, 600000).digest(), sha512(bytes.substr(3, 600000)));
  EXPECT_EQ(zozale::hash_range(source, 5, 0).digest(), sha512(""));
  EXPECT_THROW(zozale::hash_range(source, 1, bytes.size()), Error);
}

class Files : public FolderTest {};

TEST_F(Files, ReadAtAnyPosition) {
  const InputFile file(write("a", "0123456789"));
  char buffer[4] = {};
  file.read_at(6, buffer, 4);
  EXPECT_EQ(std::string(buffer, 4), "6789");
  EXPECT_EQ(file.size(), 10U);
}

TEST_F(Files, SayWhereTheyWereCutWhileRead) {
  const std::string name = write("a", "0123456789");
  const InputFile file(name);
  std::filesystem::resize_file(name, 4);
  char buffer[10] = {};
  EXPECT_EQ(error_of([&] { file.read_at(0, buffer, 10); }),
            "1 cannot read \"" + name + "\": it ends at byte 4; it was cut while it was read");
}

TEST_F(Files, AreRegularOrRefused) {
  EXPECT_EQ(error_of([&] { InputFile file(path("none")); }),
            "1 cannot open \"" + path("none") + "\": No such file or directory");
  EXPECT_EQ(error_of([&] { InputFile file(folder()); }),
            "1 cannot read \"" + folder().string() + "\": it is not a regular file");
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(error_of([&] { InputFile file(path("pipe")); }),
            "1 cannot read \"" + path("pipe") + "\": it is not a regular file");
}

TEST_F(Files, AppearWholeOrNotAtAll) {
  write("a", "old");
  {
    OutputFile file(path("a"), OutputFile::Existing::kReplace);
    file.append("new", 3);
    EXPECT_EQ(read_bytes(path("a")), "old");
  }
  EXPECT_EQ(read_bytes(path("a")), "old");
  EXPECT_THAT(files(), ElementsAre("a"));
}

TEST_F(Files, ReplaceWhatStoodThere) {
  write("a", "old");
  OutputFile file(path("a"), OutputFile::Existing::kReplace);
  file.append("..w", 3);
  file.write_at(0, "ne", 2);
  EXPECT_EQ(file.size(), 3U);
  file.commit();
  EXPECT_EQ(read_bytes(path("a")), "new");
  EXPECT_THAT(files(), ElementsAre("a"));
}

TEST_F(Files, HaveTheModeThatAnyNewFileHas) {
  const mode_t mask = umask(027);
  OutputFile file(path("a"), OutputFile::Existing::kRefuse);
  file.commit();
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat(path("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(Files, AreNotReplacedUnasked) {
  write("a", "old");
  EXPECT_EQ(error_of([&] { OutputFile file(path("a"), OutputFile::Existing::kRefuse); }),
            "1 \"" + path("a") + "\" exists; give --force to replace it");
  EXPECT_EQ(read_bytes(path("a")), "old");
}

TEST_F(Files, DoNotReplaceWhatIsNoFile) {
  std::filesystem::create_symlink("elsewhere", path("link"));
  EXPECT_EQ(error_of([&] { OutputFile file(path("link"), OutputFile::Existing::kReplace); }),
            "1 cannot replace \"" + path("link") + "\": it is not a regular file");
  EXPECT_EQ(error_of([&] { OutputFile file("/dev/null", OutputFile::Existing::kReplace); }),
            "1 cannot replace \"/dev/null\": it is not a regular file");
}

TEST_F(Files, NameTheFileThatCannotBeMade) {
  const std::string name = path("none/a");
  EXPECT_EQ(error_of([&] { OutputFile file(name, OutputFile::Existing::kReplace); }),
            "1 cannot create \"" + name + "\": No such file or directory");
}

TEST_F(Files, OfTextHaveALimit) {
  const std::string name = write("a", "12345");
  EXPECT_EQ(zozale::read_text_file(name, 5), "12345");
  EXPECT_EQ(error_of([&] { zozale::read_text_file(name, 4); }),
            "1 cannot read \"" + name + "\": it has 5 bytes, at most 4 bytes are read");
  EXPECT_EQ(zozale::read_text_file(write("empty", ""), 4), "");
}

}  // namespace
}  // namespace package_test
