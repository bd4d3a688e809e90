// SPDX-License-Identifier: Apache-2.0
#include <nlohmann/json.hpp>

#include "sim/report.h"
#include "sim/report_names.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kSchemaVersion = 1;

Json partition_json(const Partition& partition) {
  Json bad = Json::array();
  Json erases = Json::array();
  for (std::uint32_t block = 0; block < partition.blocks(); ++block) {
    erases.push_back(partition.erase_count(block));
    if (partition.is_bad(block)) {
      bad.push_back(block);
    }
  }
  return {{"number", partition.number()},
          {"name", partition.name()},
          {"blocks", partition.blocks()},
          {"good_blocks", partition.good_blocks()},
          {"bad_blocks", bad},
          {"write_protected", partition.write_protected()},
          {"erases", erases}};
}

Json system_json(const BootRecord& record, System system) {
  return {{"status", status_name(record.status(system))}, {"attempts", record.attempts(system)}};
}

Json copy_json(const RecordCopy& copy) {
  Json json;
  json["block"] = copy.block ? Json(*copy.block) : Json(nullptr);
  json["valid"] = copy.valid();
  if (copy.valid()) {
    json["boot_to"] = target_name(copy.record.boot_to());
    json["fota_status"] = copy.record.fota_status();
    json["A"] = system_json(copy.record, System::a);
    json["B"] = system_json(copy.record, System::b);
  }
  return json;
}

Json flags_json(Device& device) {
  const RecordCopies copies = read_records(device);
  const BootResult next = next_boot(device);
  return {{"main", copy_json(copies.main)},
          {"backup", copy_json(copies.backup)},
          {"next_start", std::string(1, letter(next.started))},
          {"why", next.why}};
}

Json counts_json(const Device& device) {
  Json counts = Json::object();
  for (std::size_t i = 0; i < kOpCount; ++i) {
    const auto op = static_cast<Op>(i);
    if (device.count(op) > 0) {
      counts[op_name(op)] = device.count(op);
    }
  }
  return counts;
}

Json breaks_json(const RuleBreaks& breaks) {
  Json json = Json::object();
  for (const auto& [name, count] : named_breaks(breaks)) {
    json[name] = count;
  }
  return json;
}

}  // namespace

std::string device_json(Device& device) {
  const Geometry& geometry = device.layout().geometry;
  Json json = {{"schema", "zozale-sim.show"},
               {"version", kSchemaVersion},
               {"device", device.folder().string()},
               {"power", power_name(device.power())},
               {"running", std::string(1, letter(device.running()))},
               {"geometry",
                {{"blocks", geometry.blocks},
                 {"block_size", geometry.block_size()},
                 {"page_size", geometry.page_size},
                 {"oob_size", geometry.oob_size}}}};
  json["partitions"] = Json::array();
  for (std::uint32_t i = 0; i < device.partition_count(); ++i) {
    json["partitions"].push_back(partition_json(device.partition(i)));
  }
  json["flags"] = flags_json(device);
  json["rule_breaks"] = breaks_json(device.nand().rule_breaks());
  json["operations"] = counts_json(device);
  json["store"] = Json::object();
  for (const auto& [name, value] : device.store().all()) {
    json["store"][name] = value;
  }
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace sim
