// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cerrno>
#include <stdexcept>

#include "sim/faults.h"
#include "sim/toml_reader.h"

namespace sim {
namespace {

struct ErrorName {
  std::string_view name;
  int value;
};

constexpr std::array<ErrorName, 26> kErrors = {{
    {"EPERM", EPERM},           {"ENOENT", ENOENT},   {"EINTR", EINTR},   {"EIO", EIO},
    {"ENXIO", ENXIO},           {"EBADF", EBADF},     {"EAGAIN", EAGAIN}, {"ENOMEM", ENOMEM},
    {"EACCES", EACCES},         {"EFAULT", EFAULT},   {"EBUSY", EBUSY},   {"EEXIST", EEXIST},
    {"ENODEV", ENODEV},         {"ENOTDIR", ENOTDIR}, {"EISDIR", EISDIR}, {"EINVAL", EINVAL},
    {"ENFILE", ENFILE},         {"EMFILE", EMFILE},   {"ENOTTY", ENOTTY}, {"EFBIG", EFBIG},
    {"ENOSPC", ENOSPC},         {"ESPIPE", ESPIPE},   {"EROFS", EROFS},   {"EOVERFLOW", EOVERFLOW},
    {"EOPNOTSUPP", EOPNOTSUPP}, {"EBADMSG", EBADMSG},
}};

constexpr std::int64_t kMany = INT64_MAX;
constexpr std::int64_t kMost = UINT32_MAX;

int read_error(const TomlTable& table) {
  const std::string name = table.text("errno", "EIO");
  for (const ErrorName& error : kErrors) {
    if (error.name == name) {
      return error.value;
    }
  }
  table.refuse("errno", "the name of an error, such as \"EIO\" or \"ENOSPC\"");
}

Op read_op(const TomlTable& table) {
  const auto op = op_from_name(table.text("operation"));
  if (!op) {
    std::string names;
    for (std::size_t i = 0; i < kOpCount; ++i) {
      names += std::string(i == 0 ? "" : ", ") + op_name(static_cast<Op>(i));
    }
    table.refuse("operation", "one of: " + names);
  }
  return *op;
}

Fault read_fault(const TomlTable& table) {
  table.allow({"operation", "where", "at", "errno", "forever", "bytes"});
  Fault fault;
  fault.op = read_op(table);
  fault.where = table.text("where", "");
  fault.at = static_cast<std::uint64_t>(table.integer("at", 1, kMany, 1));
  fault.error = read_error(table);
  fault.forever = table.flag("forever", false);
  if (table.has("bytes")) {
    fault.bytes = static_cast<std::uint32_t>(table.integer("bytes", 0, kMost));
  }
  return fault;
}

std::optional<std::uint32_t> read_point(const TomlTable& table, std::string_view key) {
  if (!table.has(key)) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(table.integer(key, 0, kMost));
}

PowerCut read_cut(const TomlTable& table) {
  table.allow({"at", "kind", "byte", "page"});
  PowerCut cut;
  cut.at = static_cast<std::uint64_t>(table.integer("at", 1, kMany));
  const auto kind = cut_from_name(table.text("kind", "before"));
  if (!kind) {
    table.refuse("kind", "\"before\", \"after\", \"torn\" or \"unstable\"");
  }
  cut.kind = *kind;
  cut.byte = read_point(table, "byte");
  cut.page = read_point(table, "page");
  return cut;
}

void check_defect(const TomlTable& table, const std::string& defect,
                  std::initializer_list<std::string_view> known) {
  std::string names;
  for (const std::string_view name : known) {
    if (name == defect) {
      return;
    }
    names += (names.empty() ? "" : ", ") + std::string(name);
  }
  table.refuse("defect", "one of: " + names);
}

FaultPlan::Block read_block(const TomlTable& table) {
  table.allow({"partition", "block", "defect", "at"});
  FaultPlan::Block block;
  block.partition = table.text("partition");
  block.block = static_cast<std::uint32_t>(table.integer("block", 0, kMost));
  block.defect = table.text("defect");
  block.at = static_cast<std::uint32_t>(table.integer("at", 1, kMost, 1));
  check_defect(table, block.defect, {"bad", "worn", "turns-bad-fails", "turns-bad-passes"});
  return block;
}

FaultPlan::Page read_page(const TomlTable& table) {
  table.allow({"partition", "block", "page", "defect"});
  FaultPlan::Page page;
  page.partition = table.text("partition");
  page.block = static_cast<std::uint32_t>(table.integer("block", 0, kMost));
  page.page = static_cast<std::uint32_t>(table.integer("page", 0, kMost));
  page.defect = table.text("defect");
  check_defect(table, page.defect, {"fails-program", "unreadable", "misread", "unstable"});
  return page;
}

}  // namespace

FaultPlan read_faults(const std::filesystem::path& file) {
  const TomlFile toml(file);
  const TomlTable root = toml.root();
  root.allow({"fault", "power_cut", "block", "page"});
  FaultPlan plan;
  for (const TomlTable& fault : root.tables("fault")) {
    plan.faults.push_back(read_fault(fault));
  }
  if (root.has("power_cut")) {
    plan.power_cut = read_cut(root.table("power_cut"));
  }
  for (const TomlTable& block : root.tables("block")) {
    plan.blocks.push_back(read_block(block));
  }
  for (const TomlTable& page : root.tables("page")) {
    plan.pages.push_back(read_page(page));
  }
  return plan;
}

}  // namespace sim
