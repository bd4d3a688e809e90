// SPDX-License-Identifier: Apache-2.0
//
// The command line of zozale-package.
#include <CLI/CLI.hpp>

#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "check.h"
#include "common/error.h"
#include "common/text.h"
#include "create.h"
#include "demand_options.h"
#include "extract.h"
#include "manifest.h"
#include "report.h"
#include "rules.h"
#include "sign.h"

namespace {

using zozale::Error;
using zozale::ExitCode;
using zozale::Findings;
using zozale::require_value;

struct CreateArguments {
  std::string manifest;
  std::string out;
  std::vector<std::string> partitions;
  std::vector<std::string> extras;
  std::optional<std::string> type;
  std::optional<int32_t> package_version;
  std::optional<int32_t> package_type;
  std::optional<int32_t> plat;
  std::optional<std::string> version_src;
  std::optional<std::string> version_dst;
  std::optional<uint32_t> erase_block;
  std::optional<int32_t> block_size;
  std::optional<std::string> table;
  bool allow_zero_bytes = false;
};

struct ReadArguments {
  std::string package;
  std::string table;
  zozale::Demands demands;
  bool json = false;
};

// Splits "kernel=zImage" at its first "=".
zozale::PlannedFile parse_file(const std::string& option, const std::string& argument) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos || equals + 1 == argument.size()) {
    throw Error(zozale::kExitUsage, option + " " + zozale::in_quotes(argument) +
                                        ": a name, \"=\" and the path of a file are needed, such "
                                        "as kernel=zImage");
  }
  return {argument.substr(0, equals), argument.substr(equals + 1)};
}

int32_t parse_type(const std::string& argument) {
  if (argument == "0" || argument == "1" || argument == "2") {
    return argument[0] - '0';
  }
  const auto type = zozale::upgrade_type_of(argument);
  if (!type) {
    throw Error(zozale::kExitUsage, "--type " + zozale::in_quotes(argument) +
                                        ": system (0), platform (1) and oem (2) are allowed");
  }
  return *type;
}

template <typename T>
void assign(T& value, const std::optional<T>& argument) {
  if (argument) {
    value = *argument;
  }
}

zozale::PackagePlan base_plan(const CreateArguments& arguments) {
  if (arguments.manifest.empty()) {
    return {};
  }
  if (!arguments.partitions.empty() || !arguments.extras.empty()) {
    throw Error(zozale::kExitUsage, "the files come from the manifest " +
                                        zozale::in_quotes(arguments.manifest) +
                                        " or from --partition and --extra, not from both");
  }
  return zozale::read_manifest(arguments.manifest);
}

// What the command line says wins over the manifest.
zozale::PackagePlan make_plan(const CreateArguments& arguments) {
  zozale::PackagePlan plan = base_plan(arguments);
  for (const std::string& argument : arguments.partitions) {
    plan.partitions.push_back(parse_file("--partition", argument));
  }
  for (const std::string& argument : arguments.extras) {
    plan.extras.push_back(parse_file("--extra", argument));
  }
  if (arguments.type) {
    plan.upgrade_type = parse_type(*arguments.type);
  }
  assign(plan.package_version, arguments.package_version);
  assign(plan.package_type, arguments.package_type);
  assign(plan.plat, arguments.plat);
  assign(plan.version_src, arguments.version_src);
  assign(plan.version_dst, arguments.version_dst);
  assign(plan.erase_block, arguments.erase_block);
  assign(plan.table_path, arguments.table);
  plan.block_size = arguments.block_size ? arguments.block_size : plan.block_size;
  plan.allow_zero_bytes = plan.allow_zero_bytes || arguments.allow_zero_bytes;
  return plan;
}

void print_to_stderr(const Findings& findings) {
  for (const zozale::Finding& finding : findings) {
    std::cerr << "zozale-package: " << zozale::to_line(finding) << '\n';
  }
}

