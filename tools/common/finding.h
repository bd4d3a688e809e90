// SPDX-License-Identifier: Apache-2.0
//
// What an examination has to say about a thing: a list of findings, none of which stops the next.
#ifndef ZOZALE_TOOLS_COMMON_FINDING_H
#define ZOZALE_TOOLS_COMMON_FINDING_H

#include <cstddef>
#include <string>
#include <vector>

namespace zozale {

enum class Severity {
  kError,    // a device refuses the thing or does harm with it
  kWarning,  // a device takes it, but not as its maker may think
};

struct Finding {
  Severity severity;
  std::string field;  // what it is about, such as "partition[2].len"
  std::string value;  // what was found there
  std::string text;   // what is wrong with it, what is allowed, what to do
};

using Findings = std::vector<Finding>;

void add_error(Findings& findings, std::string field, std::string value, std::string text);
void add_warning(Findings& findings, std::string field, std::string value, std::string text);
void append(Findings& findings, const Findings& more);

size_t count(const Findings& findings, Severity severity);
bool has_errors(const Findings& findings);

// "error" or "warning".
const char* severity_name(Severity severity);

// "error: <field>: <value>: <text>" without a line feed; an empty value is left out.
std::string to_line(const Finding& finding);

}  // namespace zozale

#endif
