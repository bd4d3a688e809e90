// SPDX-License-Identifier: Apache-2.0
//
// The verification of the package by the library, for the commands that begin with it.
#ifndef ZOZALE_TOOL_VERIFICATION_H
#define ZOZALE_TOOL_VERIFICATION_H

#include "zozale/package_file.h"
#include "zozale/session.h"
#include "zozale/steps.h"

namespace zozale::tool {

// Lets the library verify the package. Throws Failure: kExitBadPackage, kExitDeviceUnfit when a
// partition or the table is missing, kExitFailed when reading failed.
void verify_by_library(Session& session, const PackageFile& package, VerifySteps& steps,
                       System target);

}  // namespace zozale::tool

#endif
