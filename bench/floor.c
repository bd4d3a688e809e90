/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The floor: a bare program that issues just the requests, reads, writes, digest updates and store
 * calls that a verification, an upgrade and a synchronisation consist of, in the library's order,
 * without the library and without a log. What the library costs beyond it is the library's own.
 *
 * It runs on a simulated device only, with a flawless package, and gives up at the first failure.
 *
 *   floor verify | install | sync
 */
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <openssl/sha.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "floor.h"

#define PACKAGE "/cache/ovu_fota_ab/upgrade.package"
#define RAW_FLAGS 0x1002
#define LIFT 0x80044D18UL
#define RESTORE 0x80044D19UL
#define RECORD_SIZE 292

struct entry {
  char name[32];
  int32_t len, offset, type, zipped;
  char reserve[16];
  unsigned char hash[64];
};

static unsigned char head[256];
static struct entry entries[49];
static int entry_count;
static int package_fd;
static uint32_t package_size;

static struct listed {
  char name[32];
  int system_type, partition_type;
} table[14];
static int table_count;

struct partition {
  int fd;
  uint32_t size, block;
};

static void need(int condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "floor: %s failed\n", what);
    exit(1);
  }
}

static void store(const char* name, int value) {
  char text[32];
  snprintf(text, sizeof text, "%d", value);
  sc_cfg_set(name, text);
  sc_cfg_save();
}

/* --- What runs, what there is. --- */

static int running_system(void) {
  char line[1024];
  FILE* file = fopen("/proc/cmdline", "r");
  need(file != NULL && fgets(line, sizeof line, file) != NULL, "/proc/cmdline");
  fclose(file);
  return strstr(line, "system=system_a") != NULL ? 1 : 2;
}

static int mtd_number(const char* wanted) {
  char line[128], name[64];
  int number, found = -1;
  unsigned size, erase_size;
  FILE* file = fopen("/proc/mtd", "r");
  need(file != NULL, "/proc/mtd");
  while (found < 0 && fgets(line, sizeof line, file) != NULL) {
    if (sscanf(line, "mtd%d: %x %x \"%63[^\"]", &number, &size, &erase_size, name) == 4 &&
        strcmp(name, wanted) == 0) {
      found = number;
    }
  }
  fclose(file);
  need(found >= 0, wanted);
  return found;
}

static int open_raw(const char* name) {
  char path[32];
  snprintf(path, sizeof path, "/dev/mtd%d", mtd_number(name));
  int fd = open(path, RAW_FLAGS);
  need(fd >= 0, path);
  return fd;
}

static struct partition open_partition(const char* name) {
  struct mtd_info_user info;
  struct partition partition = {open_raw(name), 0, 0};
  need(ioctl(partition.fd, MEMGETINFO, &info) == 0, "MEMGETINFO");
  partition.size = info.size;
  partition.block = info.erasesize;
  return partition;
}

static void read_section(FILE* file, int count) {
  for (int i = 0; i < count; i++, table_count++) {
    struct listed* entry = &table[table_count];
    need(fscanf(file, "name=%31s\nsystem_type=%d\npartition_type=%d\n", entry->name,
                &entry->system_type, &entry->partition_type) == 3,
         "table entry");
  }
}

static void read_table(void) {
  char magic[5];
  int plat, platform, oem;
  FILE* file = fopen("/etc_ro/systemPartitionInfo.conf", "rb");
  need(file != NULL, "table file");
  rewind(file);
  need(fscanf(file, "[Head]\n") == 0, "table file");
  need(fscanf(file, "magic=%4s\nplat=%d\nplat_partition_num=%d\noem_partition_num=%d\n", magic,
              &plat, &platform, &oem) == 4,
       "table head");
  table_count = 0;
  need(fscanf(file, "[Platform_Partition_Info]\n") == 0, "platform section");
  read_section(file, platform);
  need(fscanf(file, "[Oem_Partition_Info]\n") == 0, "OEM section");
  read_section(file, oem);
  fclose(file);
}

/* --- The boot flag record. --- */

