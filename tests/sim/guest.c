// SPDX-License-Identifier: Apache-2.0
//
// A host program as any: it knows nothing of a simulated device. Built with and without
// _FORTIFY_SOURCE and _FILE_OFFSET_BITS=64; both must see the same device.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#define WRITABLE 0x80044D18UL

int sc_cfg_set(const char* name, const char* value) __attribute__((weak));
int sc_cfg_save(void) __attribute__((weak));

static unsigned char page[512];

static void show(const char* what, long result) {
  printf("%s %ld%s%s\n", what, result, result < 0 ? " " : "", result < 0 ? strerror(errno) : "");
}

static void show_files(void) {
  char line[128];
  FILE* table = fopen("/proc/mtd", "r");
  while (table != NULL && fgets(line, sizeof line, table) != NULL) {
    fputs(line, stdout);
  }
  if (table != NULL) {
    fclose(table);
  }
}

// The length is not known when this is compiled: a fortified build calls __read_chk().
static void show_flash(int fd, size_t length) {
  show("read", (long)read(fd, page, length));
  printf("bytes %02x %02x\n", page[0], page[1]);
}

static void rewrite(int fd) {
  struct erase_info_user range = {0, 2048};
  show("erase protected", ioctl(fd, MEMERASE, &range));
  show("lift", ioctl(fd, WRITABLE, 0));
  show("erase", ioctl(fd, MEMERASE, &range));
  memset(page, 0x5A, sizeof page);
  show("write", (long)write(fd, page, sizeof page));
  show("seek", (long)lseek(fd, 0, SEEK_SET));
}

static void use_flash(size_t length) {
  loff_t block = 2048;
  int flags = O_RDWR | O_DSYNC;
  int fd = open("/dev/mtd1", flags);
  rewrite(fd);
  show_flash(fd, length);
  show("bad", ioctl(fd, MEMGETBADBLOCK, &block));
  show("sync", fsync(fd));
  show("close", close(fd));
}

static void use_files(void) {
  struct stat info;
  FILE* out;
  show("mkdir", mkdir("/cache/guest", 0777));
  out = fopen("/cache/guest/file", "w");
  fputs("hello", out);
  fclose(out);
  show("stat", stat("/cache/guest/file", &info));
  printf("size %ld\n", (long)info.st_size);
  show("rename", rename("/cache/guest/file", "/cache/guest/other"));
  show("gone", access("/cache/guest/file", R_OK));
}

static void use_platform(void) {
  show("set", sc_cfg_set != NULL ? sc_cfg_set("guest", "1") : -1);
  show("save", sc_cfg_save != NULL ? sc_cfg_save() : -1);
}

int main(int argc, char** argv) {
  if (argc > 1 && strcmp(argv[1], "reboot") == 0) {
    show("reboot", system("reboot"));
    return 5;
  }
  if (argc > 1 && strcmp(argv[1], "linger") == 0) {
    show("reboot", system("reboot"));
    fflush(stdout);
    pause();
  }
  show_files();
  use_flash(argc > 2 ? 1 : sizeof page);
  use_files();
  use_platform();
  return argc > 1 ? atoi(argv[1]) : 0;
}
