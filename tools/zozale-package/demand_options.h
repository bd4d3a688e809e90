// SPDX-License-Identifier: Apache-2.0
//
// The options that say what is asked of a package, the same for every command that has them.
#ifndef ZOZALE_PACKAGE_DEMAND_OPTIONS_H
#define ZOZALE_PACKAGE_DEMAND_OPTIONS_H

#include <CLI/App.hpp>

#include "demands.h"

namespace zozale {

// `demands` must outlive the command.
void add_demand_options(CLI::App& command, Demands& demands);

}  // namespace zozale

#endif