static int is_bad(int fd, uint64_t offset) {
  __kernel_loff_t start = (__kernel_loff_t)offset;
  return ioctl(fd, MEMGETBADBLOCK, &start) != 0;
}

static void read_record(unsigned char* record) {
  struct partition flags = open_partition("flags");
  unsigned char backup[RECORD_SIZE];
  int copies = 0;
  for (uint32_t start = 0; start < flags.size && copies < 2; start += flags.block) {
    if (!is_bad(flags.fd, start)) {
      lseek(flags.fd, (off_t)start, SEEK_SET);
      need(read(flags.fd, copies == 0 ? record : backup, RECORD_SIZE) == RECORD_SIZE, "record");
      copies++;
    }
  }
  close(flags.fd);
}

static void write_copy(const struct partition* flags, uint32_t start, const unsigned char* block) {
  struct erase_info_user range = {start, flags->block};
  need(ioctl(flags->fd, LIFT, 0) == 0, "lift");
  need(!is_bad(flags->fd, start), "flags block");
  need(ioctl(flags->fd, MEMERASE, &range) == 0, "erase");
  need(!is_bad(flags->fd, start), "flags block");
  lseek(flags->fd, (off_t)start, SEEK_SET);
  need(write(flags->fd, block, flags->block) == (ssize_t)flags->block, "write");
  need(ioctl(flags->fd, RESTORE, 0) == 0, "restore");
}

/* Rewrites the record as it stands: where a status is stored costs the same wherever it is. */
static void mark_target(void) {
  unsigned char record[RECORD_SIZE];
  read_record(record);
  struct partition flags = open_partition("flags");
  unsigned char* block = malloc(flags.block);
  need(block != NULL, "malloc");
  memset(block, 0xFF, flags.block);
  memcpy(block, record, RECORD_SIZE);
  write_copy(&flags, 0, block);
  write_copy(&flags, flags.block, block);
  close(flags.fd);
  free(block);
}

/* --- Logical addresses. --- */

static uint32_t physical(const struct partition* partition, uint32_t address) {
  const uint32_t rest = address % partition->block;
  const uint32_t wanted = address - rest;
  uint32_t logical = 0U - partition->block;
  for (uint32_t start = 0; start < partition->size; start += partition->block) {
    logical += is_bad(partition->fd, start) ? 0 : partition->block;
    if (logical == wanted) {
      return start + rest;
    }
  }
  return partition->size;
}

static int read_at(const struct partition* partition, uint32_t address, void* data, uint32_t size) {
  const uint32_t start = physical(partition, address);
  if (start >= partition->size) {
    return 0;
  }
  lseek(partition->fd, (off_t)start, SEEK_SET);
  need(read(partition->fd, data, size) == (ssize_t)size, "read");
  return 1;
}

static void write_at(const struct partition* partition, uint32_t address, const void* block) {
  const uint32_t start = physical(partition, address);
  struct erase_info_user range = {start, partition->block};
  need(start < partition->size, "room");
  need(ioctl(partition->fd, MEMERASE, &range) == 0, "erase");
  lseek(partition->fd, (off_t)start, SEEK_SET);
  need(write(partition->fd, block, partition->block) == (ssize_t)partition->block, "write");
}

static void erase_all(const char* name) {
  struct partition partition = open_partition(name);
  for (uint64_t start = 0; start < partition.size; start += partition.block) {
    struct erase_info_user64 range = {start, partition.block};
    if (!is_bad(partition.fd, start)) {
      ioctl(partition.fd, MEMERASE64, &range);
    }
  }
  close(partition.fd);
}

/* --- The package. --- */

