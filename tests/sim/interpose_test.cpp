// SPDX-License-Identifier: Apache-2.0
//
// What the interposed C library answers for, and what it leaves alone.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "tests/support/device_test.h"
#include "tests/support/store_functions.h"

namespace {

using sim::Bytes;
using sim::Op;
using support::DeviceTest;

class InterposeTest : public DeviceTest {
 protected:
  static std::string read_all(const char* path) {
    std::string out;
    FILE* file = fopen(path, "r");
    if (file == nullptr) {
      return "cannot be opened";
    }
    char part[64];
    while (fgets(part, sizeof part, file) != nullptr) {
      out += part;
    }
    fclose(file);
    return out;
  }
};

TEST_F(InterposeTest, ShowsTheKernelsFiles) {
  EXPECT_EQ(read_all("/proc/cmdline"), "console=ttyS0,115200 system=system_a rootwait\n");
  EXPECT_EQ(read_all("/proc/mtd"), sim::mtd_text(device().layout()));
  EXPECT_EQ(read_all("/etc_ro/systemPartitionInfo.conf"), sim::table_text(device().layout()));
}

TEST_F(InterposeTest, LeavesOtherPathsAlone) {
  const support::TempFolder folder;
  const std::string file = folder.path() / "file";
  std::ofstream(file) << "hello";
  EXPECT_EQ(read_all(file.c_str()), "hello");
  EXPECT_EQ(device().count(Op::fopen), 0U);
  EXPECT_EQ(access("/cachet", F_OK), -1);
  EXPECT_EQ(device().count(Op::access), 0U);
  EXPECT_EQ(sim::open_descriptors().size(), 0U);
}

TEST_F(InterposeTest, AnswersForNothingWhenDetached) {
  sim::detach();
  EXPECT_EQ(open("/dev/mtd0", O_RDONLY), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(access("/cache", F_OK), -1);
}

TEST_F(InterposeTest, KeepsFilesInTheDeviceFolder) {
  ASSERT_EQ(mkdir("/cache/a", 0777), 0);
  const int fd = open("/cache/a/b", O_CREAT | O_RDWR, 0600);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(write(fd, "hello", 5), 5);
  EXPECT_EQ(lseek(fd, 1, SEEK_SET), 1);
  char text[8] = {};
  EXPECT_EQ(read(fd, text, 8), 4);
  EXPECT_STREQ(text, "ello");
  EXPECT_EQ(sim::open_descriptors().size(), 1U);
  EXPECT_EQ(sim::open_descriptors().front().path, "/cache/a/b");
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(device().read_file("/cache/a/b"), "hello");
  struct stat info {};
  EXPECT_EQ(stat("/cache/a/b", &info), 0);
  EXPECT_EQ(info.st_size, 5);
  EXPECT_EQ(rename("/cache/a/b", "/cache/c"), 0);
  EXPECT_EQ(unlink("/cache/c"), 0);
  EXPECT_EQ(rmdir("/cache/a"), 0);
  EXPECT_FALSE(device().has_file("/cache/a"));
}

TEST_F(InterposeTest, NormalisesPaths) {
  EXPECT_EQ(access("/cache/", F_OK), 0);
  EXPECT_EQ(access("//cache//.", F_OK), 0);
  EXPECT_EQ(access("/tmp/../cache", F_OK), 0);
  EXPECT_EQ(access("/cache/../proc/mtd", F_OK), 0);
  EXPECT_EQ(access("/cache/../tmp", F_OK), 0);
  EXPECT_EQ(access("/cache/..", F_OK), 0);
  EXPECT_EQ(access("/cache/no/../such", F_OK), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(access("", F_OK), -1);
  EXPECT_EQ(access(std::string(2 * PATH_MAX, 'x').c_str(), F_OK), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(InterposeTest, FollowsTheWorkingDirectory) {
  char before[PATH_MAX];
  ASSERT_NE(getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(mkdir("/cache/a", 0777), 0);
  ASSERT_EQ(chdir("/cache/a"), 0);
  EXPECT_EQ(close(open("here", O_CREAT | O_WRONLY, 0600)), 0);
  EXPECT_TRUE(device().has_file("/cache/a/here"));
  EXPECT_EQ(access("../../proc/mtd", F_OK), 0);
  EXPECT_EQ(chdir(before), 0);
}

TEST_F(InterposeTest, TellsDevicePaths) {
  char path[PATH_MAX];
  ASSERT_EQ(mkdir("/cache/a", 0777), 0);
  EXPECT_STREQ(realpath("/cache/./a/", path), "/cache/a");
  EXPECT_STREQ(realpath("/dev/mtd1", path), "/dev/mtd1");
  EXPECT_EQ(realpath("/dev/mtd9", path), nullptr);
  EXPECT_EQ(realpath("/cache/b", path), nullptr);
  char* made = realpath("/cache", nullptr);
  EXPECT_STREQ(made, "/cache");
  free(made);
}

TEST_F(InterposeTest, ListsFolders) {
  device().write_file("/cache/one", "1");
  DIR* folder = opendir("/cache");
  ASSERT_NE(folder, nullptr);
  bool found = false;
  while (const dirent* entry = readdir(folder)) {
    found = found || std::strcmp(entry->d_name, "one") == 0;
  }
  closedir(folder);
  EXPECT_TRUE(found);
}

TEST_F(InterposeTest, ServesCppStreams) {
  std::ofstream("/cache/text") << "line\n";
  std::ifstream in("/cache/text");
  std::string line;
  EXPECT_TRUE(std::getline(in, line));
  EXPECT_EQ(line, "line");
  in.close();
  EXPECT_EQ(device().read_file("/cache/text"), "line\n");
}

TEST_F(InterposeTest, ServesStreamsOfNodes) {
  partition("kernel").flash("flash");
  FILE* node = fopen("/dev/mtd1", "r");
  ASSERT_NE(node, nullptr);
  char text[6] = {};
  EXPECT_EQ(fread(text, 1, 5, node), 5U);
  EXPECT_STREQ(text, "flash");
  EXPECT_EQ(fclose(node), 0);
}

TEST_F(InterposeTest, ServesVectors) {
  partition("kernel").flash("abcdef");
  const int fd = open("/dev/mtd1", O_RDONLY);
  char first[3] = {};
  char second[4] = {};
  const iovec parts[] = {{first, 2}, {second, 3}};
  EXPECT_EQ(readv(fd, parts, 2), 5);
  EXPECT_STREQ(first, "ab");
  EXPECT_STREQ(second, "cde");
  EXPECT_EQ(close(fd), 0);
}

TEST_F(InterposeTest, LeavesErrnoAloneOnSuccess) {
  errno = E2BIG;
  EXPECT_EQ(access("/cache", F_OK), 0);
  EXPECT_EQ(mkdir("/cache/x", 0777), 0);
  const int fd = open("/dev/mtd0", O_RDWR);
  char byte = 0;
  EXPECT_EQ(read(fd, &byte, 1), 1);
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(sc_cfg_set("a", "b"), 0);
  EXPECT_EQ(sc_cfg_save(), 0);
  EXPECT_EQ(errno, E2BIG);
}

// A number that the C library closed by itself must not stay the device's.
TEST_F(InterposeTest, ForgetsWhatAStreamClosed) {
  const int fd = open("/cache/file", O_CREAT | O_RDWR, 0600);
  FILE* stream = fdopen(fd, "r+");
  EXPECT_EQ(fclose(stream), 0);
  EXPECT_EQ(sim::open_descriptors().size(), 0U);
}

TEST_F(InterposeTest, NumbersAreRealDescriptors) {
  const int fd = open("/dev/mtd0", O_RDWR | O_CLOEXEC);
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(close(fd), -1);
  EXPECT_EQ(errno, EBADF);
}

// --- The store. ---------------------------------------------------------------------------------

TEST_F(InterposeTest, StoreKeepsWhatIsSaved) {
  char value[8] = "before";
  EXPECT_EQ(sc_cfg_get("key", value, sizeof value), -1);
  EXPECT_STREQ(value, "before");
  EXPECT_EQ(sc_cfg_set("key", "1"), 0);
  EXPECT_EQ(sc_cfg_get("key", value, sizeof value), 0);
  EXPECT_STREQ(value, "1");
  EXPECT_FALSE(device().store().get("key"));
  EXPECT_EQ(sc_cfg_save(), 0);
  EXPECT_EQ(device().store().get("key"), "1");
  EXPECT_EQ(sim::store_sets().size(), 1U);
  EXPECT_EQ(sim::store_saves(), 1U);
}

TEST_F(InterposeTest, StoreForgetsWhatIsNotSaved) {
  EXPECT_EQ(sc_cfg_set("key", "1"), 0);
  sim::attach(device());
  char value[8] = "before";
  EXPECT_EQ(sc_cfg_get("key", value, sizeof value), -1);
}

TEST_F(InterposeTest, StoreSeesWhatAnotherProcessSaved) {
  EXPECT_TRUE(support::in_child([] { return sc_cfg_set("key", "7") + sc_cfg_save(); }).exited);
  char value[8] = {};
  EXPECT_EQ(sc_cfg_get("key", value, sizeof value), 0);
  EXPECT_STREQ(value, "7");
}

TEST_F(InterposeTest, StoreCopiesAtMostTheLength) {
  device().store().put("key", "abcdef");
  char value[8] = "zzzzzzz";
  EXPECT_EQ(sc_cfg_get("key", value, 3), 0);
  EXPECT_STREQ(value, "abczzzz");
}

TEST_F(InterposeTest, StoreTakesAnyText) {
  const std::string odd = "a=b\\n\n\\e ";
  device().store().put(odd, odd);
  device().store().put("plain", "");
  EXPECT_EQ(device().store().get(odd), odd);
  EXPECT_EQ(device().store().get("plain"), "");
  EXPECT_EQ(device().store().all().size(), 2U);
}

// --- The shell. ---------------------------------------------------------------------------------

TEST_F(InterposeTest, RebootIsRecorded) {
  EXPECT_EQ(system("true"), 0);
  EXPECT_EQ(device().power(), sim::Power::on);
  EXPECT_EQ(system("reboot"), 0);
  EXPECT_EQ(device().power(), sim::Power::rebooting);
  EXPECT_EQ(device().count(Op::reboot), 1U);
}

TEST_F(InterposeTest, OtherCommandsRun) {
  EXPECT_EQ(WEXITSTATUS(system("exit 3")), 3);
  EXPECT_EQ(device().count(Op::reboot), 0U);
  FILE* output = popen("echo hello", "r");
  char line[16] = {};
  EXPECT_NE(fgets(line, sizeof line, output), nullptr);
  EXPECT_STREQ(line, "hello\n");
  EXPECT_EQ(pclose(output), 0);
}

// --- Recording. ---------------------------------------------------------------------------------

TEST_F(InterposeTest, RecordsCallsInOrder) {
  const sim::Recording recording;
  const int fd = open("/dev/mtd1", O_RDWR | O_DSYNC);
  char bytes[10];
  EXPECT_EQ(lseek(fd, 100, SEEK_SET), 100);
  EXPECT_EQ(read(fd, bytes, sizeof bytes), 10);
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(access("/cache/none", R_OK), -1);
  EXPECT_EQ(rename("/cache/none", "/cache/any"), -1);
  ASSERT_EQ(recording.calls().size(), 6U);
  const sim::Call& opened = recording.calls()[0];
  EXPECT_EQ(opened.op, Op::open);
  EXPECT_EQ(opened.path, "/dev/mtd1");
  EXPECT_EQ(opened.partition, "kernel");
  EXPECT_EQ(opened.flags, O_RDWR | O_DSYNC);
  EXPECT_EQ(opened.result, fd);
  EXPECT_EQ(recording.calls()[1].offset, 100U);
  EXPECT_EQ(recording.calls()[2].offset, 100U);
  EXPECT_EQ(recording.calls()[2].length, 10U);
  EXPECT_EQ(recording.calls()[2].result, 10);
  EXPECT_EQ(recording.calls()[4].error, ENOENT);
  EXPECT_EQ(recording.calls()[4].flags, R_OK);
  EXPECT_EQ(recording.calls()[5].path, "/cache/none");
  EXPECT_EQ(recording.calls()[5].text, "/cache/any");
  EXPECT_EQ(recording.calls(Op::read, "kernel").size(), 1U);
  EXPECT_EQ(recording.calls(Op::read, "rootfs").size(), 0U);
}

}  // namespace
