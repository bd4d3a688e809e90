// SPDX-License-Identifier: Apache-2.0
//
// The partition table file.
#include <cerrno>
#include <cstring>

#include "tests/reference/library.h"

namespace reference {
namespace {

using std::to_string;

constexpr const char* kPath = "/etc_ro/systemPartitionInfo.conf";
constexpr const char* kReader = "upi_init_system_partition_info";
constexpr const char* kShower = "show_system_partition_info";

}  // namespace

bool Library::read_table(Table& table) {
  std::FILE* file = std::fopen(kPath, "rb");
  if (file == nullptr) {
    return fail(kReader, std::string("fail to open file (") + kPath + ")");
  }
  std::rewind(file);
  const bool good = read_lists(file, table);
  if (good) {
    show_table(table);
  }
  if (std::fclose(file) != 0) {
    return fail(kReader, "close system partition info file fail, errno=" + to_string(errno) + " [" +
                             std::strerror(errno) + "]");
  }
  return good;
}

bool Library::read_lists(std::FILE* file, Table& table) {
  int platform = 0;
  int oem = 0;
  return read_table_head(file, table, platform, oem) &&
         read_list(file, true, platform, table.platform) && read_list(file, false, oem, table.oem);
}

// Whether a title is the right one does not show: what stands behind it does not parse then.
bool Library::read_table_head(std::FILE* file, Table& table, int& platform, int& oem) {
  if (std::fscanf(file, "[Head]\n") != 0) {
    return fail(kReader, "Read [Head] fail");
  }
  char magic[5] = {};
  if (std::fscanf(file, "magic=%4s\nplat=%d\nplat_partition_num=%d\noem_partition_num=%d\n", magic,
                  &table.plat, &platform, &oem) < 4) {
    return fail(kReader, "Read [Head Info] fail");
  }
  table.magic = magic;
  if (table.magic.size() != 4 || (table.plat & 0xFF) != 0) {
    return fail(kReader, "magic len invalid");
  }
  if (table.magic != "SUPI") {
    return fail(kReader, "fail system partition info magic word invalid: " + table.magic);
  }
  if (platform < 0 || platform > 7) {
    return fail(kReader, "plat_partition_num invalid");
  }
  return oem >= 0 && oem <= 7 ? true : fail(kReader, "oem_partition_num invalid");
}

bool Library::read_list(std::FILE* file, bool platform, int count,
                        std::vector<sim::TableEntry>& list) {
  if (count > 0 && !allocate()) {
    return fail(kReader, platform ? "malloc platform_partition_info fail"
                                  : "malloc oem_partition_info fail");
  }
  const int title = platform ? std::fscanf(file, "[Platform_Partition_Info]\n")
                             : std::fscanf(file, "[Oem_Partition_Info]\n");
  if (title != 0) {
    return fail(kReader, platform ? "Read [Platform_Partition_Info] fail"
                                  : "Read [Oem_Partition_Info] fail");
  }
  for (int i = 0; i < count; ++i) {
    char name[32] = {};
    sim::TableEntry entry;
    if (std::fscanf(file, "name=%31s\nsystem_type=%d\npartition_type=%d\n", name,
                    &entry.system_type, &entry.partition_type) < 3) {
      return fail(kReader,
                  platform ? "Read Platform_Partition_Info fail" : "Read Oem_Partition_Info fail");
    }
    entry.name = name;
    list.push_back(entry);
  }
  return true;
}

void Library::show_table(const Table& table) {
  say(kShower, "Show System Partition Info:");
  say(kShower, "------- system partition info: Head -------");
  say(kShower, "magic: " + table.magic);
  say(kShower, "plat: " + to_string(table.plat));
  say(kShower, "plat_partition_num: " + to_string(table.platform.size()));
  say(kShower, "oem_partition_num: " + to_string(table.oem.size()));
  show_list("Platform", table.platform);
  show_list("Oem", table.oem);
}

void Library::show_list(const char* kind, const std::vector<sim::TableEntry>& list) {
  say(kShower, std::string("------- system partition info: ") + kind + " Partition Info -------");
  for (const sim::TableEntry& entry : list) {
    say(kShower, "name: " + entry.name);
    say(kShower, "system_type: " + to_string(entry.system_type));
    say(kShower, "partition_type: " + to_string(entry.partition_type));
  }
}

}  // namespace reference
