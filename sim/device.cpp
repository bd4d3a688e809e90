// SPDX-License-Identifier: Apache-2.0
#include "sim/device.h"

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sim/device_state.h"
#include "sim/shared_region.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStateFile = "state.bin";
constexpr const char* kTablePath = "/etc_ro/systemPartitionInfo.conf";

void place_partitions(const Layout& layout, Device::State& state) {
  std::uint32_t block = 0;
  for (std::size_t i = 0; i < layout.partitions.size(); ++i) {
    PartitionState& partition = state.partitions.at(i);
    const std::string& name = layout.partitions[i].name;
    std::memcpy(partition.name, name.data(), name.size());
    partition.first_block = block;
    partition.blocks = layout.partitions[i].blocks;
    block += partition.blocks;
  }
}

void fill_state(const Layout& layout, Device::State& state) {
  state.magic = kStateMagic;
  state.version = kStateVersion;
  state.layout = pack_layout(layout);
  place_partitions(layout, state);
}

void mark_factory_bad(const Layout& layout, const Device::State& state, Nand& nand) {
  for (std::size_t i = 0; i < layout.partitions.size(); ++i) {
    for (const std::uint32_t block : layout.partitions[i].bad) {
      nand.set_bad(state.partitions.at(i).first_block + block);
    }
  }
}

std::uint32_t count_blocks(const Layout& layout) {
  std::uint32_t blocks = 0;
  for (const PartitionLayout& partition : layout.partitions) {
    blocks += partition.blocks;
  }
  return blocks;
}

void check_folder(const fs::path& folder) {
  if (fs::exists(folder) && !(fs::is_directory(folder) && fs::is_empty(folder))) {
    throw std::runtime_error(folder.string() + ": exists; a new device needs a folder of its own");
  }
  fs::create_directories(folder);
}

Device::State& checked_state(const SharedRegion& region, const fs::path& file) {
  auto& state = *region.at<Device::State>(0);
  if (state.magic != kStateMagic || state.version != kStateVersion) {
    throw std::runtime_error(file.string() + ": not the state of a device of this version");
  }
  return state;
}

fs::path checked_state_file(const fs::path& folder) {
  fs::path file = folder / kStateFile;
  if (!fs::exists(file)) {
    throw std::runtime_error(folder.string() + ": not a device (no " + kStateFile +
                             "); make one with: zozale-sim create " + folder.string());
  }
  return file;
}

}  // namespace

struct Device::Parts {
  fs::path folder;
  Layout layout;
  SharedRegion state;
  Nand nand;
};

Device::Device(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}
Device::Device(Device&&) noexcept = default;
Device& Device::operator=(Device&&) noexcept = default;
Device::~Device() = default;

Device Device::create(const fs::path& folder, const Layout& wanted, Storage storage) {
  check_layout(wanted);
  check_folder(folder);
  Layout layout = wanted;
  layout.geometry.blocks = count_blocks(layout);
  const bool files = storage == Storage::folder;
  const fs::path home = fs::absolute(folder);
  auto parts = std::make_unique<Parts>(Parts{
      home, layout,
      files ? SharedRegion::file(home / kStateFile, sizeof(State), FileUse::create)
            : SharedRegion::memory(sizeof(State)),
      files ? Nand::create(home / "chip", layout.geometry) : Nand::in_memory(layout.geometry)});
  Device device(std::move(parts));
  fill_state(layout, device.state());
  mark_factory_bad(layout, device.state(), device.nand());
  fs::create_directories(device.host_path("/cache"));
  device.write_file(kTablePath, table_text(layout));
  device.power_on(layout.running);
  return device;
}

Device Device::open(const fs::path& folder) {
  const fs::path home = fs::absolute(folder);
  const fs::path file = checked_state_file(home);
  SharedRegion region = SharedRegion::file(file, sizeof(State), FileUse::open);
  Layout layout = unpack_layout(checked_state(region, file));
  Nand nand = Nand::open(home / "chip", layout.geometry);
  return Device(std::make_unique<Parts>(Parts{home, layout, std::move(region), std::move(nand)}));
}

const fs::path& Device::folder() const {
  return parts_->folder;
}
const Layout& Device::layout() const {
  return parts_->layout;
}
Nand& Device::nand() {
  return parts_->nand;
}
const Nand& Device::nand() const {
  return parts_->nand;
}
Device::State& Device::state() {
  return *parts_->state.at<State>(0);
}
const Device::State& Device::state() const {
  return *parts_->state.at<State>(0);
}
Faults Device::faults() {
  return Faults(state().faults);
}
SavedStore Device::store() const {
  return SavedStore(folder() / "store");
}

std::uint32_t Device::partition_count() const {
  return state().layout.partitions;
}

