// SPDX-License-Identifier: Apache-2.0
#include "zozale/steps.h"

#include <algorithm>

namespace zozale::tool {
namespace {

constexpr std::string_view kBegin = " func begin!";
constexpr std::string_view kEnd = " func end!";

bool begins(const LogLine& line, std::string_view function) {
  return line.function == function && between(line.message, function, kBegin) == "";
}

bool ends(const LogLine& line, std::string_view function) {
  return line.function == function && between(line.message, function, kEnd) == "";
}

bool tells_skipped_block(const LogLine& line) {
  return number_after(line.message, "Mtd, not erasing bad block at ").has_value();
}

bool tells_lookup(const LogLine& line, const std::string& mtd) {
  return line.is("mtd_find", "partition name:" + mtd + ", type:0");
}

uint64_t content_size(const PackageView& package) {
  return package.file_size - kHeadSize;
}

}  // namespace

void MeteredFollower::on_line(const LogLine& line) {
  if (take(line)) {
    display_.show(meter_.reading());
  }
}

void MeteredFollower::on_tick() {
  display_.show(meter_.reading());
}

VerifySteps::VerifySteps(Meter& meter, Display& display, const PackageView& package)
    : MeteredFollower(meter, display),
      package_(package),
      file_(FileIdentity::of(UPGRADE_PACKAGE_PATH)) {
  meter.plan(Work::kRead, content_size(package));
  for (const PackageEntry& entry : package.partitions) {
    meter.plan(Work::kRead, static_cast<uint64_t>(entry.len));
  }
}

bool VerifySteps::take(const LogLine& line) {
  const auto image =
      between(line.message, "--------verify partition package info:", "---------------");
  if (line.is("upi_verify", "<<<<<<<<<<start verifying upgrade package>>>>>>>>>>>")) {
    meter().begin_step(Work::kRead, "verifying the package", "", content_size(package_));
  } else if (image) {
    begin_image(*image);
  } else if (line.message == "Verify upgrade package hash success!") {
    meter().end_step();
  } else if (between(line.message, "Verify upgrade package", "").has_value() &&
             line.function == "show_hash_hex") {
    digest_differs_ = true;
  } else {
    return false;
  }
  return true;
}

void VerifySteps::begin_image(std::string_view name) {
  image_ = name;
  uint64_t len = 0;
  if (images_ < package_.partitions.size()) {
    const PackageEntry& entry = package_.partitions[images_++];
    start_ = static_cast<uint64_t>(entry.offset);
    len = static_cast<uint64_t>(entry.len);
  }
  meter().begin_step(Work::kRead, "verifying the image of", image_, len);
}

void VerifySteps::look() {
  const uint64_t position = position_in(file_).value_or(0);
  if (position > start_) {
    meter().reach(position - start_);
  }
}

bool PartitionSteps::take(const LogLine& line) {
  if (begins_partition(line) && written_.size() < plan_.items.size()) {
    written_.push_back(false);
    meter().forget_bad_blocks();
    begin_partition();
    return true;
  }
  if (written_.empty()) {
    return false;
  }
  if (tells_skipped_block(line)) {
    meter().skip_bad_block();
    return true;
  }
  return take_in_partition(line);
}

void PartitionSteps::look() {
  if (!written_.empty()) {
    look_in_partition();
  }
}

size_t PartitionSteps::count_written() const {
  return static_cast<size_t>(std::count(written_.begin(), written_.end(), true));
}

void PartitionSteps::set_place(const std::string& stage) {
  place_ = stage + " " + item().mtd;
}

void PartitionSteps::begin_step(Work work, const std::string& stage, uint64_t bytes) {
  set_place(stage);
  meter().begin_step(work, stage, item().mtd, bytes);
}

// The time that erasing takes counts for the bytes that are written afterwards.
void PartitionSteps::begin_erasing() {
  written_.back() = true;
  begin_step(Work::kWrite, "erasing", 0);
}

void PartitionSteps::pass_over(uint64_t bytes_not_read) {
  meter().end_step();
  meter().skip(Work::kWrite, item().bytes);
  meter().skip(Work::kRead, bytes_not_read);
}

void plan_upgrade_work(Meter& meter, uint64_t bytes) {
  meter.plan(Work::kRead, 2 * bytes);
  meter.plan(Work::kWrite, bytes);
}

bool UpgradeSteps::begins_partition(const LogLine& line) const {
  return between(line.message, "Update parition:", "").has_value();
}

void UpgradeSteps::begin_partition() {
  set_place("opening");
}

bool UpgradeSteps::take_in_partition(const LogLine& line) {
  if (begins(line, "check_image_hash")) {
    begin_step(Work::kRead, writing() ? "checking what was written to" : "checking", item().bytes);
  } else if (begins(line, "mtd_erase_partition")) {
    begin_erasing();
  } else if (ends(line, "mtd_erase_partition")) {
    begin_step(Work::kWrite, "writing", item().bytes);
  } else if (const auto chunk = number_after(line.message, "Need len:")) {
    chunk_ = static_cast<uint64_t>(*chunk);
  } else if (ends(line, "write_mtd_partition_data")) {
    meter().advance(chunk_);
  } else if (between(line.message, "Partition [", "] already updated!")) {
    pass_over(item().bytes);
  } else if (ends(line, "upgrade_image")) {
    meter().end_step();
  } else {
    return false;
  }
  return true;
}

// While it writes, the library tells every block.
void UpgradeSteps::look_in_partition() {
  if (meter().working_on() == Work::kRead) {
    meter().reach(position_in(item().node).value_or(0));
  }
}

void plan_sync_work(Meter& meter, uint64_t bytes) {
  meter.plan(Work::kRead, 4 * bytes);
  meter.plan(Work::kWrite, bytes);
}

bool SyncSteps::begins_partition(const LogLine& line) const {
  // The library's two loops spell it differently.
  return line.function == "sync_system" &&
         (between(line.message, "Sync Targrt Parition [", "] Start") ||
          between(line.message, "Sync Target Parition [", "] Start"));
}

void SyncSteps::begin_partition() {
  begin_step(Work::kRead, "comparing", 2 * item().bytes);
}

bool SyncSteps::take_in_partition(const LogLine& line) {
  if (begins(line, "erase_partition")) {
    begin_erasing();
  } else if (ends(line, "erase_partition")) {
    copying_ = true;
    begin_step(Work::kWrite, "copying to", item().bytes);
  } else if (copying_ && tells_lookup(line, item().mtd)) {
    // After the copy the second comparison looks its partitions up, the target's first.
    copying_ = false;
    begin_step(Work::kRead, "checking what was copied to", 2 * item().bytes);
  } else if (between(line.message, "dst partition [", "], do not sync")) {
    pass_over(2 * item().bytes);
  } else if (between(line.message, "Sync Target Partition [", "] Success")) {
    meter().end_step();
  } else {
    return false;
  }
  return true;
}

// A comparison reads the target and then the source.
void SyncSteps::look_in_partition() {
  const uint64_t source =
      meter().working_on() == Work::kRead ? position_in(item().source).value_or(0) : 0;
  meter().reach(source > 0 ? item().bytes + source : position_in(item().node).value_or(0));
}

}  // namespace zozale::tool
