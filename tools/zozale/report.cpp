// SPDX-License-Identifier: Apache-2.0
#include "zozale/report.h"

#include <cstdio>

namespace zozale::tool {
namespace {

// On one line, or on many for people; bytes that are no UTF-8 are replaced.
void print(const Json& document, bool one_line) {
  constexpr int kIndent = 2;
  const std::string text =
      document.dump(one_line ? -1 : kIndent, ' ', false, Json::error_handler_t::replace);
  printf("%s\n", text.c_str());
}

}  // namespace

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

Json Report::heading() const {
  return {{"schema", "zozale/1"}, {"command", command_}};
}

void Report::tell_event(const std::string& event, const Json& facts) const {
  Json document = heading();
  document["event"] = event;
  document.update(facts);
  print(document, true);
}

int Report::finish(ExitCode code) {
  if (json_) {
    Json document = heading();
    if (events_) {
      document["event"] = "end";
    }
    document.update(data_);
    document["warnings"] = warnings_;
    if (!error_.is_null()) {
      document["error"] = error_;
    }
    document["exit"] = static_cast<int>(code);
    print(document, events_);
  }
  const bool lost = fflush(stdout) != 0 || ferror(stdout) != 0;
  if (lost && code == kExitDone) {
    fputs("zozale: cannot write to standard output; the command itself succeeded\n", stderr);
    return kExitFailed;
  }
  return code;
}

Json letter_or_null(const std::optional<System>& system) {
  return system ? Json(letter(*system)) : Json();
}

Json health_json(int status, int attempts) {
  return {{"status", health_word(status)}, {"attempts", attempts}};
}

}  // namespace zozale::tool
