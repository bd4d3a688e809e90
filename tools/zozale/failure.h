// SPDX-License-Identifier: Apache-2.0
//
// What went wrong, told so that it can be put right.
#ifndef ZOZALE_TOOL_FAILURE_H
#define ZOZALE_TOOL_FAILURE_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/error.h"

namespace zozale::tool {

using Json = nlohmann::ordered_json;

struct Trouble {
  std::string what;      // the thing and what is wrong with it, one line
  std::string expected;  // empty only where nothing can be expected
  std::string found;
  std::string next;                    // what to do
  std::vector<std::string> also = {};  // further faults of the same thing
  // The library's own words, oldest first; they stand in its log too.
  std::vector<std::string> log = {};
};

class Failure : public Error {
 public:
  Failure(ExitCode code, Trouble trouble)
      : Error(code, trouble.what), trouble_(std::move(trouble)) {}

  const Trouble& trouble() const { return trouble_; }

 private:
  Trouble trouble_;
};

// The trouble of any error of the tools, with a next step where the error has none of its own.
Trouble trouble_of(const Error& error);

// For a terminal: "zozale: ..." and a line for each of the other parts.
std::string to_text(const Trouble& trouble);
Json to_json(const Trouble& trouble);

}  // namespace zozale::tool

#endif
