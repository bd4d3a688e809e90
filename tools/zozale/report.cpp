// SPDX-License-Identifier: Apache-2.0
#include "zozale/report.h"

#include <cstdio>

namespace zozale::tool {

Report::Report(const std::string& command, bool json) : command_(command), json_(json) {}

void Report::say(const std::string& line) const {
  if (!json_) {
    printf("%s\n", line.c_str());
  }
}

void Report::warn(const std::string& text) {
  warnings_.push_back(text);
  if (!json_) {
    fprintf(stderr, "zozale: warning: %s\n", text.c_str());
  }
}

void Report::fail(const Trouble& trouble) {
  error_ = to_json(trouble);
  if (!json_) {
    fflush(stdout);
    fputs(to_text(trouble).c_str(), stderr);
  }
}

int Report::finish(ExitCode code) {
  if (json_) {
    Json document = {{"schema", "zozale/1"}, {"command", command_}};
    document.update(data_);
    document["warnings"] = warnings_;
    if (!error_.is_null()) {
      document["error"] = error_;
    }
    document["exit"] = static_cast<int>(code);
    printf("%s\n", dump(document, 2).c_str());
  }
  if (fflush(stdout) != 0 && code == kExitDone) {
    fputs("zozale: cannot write to standard output; the command itself succeeded\n", stderr);
    return kExitFailed;
  }
  return code;
}

std::string dump(const Json& document, int indent) {
  return document.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace zozale::tool
