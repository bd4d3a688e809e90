// SPDX-License-Identifier: Apache-2.0
//
// The commands, and what they all get.
#ifndef ZOZALE_TOOL_SESSION_H
#define ZOZALE_TOOL_SESSION_H

#include <string>

#include "common/exit_codes.h"
#include "zozale-package/demands.h"
#include "zozale/library.h"
#include "zozale/report.h"

namespace zozale::tool {

// What the command line asks for.
struct Options {
  std::string command;
  bool json = false;
  bool verbose = false;
  bool dry_run = false;   // install, sync
  bool reboot = false;    // switch
  bool force = false;     // init-flags
  std::string system;     // switch, mark: "A" or "B"
  std::string health;     // mark
  Demands demands;        // verify, install
  double interval = 1.0;  // watch: seconds between two looks at the store
  double timeout = 0.0;   // watch: seconds without a change until it gives up; 0: never
};

struct Session {
  explicit Session(const Options& asked)
      : options(asked), report(asked.command, asked.json), library(asked.verbose) {}

  const Options& options;
  Report report;
  Library library;
};

// Each returns the exit code of what it has done and told, or throws Error.
ExitCode show_status(Session& session);
ExitCode install(Session& session);
ExitCode sync(Session& session);
ExitCode switch_system(Session& session);
ExitCode mark(Session& session);
ExitCode acknowledge(Session& session);
ExitCode init_flags(Session& session);
ExitCode verify(Session& session);
ExitCode show_type(Session& session);
ExitCode watch(Session& session);
ExitCode doctor(Session& session);

}  // namespace zozale::tool

#endif
