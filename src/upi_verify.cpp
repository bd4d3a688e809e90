// SPDX-License-Identifier: Apache-2.0
#include "upi_verify.h"

#include "upi_hash.h"
#include "upi_log.h"
#include "upi_mtd.h"
#include "upi_public.h"

namespace {

constexpr unsigned kHeadSize = sizeof(upgrade_package_head_info_t);

int end_verification(bool verified, unsigned start) {
  if (verified) {
    UPI_LOG_AS("upi_verify", "-------------- Verify Takes %us --------------",
               upi::seconds_since(start));
  }
  UPI_LOG_AS("upi_verify", "<<<<<<<<<<verify upgrade package %s>>>>>>>>>>>",
             verified ? "Success" : "Failed");
  deinit_upgrade_package_info();
  upi_set_upgrade_status(verified ? UPGRADE_STATUS_VERIFY_SUCCESS : UPGRADE_STATUS_VERIFY_FAIL);
  return verified ? 0 : -1;
}

// Cannot fail with a package that was loaded; one that a host made up may lack its table.
bool has_table(const partition_head_info_t* entries, int count) {
  if (count > 0 && entries == nullptr) {
    UPI_LOG_AS("verify_partition_info", "Partition index [%d] info is null!", 0);
    return false;
  }
  return true;
}

// Logs how one check of an entry ended; `what` was checked.
bool end_check(partition_head_info_t* entry, const char* what, int result) {
  UPI_LOG_AS("verify_partition_info", "--------verify partition [%.*s] %s info %s-----------\n",
             upi::partition_name_limit(entry), entry->name, what, result == 0 ? "end" : "fail");
  return result == 0;
}

bool verify_images(partition_head_info_t* entries, int count) {
  for (int i = 0; i < count; ++i) {
    partition_head_info_t* entry = &entries[i];
    UPI_LOG_AS("verify_partition_info", "--------verify partition package info:%.*s---------------",
               upi::partition_name_limit(entry), entry->name);
    if (!end_check(entry, "package", verify_partition_package(entry))) {
      return false;
    }
  }
  return true;
}

bool verify_target(int target, partition_head_info_t* entries, int count) {
  for (int i = 0; i < count; ++i) {
    partition_head_info_t* entry = &entries[i];
    UPI_LOG_AS("verify_partition_info", "--------verify partition [%.*s] mtd info---------------",
               upi::partition_name_limit(entry), entry->name);
    if (!end_check(entry, "mtd", verify_partition_mtd(target, entry))) {
      return false;
    }
  }
  return true;
}

// Compares a digest of the package with the one that was computed; the titles are for a difference.
int check_digest(const char* speaker, uint8_t* expected, const char* expected_title,
                 unsigned char* computed, const char* computed_title) {
  if (hash_compare(upi::digest_text(expected), upi::digest_text(computed), HASH_SHA512) != 0) {
    show_hash_hex(HASH_SHA512, expected_title, upi::digest_text(expected));
    show_hash_hex(HASH_SHA512, computed_title, upi::digest_text(computed));
    return -1;
  }
  UPI_LOG_AS(speaker, "Verify upgrade package hash success!");
  return 0;
}

}  // namespace

int upi_verify(void) {
  UPI_LOG("<<<<<<<<<<start verifying upgrade package>>>>>>>>>>>");
  const unsigned start = timestamp_now();
  upi_set_upgrade_status(UPGRADE_STATUS_VERIFING);
  if (init_upgrade_package_info(UPGRADE_PACKAGE_PATH) != 0) {
    UPI_LOG("Init upgrade package info fail");
    return end_verification(false, start);
  }
  return end_verification(verify() == 0, start);
}

int verify(void) {
  upgrade_package_info_t* package_info = get_upgrade_package_info();
  if (package_info == nullptr) {
    UPI_LOG("Get upgrade package info fail!");
    return -1;
  }
  return verify_upgrade_package_hash(package_info) == 0 ? verify_partition_info() : -1;
}

int verify_upgrade_package_hash(upgrade_package_info_t* package_info) {
  unsigned char digest[256] = {};
  if (get_hash_from_fd(HASH_TYPE_SHA_512, package_info->upgrade_package_file_desc, kHeadSize,
                       package_info->upgrade_package_file_size - kHeadSize, 0, digest) != 0) {
    UPI_LOG("Get upgrade package hash fail");
    return -1;
  }
  return check_digest(UPI_FUNCTION, package_info->head->hash,
                      "Verify upgrade package hash, get from delta:", digest,
                      "Verify upgrade package hash, count from delta:");
}

int verify_partition_info(void) {
  const int count = get_partition_num();
  const int target = upi_get_target_upgrade_system();
  if (target != kSystemA && target != kSystemB) {
    return -1;
  }
  partition_head_info_t* entries = get_partition_head_info();
  return has_table(entries, count) && verify_images(entries, count) &&
                 verify_target(target, entries, count)
             ? 0
             : -1;
}

int verify_partition_package(partition_head_info_t* partition_info) {
  unsigned char digest[kDigestSize] = {};
  if (get_hash_from_fd(HASH_TYPE_SHA_512, get_upgrade_package_file_fd(),
                       static_cast<unsigned>(partition_info->offset),
                       static_cast<unsigned>(partition_info->len), 0, digest) != 0) {
    UPI_LOG("Get partition [%.*s] hash from pacakge file fail!",
            upi::partition_name_limit(partition_info), partition_info->name);
    return -1;
  }
  return check_digest(
      UPI_FUNCTION, partition_info->hash,
      "Verify upgrade package partition hash, get from delta head info: ", digest,
      "Verify upgrade package partition hash, count from delta partiontion content: ");
}

int verify_partition_mtd(int target, partition_head_info_t* partition_info) {
  if (is_partition_exist(target, partition_info->name) != 0) {
    UPI_LOG("There is no [%.*s] partition!", upi::partition_name_limit(partition_info),
            partition_info->name);
    return -1;
  }
  return 0;
}
