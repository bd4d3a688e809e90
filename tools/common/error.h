// SPDX-License-Identifier: Apache-2.0
//
// How a tool gives up: one text for a person and one exit code.
#ifndef ZOZALE_TOOLS_COMMON_ERROR_H
#define ZOZALE_TOOLS_COMMON_ERROR_H

#include <stdexcept>
#include <string>

#include "common/exit_codes.h"

namespace zozale {

class Error : public std::runtime_error {
 public:
  // `text` names the thing, what was found, what is allowed and what to do; no trailing line feed.
  Error(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}

  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// A system call failed: "cannot <action> <path>: <text of errnum>". Exit code kExitFailed.
Error system_error(const std::string& action, const std::string& path, int errnum);

}  // namespace zozale

#endif
