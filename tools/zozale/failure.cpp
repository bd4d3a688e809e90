// SPDX-License-Identifier: Apache-2.0
#include "zozale/failure.h"

#include "common/refused.h"
#include "upi_log.h"

namespace zozale::tool {
namespace {

std::string part(const std::string& title, const std::string& text) {
  return text.empty() ? "" : "  " + title + text + "\n";
}

}  // namespace

Trouble trouble_of(const Error& error) {
  if (const auto* failure = dynamic_cast<const Failure*>(&error)) {
    return failure->trouble();
  }
  if (const auto* refusal = dynamic_cast<const Refused*>(&error)) {
    const Fault& fault = refusal->fault();
    return {fault.what, fault.expected, fault.found, fault.next, refusal->also()};
  }
  return {error.what(), "it to succeed", "it failed",
          "put right what the message names, then run the command again"};
}

std::string to_text(const Trouble& trouble) {
  std::string text = "zozale: " + trouble.what + "\n";
  text += part("expected: ", trouble.expected);
  text += part("found:    ", trouble.found);
  for (const std::string& fault : trouble.also) {
    text += part("also:     ", fault);
  }
  for (const std::string& line : trouble.log) {
    text += part("log:      ", line);
  }
  if (!trouble.log.empty()) {
    text += part("log file: ", UPI_LOG_PATH);
  }
  return text + part("next:     ", trouble.next);
}

Json to_json(const Trouble& trouble) {
  Json json = {{"what", trouble.what},
               {"expected", trouble.expected},
               {"found", trouble.found},
               {"next", trouble.next}};
  if (!trouble.also.empty()) {
    json["also"] = trouble.also;
  }
  if (!trouble.log.empty()) {
    json["log"] = trouble.log;
    json["log_file"] = UPI_LOG_PATH;
  }
  return json;
}

}  // namespace zozale::tool
