// SPDX-License-Identifier: Apache-2.0
#include "expected_log.h"

#include <gtest/gtest.h>

using std::to_string;

namespace {

const std::string kRule(28, '-');

}  // namespace

ExpectedLog::ExpectedLog(sim::Device& device, const LibraryRun& run) : device_(device) {
  for (const sim::Call& call : run.made(sim::Op::open)) {
    if (!call.partition.empty()) {
      opens_.push_back(call);
    }
  }
}

ExpectedLog& ExpectedLog::say(const std::string& function, const std::string& message) {
  lines_.push_back({function, message});
  return *this;
}

ExpectedLog& ExpectedLog::begin(const std::string& function) {
  return say(function, function + " func begin!");
}

ExpectedLog& ExpectedLog::end(const std::string& function) {
  return say(function, function + " func end!");
}

int ExpectedLog::open_fd(const std::string& mtd_name) {
  if (next_open_ == opens_.size()) {
    ADD_FAILURE() << "the call opened too few nodes: none for " << mtd_name;
    return -1;
  }
  EXPECT_EQ(opens_[next_open_].partition, mtd_name) << "open " << next_open_;
  EXPECT_EQ(opens_[next_open_].flags & 0x1003, 0x1002) << mtd_name << ": O_RDWR | O_DSYNC";
  last_fd_ = opens_[next_open_++].fd;
  return last_fd_;
}

ExpectedLog& ExpectedLog::writes_to(int fd) {
  write_fd_ = fd;
  return *this;
}

ExpectedLog& ExpectedLog::mtd_find(const std::string& mtd_name, int type) {
  const sim::Partition partition = device_.partition(mtd_name);
  say("mtd_find", "partition name:" + mtd_name + ", type:" + to_string(type));
  return say("mtd_find", "o_mtd_path=[" + partition.node() + "]");
}

ExpectedLog& ExpectedLog::is_partition_exist(int target, const std::string& name) {
  const std::string mtd_name = target == 2 ? name + "2" : name;
  const std::string size = to_string(device_.partition(mtd_name).size());
  begin("is_partition_exist");
  say("is_partition_exist", "Mtd :[" + mtd_name + "] exist, size:" + size);
  return end("is_partition_exist");
}

ExpectedLog& ExpectedLog::get_partition_mtd_info(const std::string& mtd_name) {
  const char* const self = "get_partition_mtd_info";
  const sim::MtdInfo info = device_.partition(mtd_name).reported_info();
  mtd_find(mtd_name);
  say(self, "Mtd info:");
  say(self, "Mtd Blocksize:" + to_string(info.erase_size) + ":");
  say(self, "Mtd oobsize:" + to_string(info.oob_size) + ":");
  say(self, "Mtd pageperblock:" + to_string(info.erase_size / info.write_size) + ":");
  say(self, "Mtd pagesize:" + to_string(info.write_size) + ":");
  say(self, "Mtd totalsize:" + to_string(info.size) + ":");
  return say(self, "mtd partition file description:" + to_string(open_fd(mtd_name)));
}

ExpectedLog& ExpectedLog::mtd_erase_partition(int target, const std::string& name) {
  const std::string mtd_name = target == 2 ? name + "2" : name;
  begin("mtd_erase_partition");
  say("mtd_erase_partition", "partition name:" + name + ", real name:" + mtd_name);
  mtd_find(mtd_name);
  open_fd(mtd_name);
  return end("mtd_erase_partition");
}

ExpectedLog& ExpectedLog::check_image_hash() {
  return begin("check_image_hash").end("check_image_hash");
}

ExpectedLog& ExpectedLog::write_mtd_partition_data() {
  begin("write_mtd_partition_data");
  say("write_mtd_partition_data", "Mtd fd:" + to_string(write_fd_));
  return end("write_mtd_partition_data");
}

ExpectedLog& ExpectedLog::upi_get_current_system() {
  const char* const self = "upi_get_current_system";
  const std::string system = device_.running() == sim::System::a ? "system_a" : "system_b";
  begin(self);
  say(self, "buff:console=ttyS0,115200 system=" + system + " rootwait\n");
  say(self, "para:console=ttyS0,115200").say(self, "para:system=" + system);
  return end(self);
}

ExpectedLog& ExpectedLog::upi_flush_upgrade_status(int status, const char* status_name, int total,
                                                   int updated) {
  const char* const self = "upi_flush_upgrade_status";
  begin(self);
  say(self, "Update status: [" + to_string(status) + "](" + status_name +
                ") total_size:" + to_string(total) + ", updated size:" + to_string(updated) + "!");
  return end(self);
}