ExitCode run_create(const CreateArguments& arguments) {
  const zozale::CreateResult result = zozale::create_package(make_plan(arguments), arguments.out);
  print_to_stderr(result.findings);
  if (!result.package) {
    std::cerr << "zozale-package: refused; no package was made\n";
    return zozale::kExitBadPackage;
  }
  zozale::show_created(std::cout, arguments.out, *result.package);
  return zozale::kExitDone;
}

ExitCode run_show(const ReadArguments& arguments) {
  const zozale::InputFile source(arguments.package);
  const zozale::PackageReading reading = zozale::read_package(source);
  if (!reading.package) {
    print_to_stderr(reading.findings);
    return zozale::kExitBadPackage;
  }
  const auto show = arguments.json ? zozale::show_package_json : zozale::show_package;
  show(std::cout, arguments.package, *reading.package);
  return zozale::kExitDone;
}

ExitCode run_check(const ReadArguments& arguments) {
  const zozale::InputFile source(arguments.package);
  zozale::TableReading reading;
  if (!arguments.table.empty()) {
    reading = zozale::read_partition_table(arguments.table);
  }
  Findings findings = zozale::table_findings(arguments.table, reading.findings);
  const zozale::DemandsReading asked = zozale::check_demands(source, arguments.demands);
  append(findings, asked.findings);
  append(findings, zozale::check_package(source, reading.table ? &*reading.table : nullptr));
  const auto show = arguments.json ? zozale::show_findings_json : zozale::show_findings;
  show(std::cout, arguments.package, findings, asked.signer);
  return zozale::has_errors(findings) ? zozale::kExitBadPackage : zozale::kExitDone;
}

ExitCode run_sign(const zozale::SignPlan& plan) {
  const zozale::SignResult result = zozale::sign_package(plan);
  print_to_stderr(result.findings);
  if (!result.signer) {
    std::cerr << "zozale-package: refused; nothing was signed\n";
    return zozale::kExitBadPackage;
  }
  zozale::show_signed(std::cout, plan.package, *result.signer, result.out);
  return zozale::kExitDone;
}

ExitCode run_extract(const zozale::ExtractPlan& plan) {
  const zozale::ExtractResult result = zozale::extract(plan);
  if (zozale::has_errors(result.findings)) {
    print_to_stderr(result.findings);
    std::cerr << "zozale-package: nothing was extracted\n";
    return zozale::kExitBadPackage;
  }
  for (const zozale::ExtractedFile& file : result.files) {
    std::cout << "extracted " << zozale::in_quotes(file.path) << ": "
              << zozale::human_size(file.len) << '\n';
  }
  return zozale::kExitDone;
}

CLI::App* add_create(CLI::App& app, CreateArguments& arguments) {
  CLI::App* create = app.add_subcommand("create", "Make a package from images");
  require_value(create->add_option("manifest", arguments.manifest,
                                   "TOML manifest; its files' paths are relative to it"));
  require_value(create->add_option("-o,--output", arguments.out, "Package to make"))->required();
  create->add_option("--partition", arguments.partitions, "Image as NAME=FILE; may be repeated")
      ->allow_extra_args(false);
  create->add_option("--extra", arguments.extras, "Extra file as NAME=FILE; may be repeated")
      ->allow_extra_args(false);
  create->add_option(
      "--type", arguments.type,
      "system (0, every partition of the table in its order), platform (1), oem (2)");
  create->add_option("--package-version", arguments.package_version, "Version of the package");
  create->add_option("--package-type", arguments.package_type, "The head's upgrade_package_type");
  create->add_option("--plat", arguments.plat, "Platform number");
  create->add_option("--version-src", arguments.version_src, "Software version to upgrade from");
  create->add_option("--version-dst", arguments.version_dst, "Software version to upgrade to");
  create
      ->add_option("--erase-block", arguments.erase_block,
                   "Erase block of the device in bytes, or with KiB or MiB; 128 KiB if not given")
      ->transform(CLI::AsSizeValue(false));
  create
      ->add_option("--block-size", arguments.block_size,
                   "The head's block_size in bytes; the erase block if not given")
      ->transform(CLI::AsSizeValue(false));
  require_value(create->add_option("--table", arguments.table,
                                   "Partition table file to check the names against"));
  create->add_flag("--allow-zero-bytes", arguments.allow_zero_bytes,
                   "Do not pad for digests without zero bytes");
  return create;
}

