// SPDX-License-Identifier: Apache-2.0
//
// What the exit code of a tool says. The same for every tool; the man pages list them.
#ifndef ZOZALE_TOOLS_COMMON_EXIT_CODES_H
#define ZOZALE_TOOLS_COMMON_EXIT_CODES_H

namespace zozale {

enum ExitCode : int {
  kExitDone = 0,         // done, also when nothing was left to do
  kExitFailed = 1,       // the operation failed: a file, the flash, the system
  kExitUsage = 2,        // wrong usage: command line or manifest
  kExitBadPackage = 3,   // the package is bad, or would be if it were made
  kExitDeviceUnfit = 4,  // the device is not fit for the operation
  kExitExchanged = 5,    // the package was exchanged between check and use
};

}  // namespace zozale

#endif
