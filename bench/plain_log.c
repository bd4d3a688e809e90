/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What a log line costs when it is made the plain way: formatted and printed, then a buffer
 * cleared, the line formatted again, printed to the file and flushed, each time stamp formatted on
 * its way. It writes the two lines that a bad block causes, byte for byte and with the rotation of
 * the library's log, so that both ways can be compared.
 *
 *   plain_log LINES
 */
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#define LOG "/cache/ovu_fota_ab/upi_ab.log"
#define ROTATE_AT 0x100000

#define SAY(function, line, format, ...)                                                \
  do {                                                                                  \
    char text[512];                                                                     \
    printf("[%s][fota_upi] [%s-%d]: " format "\n", now(), function, line, __VA_ARGS__); \
    memset(text, 0, sizeof text);                                                       \
    snprintf(text, 510, "[%s][fota_upi] [%s-%d]: " format "\n", now(), function, line,  \
             __VA_ARGS__);                                                              \
    append(text);                                                                       \
  } while (0)

static FILE* log_stream;
static int log_size;

static const char* now(void) {
  static char text[64];
  struct timeval time;
  memset(text, 0, sizeof text);
  gettimeofday(&time, NULL);
  snprintf(text, 63, "%ld:%06ld", (long)time.tv_sec, (long)time.tv_usec);
  return text;
}

static void append(const char* text) {
  if (log_stream == NULL) {
    log_stream = fopen(LOG, "a+");
    if (log_stream == NULL) {
      perror(LOG);
      exit(1);
    }
    fseek(log_stream, 0, SEEK_END);
    log_size = (int)ftell(log_stream);
  }
  log_size += fprintf(log_stream, "%s \n ", text);
  fflush(log_stream);
  if (log_size >= ROTATE_AT) {
    fclose(log_stream);
    log_stream = NULL;
    rename(LOG, LOG "_bak");
  }
}

static void say(int number, int index) {
  if (number % 2 == 0) {
    errno = 0;
    SAY("checkGoodAddress", 19, "Partition file description:%d, BAD address [%d], errno no:%d[%s]",
        5, index * 131072, errno, strerror(errno));
  } else {
    SAY("translateToGoodAddress", 64, "Index:%d, bad block!", index);
  }
}

int main(int argc, char** argv) {
  const long lines = argc == 2 ? strtol(argv[1], NULL, 10) : -1;
  if (lines < 0 || lines > INT_MAX) {
    fprintf(stderr, "usage: plain_log LINES\n");
    return 2;
  }
  for (long i = 0; i < lines; i++) {
    say((int)i, (int)(i / 2 % 64));
  }
  return 0;
}
