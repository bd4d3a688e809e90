// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include <nlohmann/json.hpp>

#include "common/text.h"
#include "rules.h"
#include "signer_json.h"

namespace zozale {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kSchema = "zozale-package/1";

std::string plural(uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string compared_note(const Digest& digest) {
  return "a device compares " + std::to_string(compared_bytes(digest)) + " of " +
         std::to_string(digest.size()) + " bytes";
}

void show_line(std::ostream& out, const char* label, const std::string& value) {
  constexpr size_t kLabelWidth = 18;
  std::string padded = label;
  padded.resize(kLabelWidth, ' ');
  out << "  " << padded << value << '\n';
}

void show_digest(std::ostream& out, const Digest& digest, const std::string& note) {
  show_line(out, "SHA-512", hex(digest));
  show_line(out, "", note);
}

void show_head(std::ostream& out, const PackageView& package) {
  const upgrade_package_head_info_t& head = package.head;
  show_line(out, "type", upgrade_type_text(head.upgrade_type));
  show_line(out, "package version", std::to_string(head.upgrade_package_version));
  show_line(out, "package type", std::to_string(head.upgrade_package_type));
  show_line(out, "platform", std::to_string(head.plat));
  show_line(out, "from version", in_quotes(field_text(head.version_src)));
  show_line(out, "to version", in_quotes(field_text(head.version_dst)));
  show_line(out, "block size", std::to_string(head.block_size));
  show_line(out, "hash type", std::to_string(head.hash_type));
  show_line(out, "partitions", std::to_string(head.partition_num));
  show_line(out, "extra files", std::to_string(head.extra_num));
  show_digest(out, package.content_hash(), compared_note(package.content_hash()));
}

void show_entry(std::ostream& out, const PackageEntry& entry) {
  const bool is_partition = entry.kind == PackageEntry::Kind::kPartition;
  out << '\n' << entry.field() << ' ' << in_quotes(entry.name) << '\n';
  show_line(
      out, "length",
      entry.len < 0 ? std::to_string(entry.len) : human_size(static_cast<uint64_t>(entry.len)));
  show_line(out, "offset", std::to_string(entry.offset));
  if (is_partition) {
    show_line(out, "partition type", std::to_string(entry.partition_type));
    show_line(out, "zipped", std::to_string(entry.zipped));
  }
  show_digest(out, entry.hash,
              is_partition ? compared_note(entry.hash) : "a device compares none of it");
}

Json digest_json(const Digest& digest) {
  return {{"sha512", hex(digest)}, {"compared_bytes", compared_bytes(digest)}};
}

Json head_json(const PackageView& package) {
  const upgrade_package_head_info_t& head = package.head;
  return {{"upgrade_package_version", head.upgrade_package_version},
          {"plat", head.plat},
          {"upgrade_package_type", head.upgrade_package_type},
          {"upgrade_type", head.upgrade_type},
          {"partition_num", head.partition_num},
          {"extra_num", head.extra_num},
          {"hash_type", head.hash_type},
          {"block_size", head.block_size},
          {"version_src", printable(field_text(head.version_src))},
          {"version_dst", printable(field_text(head.version_dst))},
          {"hash", digest_json(package.content_hash())}};
}

Json entry_json(const PackageEntry& entry) {
  Json json = {{"name", printable(entry.name)}, {"len", entry.len}, {"offset", entry.offset}};
  if (entry.kind == PackageEntry::Kind::kPartition) {
    json["partition_type"] = entry.partition_type;
    json["zipped"] = entry.zipped;
    json["hash"] = digest_json(entry.hash);
  } else {
    // No device compares the digest of an extra file.
    json["hash"] = {{"sha512", hex(entry.hash)}, {"compared_bytes", 0}};
  }
  return json;
}

Json entries_json(const std::vector<PackageEntry>& entries) {
  Json json = Json::array();
  for (const PackageEntry& entry : entries) {
    json.push_back(entry_json(entry));
  }
  return json;
}

// Paths may hold any bytes; JSON holds UTF-8 only.
void write_json(std::ostream& out, const Json& json) {
  out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

void show_packed(std::ostream& out, const char* kind, const PackedFile& file) {
  out << "  " << kind << ' ' << in_quotes(file.name) << ": " << human_size(file.len);
  if (file.padding > 0) {
    out << ", padded with " << plural(file.padding, "byte") << " of 0xFF";
  }
  out << '\n';
}

}  // namespace

void show_package(std::ostream& out, const std::string& path, const PackageView& package) {
  out << "package " << in_quotes(path) << ": " << human_size(package.file_size) << '\n';
  show_head(out, package);
  for (const PackageEntry& entry : package.entries()) {
    show_entry(out, entry);
  }
}

void show_package_json(std::ostream& out, const std::string& path, const PackageView& package) {
  write_json(out, {{"schema", kSchema},
                   {"file", path},
                   {"size", package.file_size},
                   {"head", head_json(package)},
                   {"partitions", entries_json(package.partitions)},
                   {"extras", entries_json(package.extras)}});
}

void show_findings(std::ostream& out, const std::string& path, const Findings& findings,
                   const std::optional<Signer>& signer) {
  for (const Finding& finding : findings) {
    out << to_line(finding) << '\n';
  }
  if (signer) {
    out << "signed by " << signer->subject << ", trusted by " << signer->anchor << '\n';
  }
  out << in_quotes(path) << (has_errors(findings) ? " is BAD: " : " is good: ")
      << plural(count(findings, Severity::kError), "error") << ", "
      << plural(count(findings, Severity::kWarning), "warning") << '\n';
}

void show_findings_json(std::ostream& out, const std::string& path, const Findings& findings,
                        const std::optional<Signer>& signer) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"severity", severity_name(finding.severity)},
                    {"field", finding.field},
                    {"value", finding.value},
                    {"text", finding.text}});
  }
  Json json = {{"schema", kSchema},
               {"file", path},
               {"good", !has_errors(findings)},
               {"errors", count(findings, Severity::kError)},
               {"warnings", count(findings, Severity::kWarning)},
               {"findings", list}};
  if (signer) {
    json["signature"] = signer_json(*signer);
  }
  write_json(out, json);
}

void show_signed(std::ostream& out, const std::string& path, const Signer& signer,
                 const std::string& signature) {
  out << "signed " << in_quotes(path) << " as " << signer.subject << ", whose certificate is valid "
      << "until " << signer.valid_until << ": " << in_quotes(signature) << '\n';
}

void show_created(std::ostream& out, const std::string& path, const CreatedPackage& package) {
  out << "created " << in_quotes(path) << ": " << human_size(package.size) << '\n';
  for (const PackedFile& file : package.partitions) {
    show_packed(out, "partition", file);
  }
  for (const PackedFile& file : package.extras) {
    show_packed(out, "extra", file);
  }
  if (package.content_padding > 0) {
    out << "  " << plural(package.content_padding, "byte")
        << " of 0xFF at the end, for the content digest\n";
  }
}

}  // namespace zozale
