// SPDX-License-Identifier: Apache-2.0
//
// What the library's console lines tell of the progress of its operations.
#ifndef ZOZALE_TOOL_STEPS_H
#define ZOZALE_TOOL_STEPS_H

#include <cstdint>
#include <string>
#include <vector>

#include "zozale-package/package_view.h"
#include "zozale/display.h"
#include "zozale/library.h"
#include "zozale/meter.h"
#include "zozale/plan.h"
#include "zozale/position.h"

namespace zozale::tool {

// A follower that keeps a meter and shows it.
class MeteredFollower : public Follower {
 public:
  MeteredFollower(Meter& meter, Display& display) : meter_(meter), display_(display) {}

  void on_line(const LogLine& line) final;
  void on_tick() final;

 protected:
  // True when the line moved the meter: most do not.
  virtual bool take(const LogLine& line) = 0;
  // Moves the meter by what the kernel tells, while no line comes.
  virtual void look() = 0;
  Meter& meter() { return meter_; }

 private:
  Meter& meter_;
  Display& display_;
};

// Follows a verification: the content of the package, then each image.
class VerifySteps : public MeteredFollower {
 public:
  // Plans the verification's work.
  VerifySteps(Meter& meter, Display& display, const PackageView& package);

  // Name of the image that is being verified; empty before the first.
  const std::string& image() const { return image_; }
  // The digest that turned out different, if one did: the content's or the image's.
  bool digest_differs() const { return digest_differs_; }

 protected:
  bool take(const LogLine& line) override;
  void look() override;

 private:
  void begin_image(std::string_view name);

  const PackageView& package_;
  FileIdentity file_;
  uint64_t start_ = kHeadSize;  // of what is being hashed, in the file
  size_t images_ = 0;
  std::string image_;
  bool digest_differs_ = false;
};

// Plans the work of an upgrade of so many bytes: it reads a partition, writes it where it differs,
// and reads it again.
void plan_upgrade_work(Meter& meter, uint64_t bytes);

// Follows what is done to one partition of a plan after the other.
class PartitionSteps : public MeteredFollower {
 public:
  PartitionSteps(Meter& meter, Display& display, const Plan& plan)
      : MeteredFollower(meter, display), plan_(plan) {}

  // For each partition that was reached, whether it was written (or begun to be).
  const std::vector<bool>& written() const { return written_; }
  size_t count_written() const;
  // What was being done last, as "writing rootfs2"; empty before the first partition.
  const std::string& place() const { return place_; }

 protected:
  bool take(const LogLine& line) final;
  void look() final;
  virtual bool begins_partition(const LogLine& line) const = 0;
  virtual void begin_partition() = 0;
  virtual bool take_in_partition(const LogLine& line) = 0;
  virtual void look_in_partition() = 0;

  const PlanItem& item() const { return plan_.items.at(written_.size() - 1); }
  bool writing() const { return written_.back(); }
  void set_place(const std::string& stage);
  void begin_step(Work work, const std::string& stage, uint64_t bytes);
  // Erasing: the partition is being written from here on.
  void begin_erasing();
  // The partition holds what it is to hold already.
  void pass_over(uint64_t bytes_not_read);

 private:
  const Plan& plan_;
  std::vector<bool> written_;
  std::string place_;
};

// Follows an upgrade.
class UpgradeSteps : public PartitionSteps {
 public:
  using PartitionSteps::PartitionSteps;

 protected:
  bool begins_partition(const LogLine& line) const override;
  void begin_partition() override;
  bool take_in_partition(const LogLine& line) override;
  void look_in_partition() override;

 private:
  uint64_t chunk_ = 0;  // bytes of the block that is being written
};

// Plans the work of a synchronisation of so many bytes: both sides are read, and where they differ
// the target is written and both are read again.
void plan_sync_work(Meter& meter, uint64_t bytes);

// Follows a synchronisation. The library says nothing while it copies: steps begin and end.
class SyncSteps : public PartitionSteps {
 public:
  using PartitionSteps::PartitionSteps;

 protected:
  bool begins_partition(const LogLine& line) const override;
  void begin_partition() override;
  bool take_in_partition(const LogLine& line) override;
  void look_in_partition() override;

 private:
  bool copying_ = false;
};

}  // namespace zozale::tool

#endif
