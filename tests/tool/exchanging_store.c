/* SPDX-License-Identifier: Apache-2.0 */
/* A platform's store that changes files when a value is set: at the moments at which the library
 * tells how far it is. EXCHANGE_AT holds the values, one character each, and EXCHANGE_n what is
 * done at the n-th of them (from 0), once each and in order: "FROM TO" renames a file, "+FILE"
 * appends a byte to it.
 *
 * The last status of an upgrade is kept in /cache/upgrade_status.
 *
 * EXCHANGE_BYTE is "OFFSET VALUE FILE": from the first digest on that the tool finishes, until the
 * library begins to verify, the file has this value at this place. The bytes are changed in a
 * mapping that was written to before, which leaves the file's times as they are. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/sha.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save(void);
int sc_cfg_get(const char* name, char* value, int size);

static unsigned char* exchanged_byte = NULL;
static unsigned char other_value = 0;

static void exchange_byte(void) {
  unsigned char value = *exchanged_byte;
  *exchanged_byte = other_value;
  other_value = value;
}

static void map_byte(long offset, const char* path) {
  int fd = open(path, O_RDWR | O_CLOEXEC);
  void* bytes = fd < 0 ? MAP_FAILED
                       : mmap(NULL, (size_t)offset + 1, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (bytes != MAP_FAILED) {
    exchanged_byte = (unsigned char*)bytes + offset;
    *(volatile unsigned char*)exchanged_byte = *exchanged_byte;
  }
  if (fd >= 0) {
    close(fd);
  }
}

__attribute__((constructor)) static void prepare_byte(void) {
  long offset = 0;
  unsigned value = 0;
  char path[200] = "";
  const char* wanted = getenv("EXCHANGE_BYTE");
  if (wanted != NULL && sscanf(wanted, "%ld %u %199s", &offset, &value, path) == 3) {
    other_value = (unsigned char)value;
    map_byte(offset, path);
  }
}

int SHA512_Final(unsigned char* digest, SHA512_CTX* context) {
  static int finished = 0;
  int (*real)(unsigned char*, SHA512_CTX*) = NULL;
  *(void**)&real = dlsym(RTLD_NEXT, "SHA512_Final");
  if (exchanged_byte != NULL && finished++ == 0) {
    exchange_byte();
  }
  return real(digest, context);
}

static void carry_out(const char* action) {
  char from[200] = "";
  char to[200] = "";
  if (action[0] == '+') {
    FILE* file = fopen(action + 1, "ab");
    if (file != NULL) {
      fputc('x', file);
      fclose(file);
    }
  } else if (sscanf(action, "%199s %199s", from, to) == 2) {
    rename(from, to);
  }
}

static void remember(const char* status) {
  FILE* file = fopen("/cache/upgrade_status", "w");
  if (file != NULL) {
    fputs(status, file);
    fclose(file);
  }
}

int sc_cfg_set(const char* name, const char* value) {
  static size_t next = 0;
  const char* moments = getenv("EXCHANGE_AT");
  char variable[32];
  if (strcmp(name, "fota_ab_upgrade_status") != 0) {
    return 0;
  }
  remember(value);
  if (exchanged_byte != NULL && value[0] == '0') {
    exchange_byte();
  }
  if (moments == NULL) {
    return 0;
  }
  while (next < strlen(moments) && moments[next] == value[0]) {
    snprintf(variable, sizeof(variable), "EXCHANGE_%d", (int)next);
    next++;
    if (getenv(variable) != NULL) {
      carry_out(getenv(variable));
    }
  }
  return 0;
}

int sc_cfg_save(void) {
  return 0;
}

int sc_cfg_get(const char* name, char* value, int size) {
  (void)name;
  (void)value;
  (void)size;
  return -1;
}
