// SPDX-License-Identifier: Apache-2.0
//
// What a command tells: sentences for a person, or one JSON document with the same facts.
#ifndef ZOZALE_TOOL_REPORT_H
#define ZOZALE_TOOL_REPORT_H

#include <optional>
#include <string>

#include "common/exit_codes.h"
#include "zozale/failure.h"
#include "zozale/terms.h"

namespace zozale::tool {

class Report {
 public:
  // With `json` nothing is printed before finish().
  Report(const std::string& command, bool json);

  bool json() const { return json_; }
  // Members of the document beside "schema", "command", "warnings", "error" and "exit".
  Json& data() { return data_; }

  // From here on each fact is a JSON line of its own, and the document is the last, an "end".
  void follow_events() { events_ = true; }
  // One such line: `facts` and the event's name. Only with `json` and follow_events().
  void tell_event(const std::string& event, const Json& facts) const;

  // A line on standard output.
  void say(const std::string& line) const;
  // A line on standard error, and among "warnings".
  void warn(const std::string& text);
  // On standard error, and as "error".
  void fail(const Trouble& trouble);

  // Prints the document. Returns `code`, or kExitFailed when standard output takes nothing more.
  int finish(ExitCode code);

 private:
  Json heading() const;

  std::string command_;
  bool json_;
  bool events_ = false;
  Json data_ = Json::object();
  Json warnings_ = Json::array();
  Json error_;
};

// A fact, or null where it cannot be told.
template <typename Value>
Json value_or_null(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}
Json letter_or_null(const std::optional<System>& system);
// "status" and "attempts" of a system.
Json health_json(int status, int attempts);

}  // namespace zozale::tool

#endif
