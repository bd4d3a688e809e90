// SPDX-License-Identifier: Apache-2.0
//
// That the package which the library uses is the one which was checked: the library opens it by its
// path, each time anew.
#ifndef ZOZALE_TOOL_AUTHENTICITY_H
#define ZOZALE_TOOL_AUTHENTICITY_H

#include <string>
#include <vector>

#include "zozale/display.h"
#include "zozale/library.h"
#include "zozale/meter.h"
#include "zozale/package_file.h"
#include "zozale/plan.h"
#include "zozale/session.h"

namespace zozale::tool {

// Opens the package as the command line demands it, and tells what it is, who signed it, and what
// to know about it. Throws as open_package() does.
PackageFile take_package(Session& session);

// Failure(kExitExchanged) unless the path still leads to the file that was checked, with the times
// and the size that it had.
void require_unchanged(const PackageFile& package);

// Plans the reading that `passes` calls of require_same_package() do.
void plan_same_package(Meter& meter, const PackageFile& package, int passes);

// The same, and when a signature was asked for every byte is read and compared, too. A package that
// was exchanged is one that was not verified, in the store too.
void require_same_package(Session& session, const PackageFile& package, Meter& meter,
                          Display& display);

// Keeps the names of the partitions that an upgrade sets about, as the library tells them, and in
// which of them it could not erase a block.
class PartitionWitness : public Follower {
 public:
  explicit PartitionWitness(Follower& next) : next_(next) {}

  void on_line(const LogLine& line) override;
  void on_tick() override { next_.on_tick(); }
  const std::vector<std::string>& names() const { return names_; }
  bool erase_failed(size_t partition) const { return erase_failed_.at(partition); }

 private:
  Follower& next_;
  std::vector<std::string> names_;
  std::vector<bool> erase_failed_;
};

// Plans the reading that require_authentic_outcome() does.
void plan_authentic_outcome(Meter& meter, const PackageFile& package);

// What an upgrade has done.
struct Outcome {
  const Plan& plan;
  const PartitionWitness& witness;
  const std::vector<bool>& written;  // which partitions it wrote to
  bool succeeded;
};

// After an upgrade, of a package whose signature was checked: that the package is the same, that no
// other partitions were upgraded, and, if the upgrade succeeded, that the target's partitions hold
// its images and nothing behind them. Otherwise the target, which the library has marked bootable,
// is marked unbootable, and the store says that the upgrade failed. Throws Failure(kExitExchanged),
// or Failure(kExitFailed) for a target that cannot be read or was not erased.
void require_authentic_outcome(Session& session, const PackageFile& package, const Outcome& outcome,
                               Meter& meter, Display& display);

}  // namespace zozale::tool

#endif
