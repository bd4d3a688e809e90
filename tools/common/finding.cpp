// SPDX-License-Identifier: Apache-2.0
#include "common/finding.h"

#include <algorithm>
#include <utility>

namespace zozale {

void add_error(Findings& findings, std::string field, std::string value, std::string text) {
  findings.push_back({Severity::kError, std::move(field), std::move(value), std::move(text)});
}

void add_warning(Findings& findings, std::string field, std::string value, std::string text) {
  findings.push_back({Severity::kWarning, std::move(field), std::move(value), std::move(text)});
}

void append(Findings& findings, const Findings& more) {
  findings.insert(findings.end(), more.begin(), more.end());
}

size_t count(const Findings& findings, Severity severity) {
  return static_cast<size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [severity](const Finding& finding) { return finding.severity == severity; }));
}

bool has_errors(const Findings& findings) {
  return count(findings, Severity::kError) > 0;
}

const char* severity_name(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

std::string to_line(const Finding& finding) {
  const std::string value = finding.value.empty() ? "" : finding.value + ": ";
  return std::string(severity_name(finding.severity)) + ": " + finding.field + ": " + value +
         finding.text;
}

}  // namespace zozale
