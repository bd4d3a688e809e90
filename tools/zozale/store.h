// SPDX-License-Identifier: Apache-2.0
//
// The platform's configuration store, which a library of the platform provides: the tool starts
// without it.
#ifndef ZOZALE_TOOL_STORE_H
#define ZOZALE_TOOL_STORE_H

#include <optional>
#include <string>

namespace zozale::tool {

bool store_is_there();
// Failure(kExitDeviceUnfit) when the process has no store.
void require_store();

// What the store says of the last upgrade and of the last synchronisation. A number that was never
// written is nothing, where the library reads 0. Writes nothing, not even the log. Only with a
// store.
struct StoreState {
  std::optional<int> upgrade_status;
  std::optional<int> total_size;
  std::optional<int> upgraded_size;
  std::optional<int> sync_status;

  bool upgrade_under_way() const;
  bool sync_under_way() const;
};
StoreState read_store();

}  // namespace zozale::tool

#endif
