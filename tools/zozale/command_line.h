// SPDX-License-Identifier: Apache-2.0
//
// The kernel command line, which names the running system.
#ifndef ZOZALE_TOOL_COMMAND_LINE_H
#define ZOZALE_TOOL_COMMAND_LINE_H

#include <optional>
#include <string>

#include "zozale/terms.h"

namespace zozale::tool {

// The running system by the kernel command line, by the library's own rule but without its log;
// nothing when it cannot be told.
std::optional<System> running_by_command_line();
// "/proc/cmdline" without its line feed; empty when it cannot be read.
std::string kernel_command_line();

}  // namespace zozale::tool

#endif