ExpectedLog& ExpectedLog::upi_set_system_status(int system, int status, int a, int b) {
  const char* const self = "upi_set_system_status";
  const char* const writer = "upi_set_boot_flags_content";
  mtd_find("flags");
  open_fd("flags");
  say(self, "Set " + to_string(system) + " system status to " + to_string(status));
  say(self, "Current status:system1:" + to_string(a) + " system2:" + to_string(b));
  begin(writer).mtd_find("flags");
  say(writer, "Fotaflag partition fd:" + to_string(open_fd("flags")));
  say(writer, "begin to write main fotaflag").say(writer, "Write main to [0] block!");
  say(writer, "Main fotaflag location:[0]->[0]");
  say(writer, "begin to write backup fotaflag");
  say(writer, "Backup fotaflag location:[1]->[1]");
  return end(writer).say(self, "Set system status success");
}

ExpectedLog& ExpectedLog::show_table(const char* kind,
                                     const std::vector<sim::TableEntry>& entries) {
  const char* const self = "show_system_partition_info";
  say(self, std::string("------- system partition info: ") + kind + " Partition Info -------");
  for (const sim::TableEntry& entry : entries) {
    say(self, "name: " + entry.name);
    say(self, "system_type: " + to_string(entry.system_type));
    say(self, "partition_type: " + to_string(entry.partition_type));
  }
  return *this;
}

ExpectedLog& ExpectedLog::init_system_partition_info() {
  const char* const self = "show_system_partition_info";
  const sim::Layout& layout = device_.layout();
  say(self, "Show System Partition Info:");
  say(self, "------- system partition info: Head -------");
  say(self, "magic: SUPI").say(self, "plat: " + to_string(layout.plat));
  say(self, "plat_partition_num: " + to_string(layout.platform.size()));
  say(self, "oem_partition_num: " + to_string(layout.oem.size()));
  return show_table("Platform", layout.platform).show_table("Oem", layout.oem);
}

ExpectedLog& ExpectedLog::show_package_head(const support::PackageFile& package) {
  const char* const self = "show_upgrade_package_head_info";
  const sim::Bytes bytes = package.bytes();
  const auto hash = bytes.begin() + support::kHeadHashOffset;
  // The version's lowest byte stands right behind the magic.
  say(self, "magic:FOTA" + std::string(1, static_cast<char>(package.version & 0xFF)));
  say(self, "upgrade package version:" + to_string(package.version));
  say(self, "upgrade package plat:" + to_string(package.plat));
  say(self, "upgrade package type:" + to_string(package.package_type));
  say(self, "upgrade type:" + to_string(package.upgrade_type));
  say(self, "upgrade package partition num:" + to_string(package.partitions.size()));
  say(self, "upgrade package extra file num:" + to_string(package.extras.size()));
  say(self, "upgrade package hash type:" + to_string(package.hash_type));
  say(self, "upgrade package block size:" + to_string(package.block_size));
  say(self, "upgrad package version_dst:" + package.version_dst);
  return say("show_hash_hex",
             "upgrade package content hash::" + support::shown_digest(sim::Bytes(hash, hash + 64)));
}

ExpectedLog& ExpectedLog::show_package_partitions(const support::PackageFile& package) {
  const char* const self = "show_partition_info";
  std::size_t offset = package.payload_offset();
  say(self, kRule);
  say(self, "There is/are [" + to_string(package.partitions.size()) + "] partition(s)\xA3\xA1\n");
  for (const support::PackageEntry& entry : package.partitions) {
    say(self, kRule).say(self, "partition name:" + entry.name);
    say(self, "partition len:" + to_string(entry.data.size()));
    say(self, "partition offset:" + to_string(offset));
    say(self, "partition partition_type:" + to_string(entry.partition_type));
    say(self, "partition zipped:" + to_string(entry.zipped));
    say("show_hash_hex", "hash::" + support::shown_digest(support::sha512(entry.data)));
    offset += entry.data.size();
  }
  return say(self, kRule);
}

ExpectedLog& ExpectedLog::show_package_extras(const support::PackageFile& package) {
  say("show_extra_info", "Extra file number:" + to_string(package.extras.size()));
  return say("show_extra_info", kRule);
}

ExpectedLog& ExpectedLog::init_upgrade_package_info(const support::PackageFile& package) {
  const char* const self = "init_upgrade_package_info";
  const char* const read = "Read data from file by fd!";
  say(self, "<<<<<<<<<<<Init upgrade package info>>>>>>>>>>>>");
  say("upi_readn", read);
  say("is_upgrade_package_file_valid", "Upgrade package magic word check success!");
  say("upi_readn", read);
  if (!package.partitions.empty()) {
    say("upi_readn", read).init_system_partition_info();
  }
  say(self, "There is no extra file in upgrade package file!");
  show_package_head(package).show_package_partitions(package).show_package_extras(package);
  return say(self, "<<<<<<<<<<<Init upgrade package info success>>>>>>>>>>>>");
}