std::optional<std::uint32_t> Device::find_partition(std::string_view name) const {
  for (std::uint32_t i = 0; i < partition_count(); ++i) {
    if (name == state().partitions.at(i).name) {
      return i;
    }
  }
  return std::nullopt;
}

Partition Device::partition(std::uint32_t number) {
  if (number >= partition_count()) {
    throw std::out_of_range("no partition mtd" + std::to_string(number));
  }
  return {*this, number};
}

Partition Device::partition(std::string_view name) {
  const auto number = find_partition(name);
  if (!number) {
    throw std::out_of_range("no partition named \"" + std::string(name) + "\"");
  }
  return {*this, *number};
}

fs::path Device::host_path(std::string_view path) const {
  return folder() / "root" / fs::path(path).relative_path();
}

void Device::write_file(std::string_view path, std::string_view bytes) {
  const fs::path host = host_path(path);
  fs::create_directories(host.parent_path());
  std::ofstream out(host, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    throw std::runtime_error(host.string() + ": cannot be written");
  }
}

void Device::write_file(std::string_view path, const Bytes& bytes) {
  write_file(path,
             std::string_view(static_cast<const char*>(static_cast<const void*>(bytes.data())),
                              bytes.size()));
}

std::string Device::read_file(std::string_view path) const {
  const fs::path host = host_path(path);
  std::ifstream in(host, std::ios::binary);
  if (!in) {
    throw std::runtime_error(host.string() + ": cannot be read");
  }
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

bool Device::has_file(std::string_view path) const {
  return fs::exists(host_path(path));
}
void Device::remove_file(std::string_view path) {
  fs::remove_all(host_path(path));
}

System Device::running() const {
  return static_cast<System>(state().running);
}

void Device::set_running(System system) {
  state().running = static_cast<std::uint32_t>(system);
  write_file("/proc/cmdline", cmdline_text(layout(), system));
}

Power Device::power() const {
  return static_cast<Power>(state().power);
}
void Device::set_power(Power power) {
  state().power = static_cast<std::uint32_t>(power);
}

void Device::power_on(System system) {
  for (PartitionState& partition : state().partitions) {
    partition.lifted = 0;
  }
  write_file("/proc/mtd", mtd_text(layout()));
  set_running(system);
  set_power(Power::on);
}

std::uint64_t Device::count(Op op) const {
  const auto kind = static_cast<std::size_t>(op);
  std::uint64_t sum = state().counts.at(kind);
  for (const PartitionState& partition : state().partitions) {
    sum += partition.counts.at(kind);
  }
  return sum;
}

std::uint64_t Device::flash_operations() const {
  return count(Op::block_erase) + count(Op::page_program);
}

void Device::clear_counts() {
  state().counts = {};
  for (PartitionState& partition : state().partitions) {
    partition.counts = {};
  }
}

namespace {

void apply_block(Partition partition, const FaultPlan::Block& block) {
  if (block.defect == "bad") {
    partition.set_bad(block.block);
  } else if (block.defect == "worn") {
    partition.set_erase_defect(block.block, EraseDefect::worn, block.at);
  } else if (block.defect == "turns-bad-fails") {
    partition.set_erase_defect(block.block, EraseDefect::turns_bad_fails, block.at);
  } else {
    partition.set_erase_defect(block.block, EraseDefect::turns_bad_passes, block.at);
  }
}

void apply_page(Partition partition, const FaultPlan::Page& page) {
  if (page.defect == "unstable") {
    partition.set_page_unstable(page.block, page.page);
  } else if (page.defect == "unreadable") {
    partition.set_page_defects(page.block, page.page, kPageUnreadable);
  } else if (page.defect == "misread") {
    partition.set_page_defects(page.block, page.page, kPageMisread);
  } else {
    partition.set_page_defects(page.block, page.page, kPageFailsProgram);
  }
}

}  // namespace

void Device::apply(const FaultPlan& plan) {
  faults().clear();
  for (const Fault& fault : plan.faults) {
    faults().add(fault);
  }
  if (plan.power_cut) {
    faults().set_power_cut(*plan.power_cut);
  }
  for (const FaultPlan::Block& block : plan.blocks) {
    apply_block(partition(block.partition), block);
  }
  for (const FaultPlan::Page& page : plan.pages) {
    apply_page(partition(page.partition), page);
  }
}

Device::Snapshot Device::snapshot() const {
  const std::uint8_t* bytes = parts_->state.data();
  return {nand().snapshot(), Bytes(bytes, bytes + sizeof(State)), store().all()};
}

void Device::restore(const Snapshot& snapshot) {
  nand().restore(snapshot.chip);
  std::memcpy(parts_->state.data(), snapshot.state.data(), sizeof(State));
  set_power(Power::on);
  set_running(running());
  faults().clear();
  clear_counts();
  store().clear();
  for (const auto& [name, value] : snapshot.store) {
    store().put(name, value);
  }
}

}  // namespace sim
