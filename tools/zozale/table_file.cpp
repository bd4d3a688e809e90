// SPDX-License-Identifier: Apache-2.0
#include "zozale/table_file.h"

#include <algorithm>

#include "upi_public.h"
#include "zozale/failure.h"

namespace zozale::tool {
namespace {

TableReading read_file() {
  try {
    return read_partition_table(SYSTEM_PARTITION_TABLE_PATH);
  } catch (const Error& error) {
    throw Failure(kExitDeviceUnfit,
                  {"the partition table file cannot be read", SYSTEM_PARTITION_TABLE_PATH,
                   error.what(), "put the file of this platform there"});
  }
}

Failure unfit(const Findings& findings) {
  const auto error = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.severity == Severity::kError;
  });
  return {kExitDeviceUnfit,
          {std::string("the partition table file is unfit: ") + error->field, error->text,
           error->value, "correct " SYSTEM_PARTITION_TABLE_PATH}};
}

}  // namespace

TableReading require_table() {
  TableReading reading = read_file();
  if (!reading.table) {
    throw unfit(reading.findings);
  }
  return reading;
}

PartitionTable require_harmless_table() {
  TableReading reading = require_table();
  if (has_errors(reading.findings)) {
    throw unfit(reading.findings);
  }
  return *reading.table;
}

}  // namespace zozale::tool
