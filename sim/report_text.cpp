// SPDX-License-Identifier: Apache-2.0
#include <iomanip>
#include <sstream>

#include "sim/report.h"
#include "sim/report_names.h"

namespace sim {
namespace {

std::string size_text(std::uint64_t bytes) {
  constexpr std::uint64_t kKib = 1024;
  constexpr std::uint64_t kMib = kKib * kKib;
  if (bytes >= kMib && bytes % kMib == 0) {
    return std::to_string(bytes / kMib) + " MiB";
  }
  if (bytes >= kKib && bytes % kKib == 0) {
    return std::to_string(bytes / kKib) + " KiB";
  }
  return std::to_string(bytes) + " bytes";
}

std::string bad_text(const Partition& partition) {
  std::string text;
  for (std::uint32_t block = 0; block < partition.blocks(); ++block) {
    if (partition.is_bad(block)) {
      text += (text.empty() ? "" : " ") + std::to_string(block);
    }
  }
  return text.empty() ? "-" : text;
}

void show_head(std::ostream& out, const Device& device) {
  const Geometry& geometry = device.layout().geometry;
  out << "Device     " << device.folder().string() << "\n"
      << "Power      " << power_name(device.power()) << "\n"
      << "Running    system " << letter(device.running()) << "\n"
      << "Flash      " << size_text(geometry.size()) << ": " << geometry.blocks << " blocks of "
      << size_text(geometry.block_size()) << ", pages of " << size_text(geometry.page_size)
      << "\n\n";
}

void show_partitions(std::ostream& out, Device& device) {
  out << "Partition          blocks   good  erases  worst  protected  bad blocks\n";
  for (std::uint32_t i = 0; i < device.partition_count(); ++i) {
    const Partition partition = device.partition(i);
    out << std::left << std::setw(6) << ("mtd" + std::to_string(i)) << std::setw(12)
        << partition.name() << std::right << std::setw(7) << partition.blocks() << std::setw(7)
        << partition.good_blocks() << std::setw(8) << partition.total_erases() << std::setw(7)
        << worst_block(partition) << "  " << std::left << std::setw(11)
        << (partition.write_protected() ? "yes" : "no") << bad_text(partition) << "\n";
  }
  out << "\n";
}

void show_copy(std::ostream& out, const char* name, const RecordCopy& copy) {
  out << "  " << std::left << std::setw(8) << name;
  if (!copy.block) {
    out << "no good block for it\n";
    return;
  }
  out << "block " << *copy.block << ": ";
  if (!copy.record.valid()) {
    out << "not valid (magic words 0x" << std::hex << copy.record.word(0) << " and 0x"
        << copy.record.word(28) << std::dec << ")\n";
    return;
  }
  out << "boot to " << target_name(copy.record.boot_to()) << ", fota status "
      << copy.record.fota_status();
  for (const System system : {System::a, System::b}) {
    out << "; " << letter(system) << " " << status_name(copy.record.status(system)) << ", "
        << copy.record.attempts(system) << " attempts";
  }
  out << "\n";
}

void show_flags(std::ostream& out, Device& device) {
  const RecordCopies copies = read_records(device);
  out << "Boot flags\n";
  show_copy(out, "main", copies.main);
  show_copy(out, "backup", copies.backup);
  out << "  Next start: " << boot_text(next_boot(device)) << "\n\n";
}

void show_rules(std::ostream& out, const Nand& nand) {
  const auto breaks = named_breaks(nand.rule_breaks());
  if (nand.rule_breaks().total() == 0) {
    out << "Rules of NAND: none was broken\n";
    return;
  }
  out << "Rules of NAND that were broken\n";
  for (const auto& [name, count] : breaks) {
    if (count > 0) {
      out << "  " << std::left << std::setw(24) << name << count << "\n";
    }
  }
}

void show_store(std::ostream& out, const Device& device) {
  const auto values = device.store().all();
  out << "Store" << (values.empty() ? ": nothing was saved\n" : "\n");
  for (const auto& [name, value] : values) {
    out << "  " << name << " = " << value << "\n";
  }
}

}  // namespace

std::string boot_text(const BootResult& result) {
  std::string text = std::string("system ") + letter(result.started) + ": " + result.why;
  if (result.wanted && *result.wanted != result.started) {
    text += std::string(" (the boot target is ") + letter(*result.wanted) + ")";
  }
  return text;
}

std::string device_text(Device& device) {
  std::ostringstream out;
  show_head(out, device);
  show_partitions(out, device);
  show_flags(out, device);
  show_rules(out, device.nand());
  show_store(out, device);
  return out.str();
}

}  // namespace sim
