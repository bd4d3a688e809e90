// SPDX-License-Identifier: Apache-2.0
//
// Packages and findings as people and as programs read them. The JSON objects carry
// "schema": "zozale-package/1"; docs/package-format.md lists their members.
#ifndef ZOZALE_PACKAGE_REPORT_H
#define ZOZALE_PACKAGE_REPORT_H

#include <optional>
#include <ostream>
#include <string>

#include "common/finding.h"
#include "common/signature.h"
#include "create.h"
#include "package_view.h"

namespace zozale {

void show_package(std::ostream& out, const std::string& path, const PackageView& package);
void show_package_json(std::ostream& out, const std::string& path, const PackageView& package);

// One line a finding, errors and warnings in the order of the examination, then the signer, if a
// signature was asked for and is good, then the verdict.
void show_findings(std::ostream& out, const std::string& path, const Findings& findings,
                   const std::optional<Signer>& signer);
void show_findings_json(std::ostream& out, const std::string& path, const Findings& findings,
                        const std::optional<Signer>& signer);

void show_signed(std::ostream& out, const std::string& path, const Signer& signer,
                 const std::string& signature);
void show_created(std::ostream& out, const std::string& path, const CreatedPackage& package);

}  // namespace zozale

#endif
