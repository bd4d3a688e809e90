// SPDX-License-Identifier: Apache-2.0
//
// What a plan and its outcome look like.
#include "common/text.h"
#include "zozale/plan.h"

namespace zozale::tool {
namespace {

std::string state_word(const PlanItem& item) {
  if (!item.fits()) {
    return "does not fit";
  }
  return item.up_to_date.value_or(false) ? "up to date" : "to be written";
}

std::string to_line(const PlanItem& item) {
  std::string line = "  " + printable(item.mtd) + ": " + state_word(item) + ", " +
                     short_size(item.bytes) + ", erase " +
                     counted(item.blocks_to_erase(), "block") + ", write " +
                     counted(item.blocks_to_write(), "block") + "; " +
                     std::to_string(item.good_blocks) + " good of " + std::to_string(item.blocks);
  if (!item.bad_blocks.empty()) {
    line += ", bad: " + listed(item.bad_blocks);
  }
  return line;
}

Json to_json(const PlanItem& item) {
  Json json = {{"name", item.name}, {"mtd", item.mtd}, {"bytes", item.bytes}};
  if (item.up_to_date) {
    json["up_to_date"] = *item.up_to_date;
    json["blocks_to_erase"] = item.blocks_to_erase();
    json["blocks_to_write"] = item.blocks_to_write();
  }
  json["fits"] = item.fits();
  json["blocks"] = item.blocks;
  json["good_blocks"] = item.good_blocks;
  json["needed_blocks"] = item.needed_blocks;
  json["bad_blocks"] = item.bad_blocks;
  if (item.hidden_block) {
    json["hidden_data_block"] = *item.hidden_block;
  }
  return json;
}

const char* outcome_word(bool reached, bool changed) {
  if (!reached) {
    return "untouched";
  }
  return changed ? "written" : "up to date";
}

}  // namespace

void tell_plan(Report& report, const Plan& plan) {
  Json partitions = Json::array();
  for (const PlanItem& item : plan.items) {
    partitions.push_back(to_json(item));
    report.say(to_line(item));
  }
  report.data()["partitions"] = partitions;
  report.data()["nothing_to_do"] = plan.all_up_to_date();
}

void record_outcome(Report& report, const Plan& plan, const std::vector<bool>& written) {
  Json partitions = Json::array();
  bool nothing = true;
  for (size_t i = 0; i < plan.items.size(); ++i) {
    const bool reached = i < written.size();
    const bool changed = reached && written[i];
    Json partition = to_json(plan.items[i]);
    partition["state"] = outcome_word(reached, changed);
    partitions.push_back(partition);
    nothing = nothing && !changed;
  }
  report.data()["partitions"] = partitions;
  report.data()["nothing_to_do"] = nothing;
}

}  // namespace zozale::tool
