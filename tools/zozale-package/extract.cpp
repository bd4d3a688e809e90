// SPDX-License-Identifier: Apache-2.0
#include "extract.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <utility>

#include "check.h"
#include "common/error.h"
#include "common/text.h"

namespace zozale {
namespace {

constexpr std::string_view kExtraFolder = "extra";

bool is_plain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-' || c == '+';
}

std::string escaped(char c) {
  const auto byte = static_cast<uint8_t>(c);
  return "%" + hex(&byte, 1);
}

// The first entry of the name, as a device finds it.
PackageEntry find_entry(const std::vector<PackageEntry>& entries, const std::string& kind,
                        const std::string& name) {
  const auto found =
      std::find_if(entries.begin(), entries.end(),
                   [&name](const PackageEntry& entry) { return entry.name == name; });
  if (found != entries.end()) {
    return *found;
  }
  std::string names;
  for (const PackageEntry& entry : entries) {
    names += (names.empty() ? "" : ", ") + in_quotes(entry.name);
  }
  throw Error(kExitUsage, "the package has no " + kind + " " + in_quotes(name) + "; it has " +
                              (names.empty() ? "none" : names));
}

std::vector<PackageEntry> select(const PackageView& package, const ExtractPlan& plan) {
  if (plan.partitions.empty() && plan.extras.empty()) {
    return package.entries();
  }
  std::vector<PackageEntry> selected;
  for (const std::string& name : plan.partitions) {
    selected.push_back(find_entry(package.partitions, "partition", name));
  }
  for (const std::string& name : plan.extras) {
    selected.push_back(find_entry(package.extras, "extra file", name));
  }
  return selected;
}

Findings check_paths(const std::vector<PackageEntry>& entries) {
  Findings findings;
  std::set<std::string> paths;
  for (const PackageEntry& entry : entries) {
    const std::string path = extracted_path(entry);
    if (!paths.insert(path).second) {
      add_error(
          findings, entry.field("name"), in_quotes(entry.name),
          "another entry becomes the file " + in_quotes(path) + " too; extract one of a name");
    }
  }
  return findings;
}

Findings check_digests(const ByteSource& source, const PackageView& package,
                       const std::vector<PackageEntry>& entries) {
  Findings findings;
  if (entries.size() == package.entries().size()) {
    findings = check_content_digest(source, package);
  }
  for (const PackageEntry& entry : entries) {
    append(findings, check_entry_digest(source, entry));
  }
  return findings;
}

void make_folder(const std::filesystem::path& folder) {
  std::error_code fault;
  std::filesystem::create_directories(folder, fault);
  if (fault) {
    throw system_error("create", folder.string(), fault.value());
  }
}

void write_entry(const ByteSource& source, const PackageEntry& entry, const std::string& path,
                 OutputFile::Existing existing) {
  make_folder(std::filesystem::path(path).parent_path());
  OutputFile file(path, existing);
  for_each_chunk(source, static_cast<uint64_t>(entry.offset), static_cast<uint64_t>(entry.len),
                 [&file](const uint8_t* bytes, size_t count) { file.append(bytes, count); });
  file.commit();
}

std::vector<ExtractedFile> write_entries(const ByteSource& source,
                                         const std::vector<PackageEntry>& entries,
                                         const ExtractPlan& plan) {
  const auto existing =
      plan.replace ? OutputFile::Existing::kReplace : OutputFile::Existing::kRefuse;
  std::vector<ExtractedFile> files;
  for (const PackageEntry& entry : entries) {
    const auto path = std::filesystem::path(plan.folder) / extracted_path(entry);
    require_replaceable(path.string(), existing);
    files.push_back({entry.name, path.string(), static_cast<uint64_t>(entry.len)});
  }
  for (size_t i = 0; i < entries.size(); ++i) {
    write_entry(source, entries[i], files[i].path, existing);
  }
  return files;
}

}  // namespace

std::string extracted_path(const PackageEntry& entry) {
  const bool is_partition = entry.kind == PackageEntry::Kind::kPartition;
  std::string path;
  for (const char c : entry.name) {
    path += is_plain(c) ? std::string(1, c) : escaped(c);
  }
  if (path.empty()) {
    path = "%";
  }
  // Neither "." nor "..", no hidden file, and no partition where the extra files' folder is.
  if (path[0] == '.' || (is_partition && path == kExtraFolder)) {
    path.replace(0, 1, escaped(path[0]));
  }
  return is_partition ? path : std::string(kExtraFolder) + "/" + path;
}

ExtractResult extract(const ExtractPlan& plan) {
  const InputFile source(plan.package_path);
  PackageReading reading = read_package(source);
  if (!reading.package) {
    return {{}, std::move(reading.findings)};
  }
  const std::vector<PackageEntry> entries = select(*reading.package, plan);
  Findings findings = check_paths(entries);
  append(findings, check_digests(source, *reading.package, entries));
  if (has_errors(findings)) {
    return {{}, std::move(findings)};
  }
  return {write_entries(source, entries, plan), std::move(findings)};
}

}  // namespace zozale
