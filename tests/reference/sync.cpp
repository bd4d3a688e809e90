// SPDX-License-Identifier: Apache-2.0
//
// Synchronisation of the system that is not running with the one that is.
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/reference/library.h"
#include "tests/support/package_file.h"

namespace reference {
namespace {

using std::to_string;

constexpr const char* kKey = "fota_ab_aa_sync_status";
constexpr const char* kDriver = "upi_sync_system";
constexpr const char* kLoop = "sync_system";
constexpr const char* kPair = "sync_partition";
const std::string kRule(50, '-');

void close_node(Node& node) {
  if (node.fd >= 0) {
    close(node.fd);
    node.fd = -1;
  }
}

bool is_erased(const Bytes& block) {
  return std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

}  // namespace

int Library::sync() {
  int target = -1;
  bool good = allocate() || fail(kDriver, "system_upgrade_partition_info malloc fail");
  Table table;
  if (good) {
    say(kDriver, "<<<<<<<<<<<<<<< Start Sync >>>>>>>>>>>>>>>");
    store(kKey, 1);
    const int running = running_system();
    target = running == -1 ? -1 : 3 - running;
    good =
        target == -1 ? fail(kDriver, "Get target sync system fail!") : mark_and_sync(target, table);
  }
  store(kKey, good ? 0 : -1);
  const int status = good ? sim::kStatusBootable : sim::kStatusUnbootable;
  if (target != -1 && !set_status(code_of(target), status)) {
    say(kDriver, good ? "set target system bootable fail" : "set target system unbootable fail");
  }
  if (good) {
    say(kDriver, "-------------- Sync Takes 0s --------------");
  }
  say(kDriver,
      std::string("<<<<<<<<<<<<<<< Sync ") + (good ? "Success" : "Fail") + " >>>>>>>>>>>>>>>");
  return good ? 0 : -1;
}

bool Library::mark_and_sync(int target, Table& table) {
  if (!set_status(code_of(target), sim::kStatusUnbootable)) {
    return fail(kDriver, "set target system unbootable fail");
  }
  if (!read_table(table)) {
    return fail(kDriver, "init system partition info fail");
  }
  const auto sync_all = [&](const std::vector<sim::TableEntry>& list, bool platform) {
    return std::all_of(list.begin(), list.end(), [&](const sim::TableEntry& entry) {
      return sync_entry(target, entry, platform);
    });
  };
  return sync_all(table.platform, true) && sync_all(table.oem, false);
}

bool Library::sync_entry(int target, const sim::TableEntry& entry, bool platform) {
  const std::string dst = mtd_name(entry.name, target);
  const std::string src = mtd_name(entry.name, 3 - target);
  if (!exists(target, entry.name)) {
    say("pre_sync", "There is no partition [" + dst + "] in system");
    return fail(kLoop, "pre_sync fail");
  }
  say(kLoop, kRule);
  say(kLoop,
      std::string("Sync ") + (platform ? "Targrt" : "Target") + " Parition [" + dst + "] Start");
  if (!sync_partition(dst, src, entry.partition_type)) {
    say(kLoop, "Sync Target Partition [" + dst + "] Fail");
    return fail(kLoop, kRule);
  }
  say(kLoop, "-------------- Sync parition [" + dst + "] Takes 0s --------------");
  say(kLoop, "Sync Target Partition [" + dst + "] Success");
  say(kLoop, kRule);
  return true;
}

// --- A pair. ---

bool Library::sync_partition(const std::string& dst, const std::string& src, int type) {
  if (compare(dst, src, type)) {
    say(kPair,
        "dst partition [" + dst + "] is the same as src partition [" + src + "], do not sync");
    return true;
  }
  Node from;
  Node to;
  const bool good = sync_opened(dst, src, type, from, to);
  close_node(to);
  close_node(from);
  return good;
}

bool Library::sync_opened(const std::string& dst, const std::string& src, int type, Node& from,
                          Node& to) {
  if (!open_partition(src, type, from)) {
    return fail(kPair, "Failed to get src partition [" + src + "] mtd info");
  }
  if (!open_partition(dst, type, to)) {
    return fail(kPair, "Failed to get dst partition [" + dst + "] mtd info");
  }
  if (ioctl(to.fd, kLift, 0) != 0) {
    return fail(kPair, "Failed to enable dst mtd writeable!  error:" + error());
  }
  if (!copy_partition(dst, from, to)) {
    return false;
  }
  if (!compare(dst, src, type)) {
    return fail(kPair, "after sync, hash is different");
  }
  if (ioctl(to.fd, kRestore, 0) != 0) {
    return fail(kPair, "Failed to disable dst mtd writeable!  error:" + error());
  }
  return true;
}

bool Library::copy_partition(const std::string& dst, const Node& from, const Node& to) {
  for (const char* const buffer : {"read_data", "delta_f"}) {
    if (!allocate()) {
      return fail(kPair, std::string("Malloc ") + buffer + " fail, size:" + to_string(from.block));
    }
  }
  if (!erase_device_partition(dst)) {
    return fail(kPair, "Failed to erase dst partition [" + dst + "]");
  }
  return copy_blocks(from, to);
}

bool Library::copy_blocks(const Node& from, const Node& to) {
  Bytes block(from.block);
  for (std::uint32_t i = 0; i < from.size / from.block; ++i) {
    const int read = read_content(kPair, from, i, block);
    if (read != 0) {
      return read > 0;
    }
    if (!write_block(to, i * from.block, block.data())) {
      return fail(kPair, "Write data to mtd fail!");
    }
  }
  return true;
}

bool Library::erase_device_partition(const std::string& name) {
  const char* const self = "erase_partition";
  const std::string frame(25, '-');
  say(self, frame);
  begin(self);
  const std::optional<bool> erased = erase_blocks(self, name, name);
  if (erased) {
    end(self);
    say(self, frame);
  }
  return erased.value_or(false);
}

// --- Comparison. ---

bool Library::compare(const std::string& dst, const std::string& src, int type) {
  const char* const self = "partition_hash_cmp";
  Bytes digests[2];
  for (const bool first : {true, false}) {
    if (!hash_partition(first ? dst : src, type, digests[first ? 0 : 1])) {
      return fail(self, "partition [" + (first ? dst : src) + "] hash fail");
    }
  }
  const std::string both =
      "dst_partition_hash [" + dst + "] and src_partition_hash [" + src + "] is ";
  if (same_digest(digests[0], digests[1])) {
    say(self, both + "the same");
    return true;
  }
  show_digest("dst_partition hash:", digests[0]);
  show_digest("src_partition hash:", digests[1]);
  return fail(self, both + "different");
}

bool Library::hash_partition(const std::string& name, int type, Bytes& digest) {
  const char* const self = "partition_hash";
  Node node;
  if (!open_partition(name, type, node)) {
    return fail(self, "Failed to get partition [" + name + "] mtd info");
  }
  bool good = true;
  for (const char* const buffer : {"read_data", "delta_f"}) {
    good = good && (allocate() || fail(self, std::string("Malloc ") + buffer +
                                                 " fail, size:" + to_string(node.block)));
  }
  Bytes content;
  good = good && hash_blocks(node, content);
  digest = support::sha512(content);
  close_node(node);
  return good;
}

bool Library::hash_blocks(const Node& node, Bytes& content) {
  Bytes block(node.block);
  for (std::uint32_t i = 0; i < node.size / node.block; ++i) {
    const int read = read_content("partition_hash", node, i, block);
    if (read != 0) {
      return read > 0;
    }
    content.insert(content.end(), block.begin(), block.end());
  }
  return true;
}

int Library::read_content(const char* speaker, const Node& node, std::uint32_t index,
                          Bytes& block) {
  switch (read_image("read_image", node, block.data(), index * node.block, node.block)) {
    case 0:
      break;
    case -2:
      say(speaker, "Out of Image");
      return 1;
    default:
      say(speaker, "Read image content fail");
      return -1;
  }
  if (is_erased(block)) {
    say(speaker, "Read image content end");
    return 1;
  }
  return 0;
}

}  // namespace reference
