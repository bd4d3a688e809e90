// SPDX-License-Identifier: Apache-2.0
//
// Verification of a package.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/reference/library.h"
#include "tests/support/package_file.h"

namespace reference {
namespace {

constexpr const char* kStatus = "fota_ab_upgrade_status";
constexpr const char* kEntries = "verify_partition_info";

}  // namespace

int Library::verify() {
  const char* const self = "upi_verify";
  say(self, "<<<<<<<<<<start verifying upgrade package>>>>>>>>>>>");
  store(kStatus, 0);
  const bool good = load() ? verify_package() : fail(self, "Init upgrade package info fail");
  if (good) {
    say(self, "-------------- Verify Takes 0s --------------");
  }
  say(self, std::string("<<<<<<<<<<verify upgrade package ") + (good ? "Success" : "Failed") +
                ">>>>>>>>>>>");
  release();
  store(kStatus, good ? 1 : 2);
  return good ? 0 : -1;
}

bool Library::verify_package() {
  if (!verify_content()) {
    return false;
  }
  const int running = running_system();
  if (running == -1) {
    return fail("upi_get_target_upgrade_system", "Get target system fail!");
  }
  if (!verify_entries()) {
    return false;
  }
  for (const PackageEntry& entry : package_->partitions) {
    const std::string start = "--------verify partition [" + entry.name + "] mtd info";
    say(kEntries, start + "---------------");
    if (!exists(3 - running, entry.name)) {
      say("verify_partition_mtd", "There is no [" + entry.name + "] partition!");
      return fail(kEntries, start + " fail-----------\n");
    }
    say(kEntries, start + " end-----------\n");
  }
  return true;
}

bool Library::verify_content() {
  const char* const self = "verify_upgrade_package_hash";
  const auto from = package_->head.begin() + support::kHeadHashOffset;
  const Bytes expected(from, from + 64);
  Bytes digest;
  if (!hash_file(256, package_->size - 256, digest)) {
    return fail(self, "Get upgrade package hash fail");
  }
  if (!same_digest(expected, digest)) {
    show_digest("Verify upgrade package hash, get from delta:", expected);
    show_digest("Verify upgrade package hash, count from delta:", digest);
    return false;
  }
  say(self, "Verify upgrade package hash success!");
  return true;
}

bool Library::verify_entries() {
  for (const PackageEntry& entry : package_->partitions) {
    const std::string start = "--------verify partition [" + entry.name + "] package info";
    say(kEntries, "--------verify partition package info:" + entry.name + "---------------");
    if (!verify_entry(entry)) {
      return fail(kEntries, start + " fail-----------\n");
    }
    say(kEntries, start + " end-----------\n");
  }
  return true;
}

bool Library::verify_entry(const PackageEntry& entry) {
  const char* const self = "verify_partition_package";
  Bytes digest;
  if (!hash_file(static_cast<std::uint32_t>(entry.offset), static_cast<std::uint32_t>(entry.len),
                 digest)) {
    return fail(self, "Get partition [" + entry.name + "] hash from pacakge file fail!");
  }
  if (!same_digest(entry.hash, digest)) {
    show_digest("Verify upgrade package partition hash, get from delta head info: ", entry.hash);
    show_digest("Verify upgrade package partition hash, count from delta partiontion content: ",
                digest);
    return false;
  }
  say(self, "Verify upgrade package hash success!");
  return true;
}

bool Library::hash_file(std::uint32_t offset, std::uint32_t len, Bytes& digest) {
  const char* const self = "get_hash_SHA512_from_fd";
  if (lseek(package_->fd, static_cast<off_t>(offset), SEEK_SET) < 0) {
    return fail(self, "Lseek failed with return value: -1, error:" + error());
  }
  Bytes content(len);
  std::size_t done = 0;
  while (done < len) {
    const ssize_t got =
        read(package_->fd, content.data() + done, std::min<std::size_t>(4096, len - done));
    if (got < 0) {
      return fail(self, "Get file content failed, error: " + error() + "!");
    }
    done += static_cast<std::size_t>(got);
  }
  digest = support::sha512(content);
  return true;
}

}  // namespace reference
