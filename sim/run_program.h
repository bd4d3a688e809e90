// SPDX-License-Identifier: Apache-2.0
//
// Runs a program on a simulated device.
#ifndef SIM_RUN_PROGRAM_H
#define SIM_RUN_PROGRAM_H

#include <filesystem>
#include <string>
#include <vector>

#include "sim/device.h"

namespace sim {

// Exit codes of `zozale-sim run` that are not the program's own.
constexpr int kRunCannotStart = 125;
constexpr int kRunNotExecutable = 126;
constexpr int kRunNotFound = 127;
constexpr int kRunSignalBase = 128;  // plus the number of the signal that ended the program

struct RunOptions {
  std::filesystem::path device;
  std::vector<std::string> command;
  std::string trace;    // file for a line per call; empty: none
  std::string library;  // the library to preload; empty: the one beside this program
};

// Takes over the device's faults file, if it was changed since it was last taken over: a fault
// that struck does not strike again. Throws std::runtime_error.
void take_over_faults(Device& device);

// Runs the command and waits for its end. A program that asks for a reboot is ended a second later
// as an init process would do it. Returns the exit code of `zozale-sim run`.
int run_program(Device& device, const RunOptions& options);

}  // namespace sim

#endif
