// SPDX-License-Identifier: Apache-2.0
//
// A package that is not what was asked for, told so that it can be put right.
#ifndef ZOZALE_TOOLS_COMMON_REFUSED_H
#define ZOZALE_TOOLS_COMMON_REFUSED_H

#include <string>
#include <utility>
#include <vector>

#include "common/error.h"

namespace zozale {

struct Fault {
  std::string what;  // one line
  std::string expected;
  std::string found;
  std::string next;  // what to do
};

// Exit code kExitBadPackage.
class Refused : public Error {
 public:
  // `also` are further faults of the same thing, as `what`.
  explicit Refused(Fault fault, std::vector<std::string> also = {})
      : Error(kExitBadPackage, fault.what + "; expected: " + fault.expected +
                                   "; found: " + fault.found + "; " + fault.next),
        fault_(std::move(fault)),
        also_(std::move(also)) {}

  const Fault& fault() const { return fault_; }
  const std::vector<std::string>& also() const { return also_; }

 private:
  Fault fault_;
  std::vector<std::string> also_;
};

}  // namespace zozale

#endif
