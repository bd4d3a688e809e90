// SPDX-License-Identifier: Apache-2.0
#include "sim/report_names.h"

#include <algorithm>
#include <cstdio>

#include "sim/boot_loader.h"

namespace sim {
namespace {

std::string number_text(std::uint32_t value) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "0x%X", value));
  return text;
}

}  // namespace

const char* power_name(Power power) {
  switch (power) {
    case Power::on:
      return "on";
    case Power::cut:
      return "off after a power cut";
    case Power::rebooting:
      return "going down for a reboot";
  }
  return "unknown";
}

std::string target_name(std::uint32_t boot_to) {
  if (boot_to == kBootToA) {
    return "A";
  }
  return boot_to == kBootToB ? "B" : number_text(boot_to);
}

std::string status_name(std::int32_t status) {
  switch (status) {
    case kStatusBootable:
      return "bootable";
    case kStatusSuccessful:
      return "successful";
    case kStatusUnbootable:
      return "unbootable";
    default:
      return number_text(static_cast<std::uint32_t>(status));
  }
}

std::vector<std::pair<std::string, std::uint64_t>> named_breaks(const RuleBreaks& breaks) {
  return {{"page_programmed_twice", breaks.page_programmed_twice},
          {"page_out_of_order", breaks.page_out_of_order},
          {"block_not_erased", breaks.block_not_erased},
          {"bad_block_programmed", breaks.bad_block_programmed},
          {"bad_block_erased", breaks.bad_block_erased},
          {"bad_block_read", breaks.bad_block_read}};
}

std::uint32_t worst_block(const Partition& partition) {
  std::uint32_t worst = 0;
  for (std::uint32_t block = 0; block < partition.blocks(); ++block) {
    worst = std::max(worst, partition.erase_count(block));
  }
  return worst;
}

}  // namespace sim
