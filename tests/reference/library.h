// SPDX-License-Identifier: Apache-2.0
//
// What the library has to do, restated: every operation step by step in the plainest form, with the
// requests that it makes and the diagnostics that it leaves. A test runs both on the same device
// with the same fault and compares all that can be seen of them.
//
// Nothing of the library is used here, and nothing is done for speed or against hostile input.
#ifndef TESTS_REFERENCE_LIBRARY_H
#define TESTS_REFERENCE_LIBRARY_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sim/boot_loader.h"
#include "sim/layout.h"
#include "tests/support/captured.h"

namespace reference {

using sim::Bytes;

// An opened partition: geometry in bytes, and its descriptor or -1.
struct Node {
  int fd = -1;
  std::uint32_t size = 0;
  std::uint32_t block = 0;
  std::uint32_t page = 0;
  std::uint32_t oob = 0;
};

struct PackageEntry {
  std::string name;
  std::int32_t len = 0;
  std::int32_t offset = 0;
  std::int32_t partition_type = 0;  // of partitions only
  std::int32_t zipped = 0;          // of partitions only
  Bytes hash;
};

struct Package {
  Bytes head;
  std::vector<PackageEntry> partitions;
  std::vector<PackageEntry> extras;
  int fd = -1;
  std::uint32_t size = 0;
};

struct Table {
  std::string magic;
  std::int32_t plat = 0;
  std::vector<sim::TableEntry> platform;
  std::vector<sim::TableEntry> oem;
};

struct Copies {
  sim::BootRecord main;
  sim::BootRecord backup;
  int main_index = 0;
  int backup_index = 1;
};

class Library {
 public:
  // `shown` are the numbers to be shown for the first, second ... descriptor that is opened: those
  // of the run that this one is compared with. The allocation `failing` (from 1) yields nothing.
  explicit Library(std::vector<int> shown, std::uint64_t failing = 0)
      : to_show_(std::move(shown)), failing_(failing) {}

  // The exported operations, each with its result.
  int verify();
  int upgrade();
  int sync();
  int upgrade_type();
  int set_boot_to_system(int system, int reboot);
  int set_system_status(int system, int status);
  int set_fota_status(int status);
  int init_flag_partition();
  int current_system();
  int boot_to_system();
  int system_status();
  int fota_status();

  const std::vector<support::LogLine>& log() const { return log_; }
  // Allocations that were asked for.
  std::uint64_t allocations() const { return allocations_; }

 private:
  // --- library.cpp ---
  void say(const std::string& function, const std::string& message);
  bool fail(const std::string& function, const std::string& message);
  void begin(const std::string& function);
  void end(const std::string& function);
  static std::string error();  // "5[Input/output error]"
  bool allocate();
  int open_shown(const std::string& path, int flags);
  std::string shown(int fd) const;
  int readn(int fd, void* buffer, std::uint32_t count);
  bool create_folder(const std::string& path);
  int create_ancestors(const std::string& path);
  void store(const std::string& key, int value);
  int running_system();

  // --- mtd.cpp ---
  std::optional<std::string> find(const std::string& name, int type = 0);
  bool exists(int target, const std::string& name);
  bool open_partition(const std::string& name, int type, Node& node);
  std::uint32_t translate(const Node& node, std::uint32_t address);
  int read_image(const char* speaker, const Node& node, std::uint8_t* to, std::uint32_t address,
                 std::uint32_t size);
  bool write_block(const Node& node, std::uint32_t address, const std::uint8_t* data);
  bool write_data(const Node& node, std::uint32_t offset, const Bytes& data);
  // Nothing when it ended before the partition was open.
  std::optional<bool> erase_blocks(const char* speaker, const std::string& mtd_name,
                                   const std::string& shown_name);
  bool erase_partition(int target, const std::string& name);
  bool image_matches(const Node& node, std::int32_t len, const Bytes& digest);

