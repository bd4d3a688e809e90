// SPDX-License-Identifier: Apache-2.0
//
// The parts of the examination that are not flash: the store, the work folder, the package.
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "upi_log.h"
#include "zozale/doctor.h"
#include "zozale/package_file.h"
#include "zozale/store.h"

namespace zozale::tool {
namespace {

constexpr const char* kWorkFolder = "/cache/ovu_fota_ab";
// The log grows to 1 MiB before it becomes the backup, which stays.
constexpr uint64_t kLogRoom = 2UL * 1024 * 1024;

void tell_upgrade(Examination& examination, const StoreState& store) {
  if (!store.upgrade_status) {
    examination.note("no upgrade has been recorded yet");
    return;
  }
  const std::string text = "upgrade: " + upgrade_word(*store.upgrade_status);
  if (store.upgrade_under_way()) {
    examination.note(text, "if no process works on it, it was cut off: run it again");
  } else {
    examination.ok(text);
  }
}

void tell_sync(Examination& examination, const StoreState& store) {
  if (!store.sync_status) {
    examination.note("no synchronisation has been recorded yet");
    return;
  }
  const std::string text = "synchronisation: " + sync_word(*store.sync_status);
  if (store.sync_under_way()) {
    examination.note(text, "if no process works on it, it was cut off: run 'zozale sync' again");
  } else {
    examination.ok(text);
  }
}

uint64_t size_of(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

void examine_folder(Examination& examination) {
  struct stat status {};
  if (stat(kWorkFolder, &status) != 0) {
    examination.note(
        std::string("the work folder ") + kWorkFolder + " is missing: " + strerror(errno),
        "the library makes it when it is needed, if /cache can be written");
  } else if (!S_ISDIR(status.st_mode)) {
    examination.error(std::string(kWorkFolder) + " is not a folder", "remove what is in its place");
  } else if (access(kWorkFolder, R_OK | W_OK | X_OK) != 0) {
    examination.error(std::string(kWorkFolder) + " cannot be written: " + strerror(errno),
                      "mount /cache for writing, and run as root");
  } else {
    examination.ok(std::string(kWorkFolder) + " can be written");
  }
}

void examine_log_room(Examination& examination) {
  const uint64_t log = size_of(UPI_LOG_PATH);
  const uint64_t backup = size_of(UPI_LOG_PATH "_bak");
  struct statvfs info {};
  const bool told = statvfs(kWorkFolder, &info) == 0 || statvfs("/cache", &info) == 0;
  const uint64_t free = told ? uint64_t{info.f_bavail} * info.f_frsize : 0;
  examination.data()["work"] = {{"folder", kWorkFolder},
                                {"log_bytes", log},
                                {"log_backup_bytes", backup},
                                {"free_bytes", told ? Json(free) : Json()}};
  const std::string text = "log " + short_size(log) + ", its backup " + short_size(backup) + ", " +
                           (told ? short_size(free) : "an unknown number of bytes") + " free";
  if (told && free + log + backup < kLogRoom) {
    examination.warn(text,
                     "make room: log and backup take up to 2 MiB, and without room the reason "
                     "of a failure is lost");
  } else {
    examination.ok(text);
  }
}

}  // namespace

void examine_store(Examination& examination) {
  examination.enter("store");
  if (!store_is_there()) {
    try {
      require_store();
    } catch (const Error& error) {
      examination.error(error);
    }
    examination.data()["store"] = nullptr;
    return;
  }
  const StoreState store = read_store();
  examination.data()["store"] = {{"upgrade_status", value_or_null(store.upgrade_status)},
                                 {"upgrade_total_bytes", value_or_null(store.total_size)},
                                 {"upgrade_done_bytes", value_or_null(store.upgraded_size)},
                                 {"sync_status", value_or_null(store.sync_status)}};
  tell_upgrade(examination, store);
  tell_sync(examination, store);
}

void examine_work_folder(Examination& examination) {
  examination.enter("work folder");
  examine_folder(examination);
  examine_log_room(examination);
}

void examine_package(Examination& examination) {
  examination.enter("package");
  if (access(UPGRADE_PACKAGE_PATH, F_OK) != 0) {
    examination.data()["package"] = nullptr;
    examination.ok("there is none");
    return;
  }
  try {
    const PackageFile package = open_package();
    examination.data()["package"] = to_json(package.view);
    examination.ok(short_size(package.view.file_size) + ", " +
                   upgrade_type_word(package.view.head.upgrade_type) +
                   ", in order as far as its head and tables go");
  } catch (const Error& error) {
    examination.data()["package"] = nullptr;
    examination.warn(error.what(), trouble_of(error).next);
  }
}

}  // namespace zozale::tool