static void load_package(void) {
  struct stat status;
  char magic[4];
  package_fd = open(PACKAGE, O_RDONLY);
  need(package_fd >= 0 && fstat(package_fd, &status) == 0, PACKAGE);
  need(read(package_fd, magic, 4) == 4 && memcmp(magic, "FOTA", 4) == 0, "magic");
  need(stat(PACKAGE, &status) == 0, PACKAGE);
  package_size = (uint32_t)status.st_size;
  lseek(package_fd, 0, SEEK_SET);
  need(read(package_fd, head, sizeof head) == sizeof head, "head");
  memcpy(&entry_count, head + 20, 4);
  const ssize_t size = (ssize_t)sizeof *entries * entry_count;
  need(read(package_fd, entries, (size_t)size) == size, "partition table");
  read_table();
}

static void hash_range(uint32_t offset, uint32_t len, const unsigned char* wanted) {
  unsigned char buffer[4096], digest[64];
  SHA512_CTX context;
  SHA512_Init(&context);
  lseek(package_fd, (off_t)offset, SEEK_SET);
  while (len > 0) {
    const ssize_t got = read(package_fd, buffer, len < sizeof buffer ? len : sizeof buffer);
    need(got > 0, "package");
    SHA512_Update(&context, buffer, (size_t)got);
    len -= (uint32_t)got;
  }
  SHA512_Final(digest, &context);
  need(strncmp((char*)digest, (const char*)wanted, 64) == 0, "digest");
}

static void target_name(char* name, int target, const char* listed) {
  snprintf(name, 34, "%.31s%s", listed, target == 2 ? "2" : "");
}

static void verify(void) {
  char name[64];
  store("fota_ab_upgrade_status", 0);
  load_package();
  hash_range(256, package_size - 256, head + 164);
  const int target = 3 - running_system();
  for (int i = 0; i < entry_count; i++) {
    hash_range((uint32_t)entries[i].offset, (uint32_t)entries[i].len, entries[i].hash);
  }
  for (int i = 0; i < entry_count; i++) {
    target_name(name, target, entries[i].name);
    mtd_number(name);
  }
  close(package_fd);
  store("fota_ab_upgrade_status", 1);
}

/* --- Installing. --- */

static int holds_image(const struct partition* partition, const struct entry* entry) {
  unsigned char buffer[1024], digest[64];
  SHA512_CTX context;
  SHA512_Init(&context);
  for (uint32_t done = 0; done < (uint32_t)entry->len;) {
    const uint32_t rest = (uint32_t)entry->len - done;
    const uint32_t size = rest < sizeof buffer ? rest : sizeof buffer;
    need(read_at(partition, done, buffer, size), "read");
    SHA512_Update(&context, buffer, size);
    done += size;
  }
  SHA512_Final(digest, &context);
  return strncmp((const char*)entry->hash, (char*)digest, 64) == 0;
}

static void copy_image(const struct partition* partition, const struct entry* entry,
                       unsigned char* block) {
  for (uint32_t done = 0; done < (uint32_t)entry->len; done += partition->block) {
    const uint32_t rest = (uint32_t)entry->len - done;
    const uint32_t size = rest < partition->block ? rest : partition->block;
    const uint32_t at = (uint32_t)entry->offset + done;
    lseek(package_fd, (off_t)at, SEEK_SET);
    need(read(package_fd, block, size) == (ssize_t)size, "package");
    memset(block + size, 0xFF, partition->block - size);
    write_at(partition, done, block);
  }
}

static void install_partition(const char* name, const struct entry* entry) {
  struct partition partition = open_partition(name);
  need(ioctl(partition.fd, LIFT, 0) == 0, "lift");
  unsigned char* block = malloc(partition.block);
  need(block != NULL, "malloc");
  if (!holds_image(&partition, entry)) {
    erase_all(name);
    copy_image(&partition, entry, block);
    need(holds_image(&partition, entry), "check");
  }
  free(block);
  need(ioctl(partition.fd, RESTORE, 0) == 0, "restore");
  close(partition.fd);
}

