// SPDX-License-Identifier: Apache-2.0
//
// The device's partition table file, for the commands that need it in order.
#ifndef ZOZALE_TOOL_TABLE_FILE_H
#define ZOZALE_TOOL_TABLE_FILE_H

#include "common/partition_table.h"

namespace zozale::tool {

// What the file says, harmful entries too. Throws Failure(kExitDeviceUnfit) when the library would
// refuse it, or when there is none.
TableReading require_table();

// The same, and Failure(kExitDeviceUnfit) when an entry would harm the device.
PartitionTable require_harmless_table();

}  // namespace zozale::tool

#endif