  // --- flags.cpp ---
  int open_flags(const char* speaker, bool reading, Node& node);
  bool read_copies(Copies& copies);
  bool read_valid(const char* speaker, sim::BootRecord& record);
  int write_copy(const Node& node, int index, const Bytes& image);
  bool write_copies(const sim::BootRecord& record, Copies& copies);
  int write_main(const Node& node, const Copies& copies, const Bytes& image);
  int write_backup(const Node& node, const Copies& copies, const Bytes& image);
  sim::BootRecord* choose(const char* speaker, Copies& copies, const char* unreadable);
  bool write_change(const char* speaker, const sim::BootRecord& record, Copies& copies,
                    const char* success);
  bool set_boot_to(int system);
  bool set_status(int system, int status);

  // --- table.cpp ---
  bool read_table(Table& table);
  bool read_table_head(std::FILE* file, Table& table, int& platform, int& oem);
  bool read_list(std::FILE* file, bool platform, int count, std::vector<sim::TableEntry>& list);
  bool read_lists(std::FILE* file, Table& table);
  void show_table(const Table& table);
  void show_list(const char* kind, const std::vector<sim::TableEntry>& list);

  // --- package.cpp ---
  bool load();
  void release();
  bool package_file_is_valid(int fd);
  bool load_tables(Package& package);
  bool read_exactly(int fd, Bytes& data, const char* what);
  bool read_entries(Package& package);
  bool read_extras(Package& package);
  bool type_fits(const Package& package);
  bool names_fit(const Package& package, const Table& table);
  bool is_whole_system(const Package& package, const Table& table);
  void show_package();
  void show_entries();
  void show_extras();
  void show_digest(const std::string& title, const Bytes& digest);

  // --- verify.cpp ---
  bool verify_package();
  bool verify_content();
  bool verify_entries();
  bool verify_entry(const PackageEntry& entry);
  bool hash_file(std::uint32_t offset, std::uint32_t len, Bytes& digest);

  // --- update.cpp ---
  void report(int status, int total, int updated);
  bool prepare_update(int& target);
  bool prepare_path();
  void unprepare_update();
  bool upgrade_partitions(int target);
  bool upgrade_partition(int target, const PackageEntry& entry);
  bool open_target(int target, const PackageEntry& entry, Node& node);
  bool upgrade_image(int target, const PackageEntry& entry, const Node& node);
  bool copy_image(const PackageEntry& entry, const Node& node);
  int read_image_data(const PackageEntry& entry, std::uint32_t offset, Bytes& data);
  bool set_final_status(bool success, int target);

  // --- sync.cpp ---
  bool mark_and_sync(int target, Table& table);
  bool sync_entry(int target, const sim::TableEntry& entry, bool platform);
  bool sync_partition(const std::string& dst, const std::string& src, int type);
  bool sync_opened(const std::string& dst, const std::string& src, int type, Node& from, Node& to);
  bool copy_partition(const std::string& dst, const Node& from, const Node& to);
  bool copy_blocks(const Node& from, const Node& to);
  bool compare(const std::string& dst, const std::string& src, int type);
  bool hash_partition(const std::string& name, int type, Bytes& digest);
  bool hash_blocks(const Node& node, Bytes& content);
  bool erase_device_partition(const std::string& name);
  // 0: a block was read; -1: failure; 1: the content's end.
  int read_content(const char* speaker, const Node& node, std::uint32_t index, Bytes& block);

  std::vector<int> to_show_;
  std::size_t next_to_show_ = 0;
  std::map<int, int> shown_;
  std::uint64_t failing_;
  std::uint64_t allocations_ = 0;
  std::vector<support::LogLine> log_;
  std::optional<Package> package_;
};

// The flash driver's requests that lift and restore write protection.
constexpr unsigned long kLift = 0x80044D18;
constexpr unsigned long kRestore = 0x80044D19;

// A name of the partition table as it stands in "/proc/mtd" for a system: 2 has names of its own.
std::string mtd_name(const std::string& name, int system);
int code_of(int system);
// Digests are compared as strings are.
bool same_digest(const Bytes& a, const Bytes& b);

}  // namespace reference

#endif
