// SPDX-License-Identifier: Apache-2.0
#include "create.h"

#include "common/error.h"
#include "common/text.h"
#include "package_writer.h"
#include "plan_rules.h"

namespace zozale {
namespace {

std::vector<InputFile> open_all(const std::vector<PlannedFile>& planned, const std::string& out) {
  std::vector<InputFile> files;
  for (const PlannedFile& file : planned) {
    const InputFile& opened = files.emplace_back(file.path);
    if (opened.is_same_file(out)) {
      throw Error(kExitUsage, "the package " + in_quotes(out) + " would replace the file " +
                                  in_quotes(file.path) + " that goes into it; choose another name");
    }
  }
  return files;
}

// Writes the package unless what the writer finds forbids it.
CreateResult write_package(const PackagePlan& plan, const PlanFiles& files, const std::string& out,
                           Findings findings) {
  OutputFile file(out, OutputFile::Existing::kReplace);
  PackageWriter writer(plan, files, file);
  CreatedPackage package = writer.write();
  append(findings, writer.findings());
  if (has_errors(findings)) {
    return {std::nullopt, std::move(findings)};
  }
  file.commit();
  return {std::move(package), std::move(findings)};
}

}  // namespace

CreateResult create_package(const PackagePlan& plan, const std::string& out) {
  Findings findings = check_plan(plan);
  if (has_errors(findings)) {
    return {std::nullopt, std::move(findings)};
  }
  const PlanFiles files = {open_all(plan.partitions, out), open_all(plan.extras, out)};
  append(findings, check_plan_sizes(plan, files));
  if (has_errors(findings)) {
    return {std::nullopt, std::move(findings)};
  }
  return write_package(plan, files, out, std::move(findings));
}

}  // namespace zozale
