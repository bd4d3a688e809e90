// SPDX-License-Identifier: Apache-2.0
//
// The options that say what is asked of a package, the same for every command that has them.
#ifndef ZOZALE_PACKAGE_DEMAND_OPTIONS_H
#define ZOZALE_PACKAGE_DEMAND_OPTIONS_H

#include <CLI/App.hpp>

#include "demands.h"

namespace zozale {

// Makes an empty value of the option wrong usage: it is what a shell's variable that was never set
// gives, and what the option asks for would silently not be done.
CLI::Option* require_value(CLI::Option* option);

// `demands` must outlive the command.
void add_demand_options(CLI::App& command, Demands& demands);

}  // namespace zozale

#endif
