// SPDX-License-Identifier: Apache-2.0
//
// The upgrade package: loaded, shown, released.
#include "tests/support/package_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/reference/library.h"

namespace reference {
namespace {

using std::to_string;

constexpr const char* kLoader = "init_upgrade_package_info";
constexpr const char* kPath = "/cache/ovu_fota_ab/upgrade.package";
constexpr std::int32_t kMostEntries = 49;
const std::string kRule(28, '-');

// Offsets in the head.
constexpr std::size_t kVersion = 4;
constexpr std::size_t kPlat = 8;
constexpr std::size_t kPackageType = 12;
constexpr std::size_t kUpgradeType = 16;
constexpr std::size_t kPartitionNum = 20;
constexpr std::size_t kExtraNum = 24;
constexpr std::size_t kHashType = 28;
constexpr std::size_t kBlockSize = 32;
constexpr std::size_t kVersionDst = 100;

std::int32_t number(const Bytes& bytes, std::size_t offset) {
  std::int32_t value = 0;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

// Up to the first zero byte.
std::string string_at(const Bytes& bytes, std::size_t offset) {
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  return {from, std::find(from, bytes.end(), 0)};
}

PackageEntry entry_at(const Bytes& table, std::size_t at, bool partition) {
  PackageEntry entry;
  entry.name = string_at(table, at);
  entry.len = number(table, at + 32);
  entry.offset = number(table, at + 36);
  entry.partition_type = partition ? number(table, at + 40) : 0;
  entry.zipped = partition ? number(table, at + 44) : 0;
  const std::size_t hash = partition ? support::kPartitionHashOffset : support::kExtraHashOffset;
  const auto from = table.begin() + static_cast<std::ptrdiff_t>(at + hash);
  entry.hash.assign(from, from + 64);
  return entry;
}

bool listed(const std::string& name, const std::vector<sim::TableEntry>& list) {
  return std::any_of(list.begin(), list.end(),
                     [&](const sim::TableEntry& entry) { return entry.name == name; });
}

std::string closing_error(const char* separator) {
  return std::string("Close upgrade package file [") + kPath + "] error," + separator + "error: ";
}

}  // namespace

bool Library::load() {
  say(kLoader, "<<<<<<<<<<<Init upgrade package info>>>>>>>>>>>>");
  Package package;
  package.fd = open_shown(kPath, O_RDONLY);
  if (package.fd < 0) {
    return fail(kLoader,
                std::string("Open upgrade package file[") + kPath + "] error, error:" + error());
  }
  if (!package_file_is_valid(package.fd)) {
    return close(package.fd) == 0 ? false : fail(kLoader, closing_error(" ") + error());
  }
  if (!allocate()) {
    say(kLoader, "Malloc for upgrade package info struct fail!");
    return close(package.fd) == 0 ? false : fail(kLoader, closing_error("  ") + error());
  }
  if (!load_tables(package)) {
    // The descriptor stays open, unless it was the names that did not fit.
    return fail(kLoader, "<<<<<<<<<<<Init upgrade package info fail>>>>>>>>>>>>");
  }
  package_ = package;
  show_package();
  say(kLoader, "<<<<<<<<<<<Init upgrade package info success>>>>>>>>>>>>");
  return true;
}

bool Library::package_file_is_valid(int fd) {
  const char* const self = "is_upgrade_package_file_valid";
  struct stat status {};
  if (fstat(fd, &status) != 0) {
    return fail(self, "Stat fd[" + shown(fd) + "] error: " + error());
  }
  if (status.st_size < 256) {
    return fail(self, "Upgrade package file is too short [" + to_string(status.st_size) +
                          "], less than upgrade package head info [256]!");
  }
  char magic[5] = {};
  const int got = readn(fd, magic, 4);
  if (got < 4) {
    return fail(
        self, "Get upgrade package magic word fail, get len:" + to_string(got) + " is too short!");
  }
  if (std::strcmp(magic, "FOTA") != 0) {
    return fail(self, std::string("Upgrade package magic word invalid:") + magic + "!");
  }
  say(self, "Upgrade package magic word check success!");
  return true;
}

bool Library::load_tables(Package& package) {
  struct stat status {};
  if (stat(kPath, &status) != 0) {
    return fail(kLoader, std::string("Stat file [") + kPath + "] error, error: " + error());
  }
  package.size = static_cast<std::uint32_t>(status.st_size);
  if (lseek(package.fd, 0, SEEK_SET) < 0) {
    return fail(kLoader, std::string("Lseek file [") + kPath + "] error, error:" + error());
  }
  if (!allocate()) {
    return fail(kLoader, "Malloc upgrade package head info failed, size:256!");
  }
  package.head.resize(256);
  return read_exactly(package.fd, package.head, "head") && read_entries(package) &&
         read_extras(package);
}

bool Library::read_exactly(int fd, Bytes& data, const char* what) {
  const int got = readn(fd, data.data(), static_cast<std::uint32_t>(data.size()));
  if (got == static_cast<int>(data.size())) {
    return true;
  }
  return fail(kLoader, std::string("Read upgrade package file ") + what +
                           " info fail, get length:" + to_string(got) + ", error: " + error());
}

bool Library::read_entries(Package& package) {
  const std::int32_t count = number(package.head, kPartitionNum);
  if (count > kMostEntries) {
    return fail(kLoader,
                "There is/are [" + to_string(count) + "] partition(s) in upgrade package!");
  }
  if (count <= 0) {
    say(kLoader, "There is " + to_string(count) + " partitionin upgrade package!");
    return true;
  }
  Bytes table(static_cast<std::size_t>(count) * support::kPartitionEntrySize);
  if (!allocate()) {
    return fail(kLoader,
                "Malloc for upgrade package partition head info failed, malloc size: "
                "[partition_num * every partition size]:[" +
                    to_string(count) + " * " + to_string(table.size()) + "]");
  }
  if (!read_exactly(package.fd, table, "partition")) {
    return false;
  }
  for (std::size_t at = 0; at < table.size(); at += support::kPartitionEntrySize) {
    package.partitions.push_back(entry_at(table, at, true));
  }
  if (type_fits(package)) {
    return true;
  }
  say(kLoader, "Upgrade type invalid");
  return close(package.fd) == 0 ? false : fail(kLoader, closing_error(" ") + error());
}

bool Library::read_extras(Package& package) {
  const std::int32_t count = number(package.head, kExtraNum);
  if (count > kMostEntries) {
    return fail(kLoader,
                "There is/are [" + to_string(count) + "] extra file(s) in upgrade package!");
  }
  if (count <= 0) {
    say(kLoader, "There is no extra file in upgrade package file!");
    return true;
  }
  Bytes table(static_cast<std::size_t>(count) * support::kExtraEntrySize);
  if (!allocate()) {
    return fail(kLoader,
                "Malloc for upgrade package extra info failed, [exta_num * every extra need "
                "size]:[" +
                    to_string(count) + " * " + to_string(table.size()) + "] ");
  }
  if (!read_exactly(package.fd, table, "head")) {
    return false;
  }
  for (std::size_t at = 0; at < table.size(); at += support::kExtraEntrySize) {
    package.extras.push_back(entry_at(table, at, false));
  }
  return true;
}

// --- Upgrade type. ---

bool Library::type_fits(const Package& package) {
  const char* const self = "is_upgrade_type_valid";
  if (!allocate()) {
    return fail(self, "system_partition_info malloc fail");
  }
  Table table;
  if (!read_table(table)) {
    return fail(self, "init system partition info fail");
  }
  return names_fit(package, table);
}

bool Library::names_fit(const Package& package, const Table& table) {
  const char* const self = "is_upgrade_type_valid";
  const std::int32_t type = number(package.head, kUpgradeType);
  if (type == 0) {
    return is_whole_system(package, table);
  }
  if (type != 1 && type != 2) {
    return fail(self, "upgrade type is unkown");
  }
  for (const PackageEntry& entry : package.partitions) {
    if (!listed(entry.name, type == 1 ? table.platform : table.oem)) {
      return fail(self, "upgrade_type: " + to_string(type) + ", upgrade package partition [" +
                            entry.name + "] do not exist");
    }
  }
  return true;
}

bool Library::is_whole_system(const Package& package, const Table& table) {
  const char* const self = "is_upgrade_type_valid";
  std::vector<sim::TableEntry> all = table.platform;
  all.insert(all.end(), table.oem.begin(), table.oem.end());
  if (package.partitions.size() != all.size()) {
    return fail(self,
                "upgrade_type: 0, upgrade package partition num is different from system "
                "partition num");
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (package.partitions[i].name != all[i].name) {
      return fail(self, "upgrade_type: 0, upgrade package partition [" +
                            package.partitions[i].name + "] is different from system partition [" +
                            all[i].name + "]");
    }
  }
  return true;
}

// --- The loaded package. ---

void Library::release() {
  if (package_ && package_->fd > 0 && close(package_->fd) != 0) {
    say("deinit_upgrade_package_info",
        std::string("Close upgrade package file error, error:") + std::strerror(errno));
  }
  package_.reset();
}

int Library::upgrade_type() {
  if (!load()) {
    say("upi_get_upgrade_type", "Init upgrade package info fail");
    return -1;
  }
  const int type = number(package_->head, kUpgradeType);
  release();
  return type;
}

void Library::show_digest(const std::string& title, const Bytes& digest) {
  say("show_hash_hex", title + ":" + support::shown_digest(digest));
}

void Library::show_package() {
  const char* const self = "show_upgrade_package_head_info";
  const Bytes& head = package_->head;
  const auto hash = head.begin() + support::kHeadHashOffset;
  say(self, "magic:" + string_at(head, 0));
  say(self, "upgrade package version:" + to_string(number(head, kVersion)));
  say(self, "upgrade package plat:" + to_string(number(head, kPlat)));
  say(self, "upgrade package type:" + to_string(number(head, kPackageType)));
  say(self, "upgrade type:" + to_string(number(head, kUpgradeType)));
  say(self, "upgrade package partition num:" + to_string(number(head, kPartitionNum)));
  say(self, "upgrade package extra file num:" + to_string(number(head, kExtraNum)));
  say(self, "upgrade package hash type:" + to_string(number(head, kHashType)));
  say(self, "upgrade package block size:" + to_string(number(head, kBlockSize)));
  say(self, "upgrad package version_dst:" + string_at(head, kVersionDst));
  show_digest("upgrade package content hash:", Bytes(hash, hash + 64));
  show_entries();
  show_extras();
}

void Library::show_entries() {
  const char* const self = "show_partition_info";
  say(self, kRule);
  say(self, "There is/are [" + to_string(number(package_->head, kPartitionNum)) +
                "] partition(s)\xA3\xA1\n");
  for (const PackageEntry& entry : package_->partitions) {
    say(self, kRule);
    say(self, "partition name:" + entry.name);
    say(self, "partition len:" + to_string(entry.len));
    say(self, "partition offset:" + to_string(entry.offset));
    say(self, "partition partition_type:" + to_string(entry.partition_type));
    say(self, "partition zipped:" + to_string(entry.zipped));
    show_digest("hash:", entry.hash);
  }
  say(self, kRule);
}

// The package's digest stands for that of each file.
void Library::show_extras() {
  const char* const self = "show_extra_info";
  const auto hash = package_->head.begin() + support::kHeadHashOffset;
  say(self, "Extra file number:" + to_string(number(package_->head, kExtraNum)));
  for (const PackageEntry& entry : package_->extras) {
    say(self, kRule);
    say(self, "Extra file name:" + entry.name);
    say(self, "Extra file len:" + to_string(entry.len));
    say(self, "Extra file offset:" + to_string(entry.offset));
    show_digest("Extra file hash:", Bytes(hash, hash + 64));
  }
  say(self, kRule);
}

}  // namespace reference