CLI::App* add_reader(CLI::App& app, const std::string& name, const std::string& description,
                     ReadArguments& arguments) {
  CLI::App* command = app.add_subcommand(name, description);
  require_value(command->add_option("package", arguments.package, "Package to read"))->required();
  command->add_flag("--json", arguments.json, "Answer as JSON");
  return command;
}

CLI::App* add_sign(CLI::App& app, zozale::SignPlan& plan) {
  CLI::App* sign = app.add_subcommand("sign", "Sign a package with a key and its certificate");
  require_value(sign->add_option("package", plan.package, "Package to sign"))->required();
  require_value(sign->add_option("--key", plan.key, "Private key, PEM"))->required();
  require_value(sign->add_option("--cert", plan.certificate, "Certificate of the key, PEM"))
      ->required();
  require_value(sign->add_option("--chain", plan.chain,
                                 "Certificates that stand between it and the trusted one, PEM"));
  require_value(sign->add_option("--passphrase-file", plan.passphrase_file,
                                 "File whose first line opens an encrypted key"));
  require_value(
      sign->add_option("-o,--output", plan.out, "The signature; PACKAGE.p7s if not given"));
  return sign;
}

CLI::App* add_extract(CLI::App& app, zozale::ExtractPlan& plan) {
  CLI::App* extract = app.add_subcommand("extract", "Take images and extra files out of a package");
  require_value(extract->add_option("package", plan.package_path, "Package to read"))->required();
  require_value(
      extract->add_option("-o,--output", plan.folder, "Folder for the files; made if need be"))
      ->required();
  extract
      ->add_option("--partition", plan.partitions,
                   "Take only this partition's image; may be repeated")
      ->allow_extra_args(false);
  extract->add_option("--extra", plan.extras, "Take only this extra file; may be repeated")
      ->allow_extra_args(false);
  extract->add_flag("--force", plan.replace, "Replace files that exist");
  return extract;
}

ExitCode run(int argc, char** argv) {
  CLI::App app("Makes and examines upgrade packages", "zozale-package");
  app.require_subcommand(1);
  app.set_version_flag("--version", "zozale-package " ZOZALE_VERSION);
  CreateArguments create_arguments;
  ReadArguments read_arguments;
  zozale::ExtractPlan extract_plan;
  zozale::SignPlan sign_plan;
  const CLI::App* create = add_create(app, create_arguments);
  const CLI::App* show = add_reader(app, "show", "Show what a package holds", read_arguments);
  CLI::App* check =
      add_reader(app, "check", "Check all that a device would trip over", read_arguments);
  require_value(check->add_option("--table", read_arguments.table,
                                  "Partition table file to check the names against"));
  zozale::add_demand_options(*check, read_arguments.demands);
  const CLI::App* sign = add_sign(app, sign_plan);
  add_extract(app, extract_plan);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& fault) {
    return app.exit(fault) == 0 ? zozale::kExitDone : zozale::kExitUsage;
  }
  if (create->parsed()) {
    return run_create(create_arguments);
  }
  if (show->parsed()) {
    return run_show(read_arguments);
  }
  if (sign->parsed()) {
    return run_sign(sign_plan);
  }
  return check->parsed() ? run_check(read_arguments) : run_extract(extract_plan);
}

// Answers that could not be written were not given.
ExitCode after_flush(ExitCode code) {
  if (std::cout.flush()) {
    return code;
  }
  std::cerr << "zozale-package: cannot write to standard output\n";
  return zozale::kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return after_flush(run(argc, argv));
  } catch (const Error& error) {
    std::cerr << "zozale-package: " << error.what() << '\n';
    return error.code();
  } catch (const std::exception& error) {
    std::cerr << "zozale-package: " << error.what() << '\n';
    return zozale::kExitFailed;
  }
}
