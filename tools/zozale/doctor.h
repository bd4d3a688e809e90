// SPDX-License-Identifier: Apache-2.0
//
// The examination of a device: everything that an upgrade relies on, each finding with what to do
// about it. Reads only: no log, no store, no flash is written.
#ifndef ZOZALE_TOOL_DOCTOR_H
#define ZOZALE_TOOL_DOCTOR_H

#include <optional>
#include <string>
#include <vector>

#include "zozale/flags.h"
#include "zozale/mtd.h"
#include "zozale/report.h"
#include "zozale/terms.h"

namespace zozale::tool {

enum class Level {
  kOk,       // as it should be
  kNote,     // worth knowing
  kWarning,  // works, but not as one may think
  kError,    // the device is not fit
};

struct Remark {
  Level level;
  std::string area;
  std::string text;
  std::string next;  // what to do; empty when nothing is to be done
};

class Examination {
 public:
  // What remarks are about from here on, such as "partitions".
  void enter(const std::string& area) { area_ = area; }
  void ok(const std::string& text) { add(Level::kOk, text, ""); }
  void note(const std::string& text, const std::string& next = "") {
    add(Level::kNote, text, next);
  }
  void warn(const std::string& text, const std::string& next) { add(Level::kWarning, text, next); }
  void error(const std::string& text, const std::string& next) { add(Level::kError, text, next); }
  // An error of the tools, with its own parts as far as it has them.
  void error(const Error& error);

  const std::vector<Remark>& remarks() const { return remarks_; }
  size_t count(Level level) const;
  // Facts for the JSON document, by area.
  Json& data() { return data_; }

 private:
  void add(Level level, const std::string& text, const std::string& next) {
    remarks_.push_back({level, area_, text, next});
  }

  std::string area_;
  std::vector<Remark> remarks_;
  Json data_ = Json::object();
};

// The parts of it, in order. Each begins with enter() and never throws Error.
std::optional<System> examine_command_line(Examination& examination);
void examine_partitions(Examination& examination, const MtdTable& flash);
void examine_flags(Examination& examination, const MtdTable& flash,
                   const std::optional<System>& running);
void examine_store(Examination& examination);
void examine_work_folder(Examination& examination);
void examine_package(Examination& examination);

// What a boot loader that keeps to the record does next, in one sentence.
std::string boot_forecast(const T_BOOT_FOTA_FLAG& flag);

}  // namespace zozale::tool

#endif
