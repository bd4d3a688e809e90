// SPDX-License-Identifier: Apache-2.0
//
// Installation of a package into the system that is not running.
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/reference/library.h"

namespace reference {
namespace {

using std::to_string;

constexpr int kUpdating = 3;
constexpr int kSuccess = 4;
constexpr int kFail = 5;
const std::string kRule(47, '-');
const std::string kTempPath = "/cache/ovu_fota_ab/upgrade_temp/";
constexpr const char* kDriver = "upi_update";
constexpr const char* kLoop = "upgrade_partitions";

const char* name_of(int status) {
  return status == kUpdating  ? "UPGRADE_STATUS_UPDATING"
         : status == kSuccess ? "UPGRADE_STATUS_UPDATE_SUCCESS"
                              : "UPGRADE_STATUS_UPDATE_FAIL";
}

}  // namespace

int Library::upgrade() {
  begin(kDriver);
  report(kUpdating, 0, 0);
  say(kDriver, "<<<<<<<<<<<begin  Upgrade>>>>>>>>>>>>");
  int target = -1;
  // A preparation that fails is told by the status alone.
  int result = 0;
  bool success = false;
  if (!prepare_update(target)) {
    say(kDriver, "Prepare for update fail!");
  } else {
    say(kDriver, "Target system is system:" + to_string(target));
    success = upgrade_partitions(target);
    result = success ? 0 : -1;
  }
  if (success) {
    say(kDriver, "-------------- Upgrade Takes 0s --------------");
  }
  say(kDriver, success ? "<<<<<<<<<<<<Success  Upgrade>>>>>>>>>>>>>"
                       : "<<<<<<<<<<<<Fail  Upgrade >>>>>>>>>>>>>");
  unprepare_update();
  report(success ? kSuccess : kFail, -1, -1);
  if (!set_final_status(success, target)) {
    say(kDriver, "Update boot to system fail. ");
    result = -1;
  }
  end(kDriver);
  return result;
}

void Library::report(int status, int total, int updated) {
  const char* const self = "upi_flush_upgrade_status";
  begin(self);
  store("fota_ab_upgrade_status", status);
  say(self, "Update status: [" + to_string(status) + "](" + name_of(status) +
                ") total_size:" + to_string(total) + ", updated size:" + to_string(updated) + "!");
  if (total != -1) {
    store("fota_ab_upgrade_total_size", total);
  }
  if (updated != -1) {
    store("fota_ab_upgrade_updated_size", updated);
  }
  end(self);
}

// --- Preparation. ---

bool Library::prepare_update(int& target) {
  const char* const self = "prepare_update";
  begin(self);
  say(self, "<<<<<<<<<<<begin  prepare_update>>>>>>>>>>>>");
  const int running = running_system();
  if (running == -1) {
    return false;
  }
  target = 3 - running;
  if (!prepare_path()) {
    return fail(self, "Prepare path fail!");
  }
  bool good = load() || fail(self, "Init upgrade package info fail!");
  good = good && (set_status(code_of(target), sim::kStatusUnbootable) ||
                  fail(self, "Before update,  set target system unboot fail!"));
  if (!good) {
    unprepare_update();
  }
  say(self, std::string("<<<<<<<<<<<end  prepare_update, result:") + (good ? "0" : "-1") +
                ">>>>>>>>>>>>");
  end(self);
  return good;
}

// The work folder is there: the folder that may be missing is one level below it.
bool Library::prepare_path() {
  begin("prepare_path");
  bool good = true;
  if (access(kTempPath.c_str(), R_OK) != 0) {
    say("upi_check_file_existence", kTempPath + " not exist");
    good = create_folder(kTempPath);
  }
  end("prepare_path");
  return good;
}

void Library::unprepare_update() {
  begin("unprepare_update");
  release();
  begin("unprepare_path");
  end("unprepare_path");
  end("unprepare_update");
}

bool Library::set_final_status(bool success, int target) {
  const char* const self = "set_boot_to_status";
  begin(self);
  if (target == -1) {
    return fail(self, "Unreach branch, target is :-1");
  }
  if (!set_status(code_of(target), success ? sim::kStatusBootable : sim::kStatusUnbootable)) {
    return fail(self, success ? "Update fail, set target system bootable fail!"
                              : "Update fail, set target system unbootable fail!");
  }
  end(self);
  return true;
}

// --- The partitions. ---

bool Library::upgrade_partitions(int target) {
  const std::vector<PackageEntry>& entries = package_->partitions;
  begin(kLoop);
  int total = 0;
  for (const PackageEntry& entry : entries) {
    total += entry.len;
  }
  report(kUpdating, total, -1);
  say(kLoop, "Partition num:" + to_string(entries.size()));
  for (const PackageEntry& entry : entries) {
    say(kLoop, kRule);
    say(kLoop, "Check parition:" + entry.name);
    if (!exists(target, entry.name)) {
      return fail(kLoop, "There is no [" + entry.name + "] partition!");
    }
  }
  int updated = 0;
  for (const PackageEntry& entry : entries) {
    say(kLoop, kRule);
    say(kLoop, "Update parition:" + entry.name);
    if (!upgrade_partition(target, entry)) {
      return fail(kLoop, "Update partition [" + entry.name + "] fail!");
    }
    updated += entry.len;
    report(kUpdating, -1, updated);
    say(kLoop, "-------------- Update parition [" + entry.name + "] Takes 0s --------------");
    say(kLoop, kRule + "\n");
  }
  end(kLoop);
  return true;
}

bool Library::upgrade_partition(int target, const PackageEntry& entry) {
  const char* const self = "upgrade_partition";
  const char* const closer = "de_init_partition_device_data";
  begin(self);
  Node node;
  const bool good = open_target(target, entry, node)
                        ? upgrade_image(target, entry, node)
                        : fail(self, "Init device data error! partition name:" + entry.name);
  begin(closer);
  if (ioctl(node.fd, kRestore, 0) != 0) {
    say(closer, "Failed to disable mtd writeable!  error:" + error());
  }
  if (node.fd >= 0) {
    close(node.fd);
  }
  end(closer);
  say(self, "<<<<<<<<<<<end  Upgrade " + entry.name + ", result :" + (good ? "0" : "-1") +
                ">>>>>>>>>>>>");
  end(self);
  return good;
}

bool Library::open_target(int target, const PackageEntry& entry, Node& node) {
  const char* const self = "init_partition_device_data";
  const std::string name = mtd_name(entry.name, target);
  begin(self);
  say(self, "partition name:" + entry.name + ", real name:" + name);
  if (!open_partition(name, entry.partition_type, node)) {
    return fail(self, "Failed to get update info, " + name + "!");
  }
  if (ioctl(node.fd, kLift, 0) != 0) {
    return fail(self, "Failed to enable mtd writeable!  error:" + error());
  }
  end(self);
  return true;
}

bool Library::upgrade_image(int target, const PackageEntry& entry, const Node& node) {
  const char* const self = "upgrade_image";
  begin(self);
  if (!allocate()) {
    return fail(self, "Malloc for image data fail");
  }
  if (image_matches(node, entry.len, entry.hash)) {
    say(self, "Partition [" + entry.name + "] already updated!");
    end(self);
    return true;
  }
  if (!erase_partition(target, entry.name)) {
    return fail(self, "Failed to erase mtd partition " + entry.name);
  }
  if (!copy_image(entry, node)) {
    return false;
  }
  if (!image_matches(node, entry.len, entry.hash)) {
    return fail(self, "Image data check hash failed");
  }
  end(self);
  return true;
}

bool Library::copy_image(const PackageEntry& entry, const Node& node) {
  const char* const self = "upgrade_image";
  const auto len = static_cast<std::uint32_t>(entry.len);
  for (std::uint32_t at = 0; at < len; at += node.block) {
    Bytes data(std::min(node.block, len - at));
    const int got = read_image_data(entry, at, data);
    if (got != static_cast<int>(data.size())) {
      return fail(self, "read partition data failed, current read len:" + to_string(got) + "!");
    }
    if (!write_data(node, at, data)) {
      return fail(self, "Image write partition data failed");
    }
  }
  return true;
}

int Library::read_image_data(const PackageEntry& entry, std::uint32_t offset, Bytes& data) {
  const char* const self = "read_upgrade_package_partition_data";
  begin(self);
  if (lseek(package_->fd, entry.offset + static_cast<std::int32_t>(offset), SEEK_SET) < 0) {
    say(self, "Seek to file fail! error:" + error());
    return -1;
  }
  const int got = readn(package_->fd, data.data(), static_cast<std::uint32_t>(data.size()));
  if (got < static_cast<int>(data.size())) {
    say(self, "Get upgrade package data fail, get len:" + to_string(got));
    return -1;
  }
  say(self, "Need len:" + to_string(got) + ", real read len:" + to_string(got));
  end(self);
  return got;
}

}  // namespace reference
