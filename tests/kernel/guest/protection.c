/* SPDX-License-Identifier: Apache-2.0 */
/*
 * protection lift|restore NODE: makes one of the two requests of the platform's flash driver and
 * ends with 0, or with the errno that it got.
 */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    fputs("usage: protection lift|restore NODE\n", stderr);
    return 255;
  }
  const int fd = open(argv[2], O_RDWR);
  const unsigned long request = strcmp(argv[1], "lift") == 0 ? 0x80044D18UL : 0x80044D19UL;
  if (fd >= 0 && ioctl(fd, request, 0) == 0) {
    return 0;
  }
  fprintf(stderr, "%s: %s\n", argv[2], strerror(errno));
  return errno;
}