static void install(void) {
  char name[64];
  store("fota_ab_upgrade_status", 3);
  store("fota_ab_upgrade_total_size", 0);
  store("fota_ab_upgrade_updated_size", 0);
  const int target = 3 - running_system();
  if (access("/cache/ovu_fota_ab/upgrade_temp/", R_OK) != 0) {
    mkdir("/cache/ovu_fota_ab/upgrade_temp/", 0777);
  }
  load_package();
  mark_target();
  store("fota_ab_upgrade_status", 3);
  store("fota_ab_upgrade_total_size", (int)package_size);
  for (int i = 0; i < entry_count; i++) {
    target_name(name, target, entries[i].name);
    mtd_number(name);
  }
  for (int i = 0; i < entry_count; i++) {
    target_name(name, target, entries[i].name);
    install_partition(name, &entries[i]);
    store("fota_ab_upgrade_status", 3);
    store("fota_ab_upgrade_updated_size", entries[i].len);
  }
  close(package_fd);
  store("fota_ab_upgrade_status", 4);
  mark_target();
}

/* --- Synchronising. --- */

static int is_erased(const unsigned char* block, const unsigned char* erased, uint32_t size) {
  return memcmp(block, erased, size < 1024 ? size : 1024) == 0 && memcmp(block, erased, size) == 0;
}

static void hash_content(const char* name, unsigned char* digest) {
  struct partition partition = open_partition(name);
  unsigned char* block = malloc(partition.block);
  unsigned char* erased = malloc(partition.block);
  SHA512_CTX context;
  need(block != NULL && erased != NULL, "malloc");
  memset(erased, 0xFF, partition.block);
  SHA512_Init(&context);
  for (uint32_t i = 0; i < partition.size / partition.block; i++) {
    if (!read_at(&partition, i * partition.block, block, partition.block) ||
        is_erased(block, erased, partition.block)) {
      break;
    }
    SHA512_Update(&context, block, partition.block);
  }
  SHA512_Final(digest, &context);
  free(block);
  free(erased);
  close(partition.fd);
}

static int is_equal(const char* dst, const char* src) {
  unsigned char dst_digest[64], src_digest[64];
  hash_content(dst, dst_digest);
  hash_content(src, src_digest);
  return strncmp((char*)dst_digest, (char*)src_digest, 64) == 0;
}

static void copy_partition(const struct partition* dst, const struct partition* src) {
  unsigned char* block = malloc(src->block);
  unsigned char* erased = malloc(src->block);
  need(block != NULL && erased != NULL, "malloc");
  memset(erased, 0xFF, src->block);
  for (uint32_t i = 0; i < src->size / src->block; i++) {
    memset(block, 0, src->block);
    if (!read_at(src, i * src->block, block, src->block) || is_erased(block, erased, src->block)) {
      break;
    }
    write_at(dst, i * src->block, block);
  }
  free(block);
  free(erased);
}

static void sync_partition(const char* dst_name, const char* src_name) {
  if (is_equal(dst_name, src_name)) {
    return;
  }
  struct partition src = open_partition(src_name);
  struct partition dst = open_partition(dst_name);
  need(ioctl(dst.fd, LIFT, 0) == 0, "lift");
  erase_all(dst_name);
  copy_partition(&dst, &src);
  need(is_equal(dst_name, src_name), "check");
  need(ioctl(dst.fd, RESTORE, 0) == 0, "restore");
  close(dst.fd);
  close(src.fd);
}

static void synchronise(void) {
  char dst[64], src[64];
  store("fota_ab_aa_sync_status", 1);
  const int target = 3 - running_system();
  mark_target();
  read_table();
  for (int i = 0; i < table_count; i++) {
    target_name(dst, target, table[i].name);
    target_name(src, 3 - target, table[i].name);
    mtd_number(dst);
    sync_partition(dst, src);
  }
  store("fota_ab_aa_sync_status", 0);
  mark_target();
}

int main(int argc, char** argv) {
  getppid(); /* where the operation begins, for those who trace system calls */
  const char* what = argc == 2 ? argv[1] : "";
  if (strcmp(what, "verify") == 0) {
    verify();
  } else if (strcmp(what, "install") == 0) {
    install();
  } else if (strcmp(what, "sync") == 0) {
    synchronise();
  } else {
    fprintf(stderr, "usage: floor verify | install | sync\n");
    return 2;
  }
  return 0;
}
