// SPDX-License-Identifier: Apache-2.0
//
// A simulated device: a folder with its chip, its files and its state.
//
//   DEVICE/chip/             the NAND chip
//   DEVICE/state.bin         partitions, write protection, counters, faults
//   DEVICE/store             the saved values of the configuration store
//   DEVICE/root/             what the device's paths are: /cache, /etc_ro, /proc/mtd, /proc/cmdline
//   DEVICE/faults.toml       optional: what goes wrong; read by `zozale-sim run`
//
// This is the outside view: a test's or the tool's. Programs on the device see it through the
// interposed C library (attach.h, `zozale-sim run`).
#ifndef SIM_DEVICE_H
#define SIM_DEVICE_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/faults.h"
#include "sim/layout.h"
#include "sim/nand.h"

namespace sim {

class Device;

// What the platform's MEMGETINFO answers.
struct MtdInfo {
  std::uint32_t size = 0;
  std::uint32_t erase_size = 0;
  std::uint32_t write_size = 0;
  std::uint32_t oob_size = 0;
};

// One partition of a device. A view: valid as long as the device; copy it freely. Blocks and pages
// count from the partition's start (pages within their block); out of range throws
// std::out_of_range.
class Partition {
 public:
  Partition(Device& device, std::uint32_t number) : device_(&device), number_(number) {}

  std::uint32_t number() const { return number_; }  // N of "/dev/mtdN"
  std::string name() const;
  std::string node() const;  // "/dev/mtdN"
  std::uint32_t blocks() const;
  std::uint32_t block_size() const;
  std::uint64_t size() const;
  std::uint32_t good_blocks() const;

  // --- Content, past the kernel: no counting, no write protection, no wear. ---

  Bytes raw() const;                       // every block, bad ones too
  Bytes good() const;                      // good blocks only, in order
  Bytes block(std::uint32_t block) const;  // one physical block
  // Fills the partition as a factory would: erases all good blocks and programs `data` into them
  // from the first on, the last page filled up with 0xFF. Throws when the good blocks do not hold
  // it.
  void flash(const Bytes& data);
  void flash(std::string_view data);
  // Sets bytes at a physical offset, whatever was there.
  void poke(std::uint64_t offset, const Bytes& data);
  // Sets every block to 0xFF, bad ones too.
  void wipe();

  // --- Defects. ---

  bool is_bad(std::uint32_t block) const;
  void set_bad(std::uint32_t block, bool bad = true);
  void set_erase_defect(std::uint32_t block, EraseDefect defect, std::uint32_t nth = 1);
  void set_page_defects(std::uint32_t block, std::uint32_t page, std::uint8_t defects);
  void set_page_unstable(std::uint32_t block, std::uint32_t page);

  // --- Use. ---

  std::uint32_t erase_count(std::uint32_t block) const;
  std::uint32_t program_count(std::uint32_t block, std::uint32_t page) const;
  std::uint64_t total_erases() const;  // over all blocks
  // Operations that programs asked for on this partition (descriptors and requests only), failed
  // ones too.
  std::uint64_t count(Op op) const;

  bool write_protected() const;
  void set_write_protected(bool on);

  // Lets MEMGETINFO tell something else than the truth (a page size of 0, say); nullopt: the truth.
  void set_reported_info(const std::optional<MtdInfo>& info);
  MtdInfo reported_info() const;

 private:
  Device* device_;
  std::uint32_t number_;
};

// The configuration store, as it would be found after a reboot.
class SavedStore {
 public:
  explicit SavedStore(std::filesystem::path file) : file_(std::move(file)) {}
  std::optional<std::string> get(std::string_view name) const;
  // Sets and saves, without counting.
  void put(const std::string& name, const std::string& value);
  void clear();
  // Every saved value, sorted by name.
  std::vector<std::pair<std::string, std::string>> all() const;

 private:
  std::filesystem::path file_;
};

enum class Storage : std::uint8_t {
  folder,  // chip and state in files: processes that open the folder share them
  memory,  // chip and state in memory that children of fork() share; files still in the folder
};

enum class Power : std::uint8_t {
  on,
  cut,        // gone at a flash operation; a reboot brings it back
  rebooting,  // a program ran "reboot"
};

class Device {
 public:
  // Makes a device in a folder that must not exist or be empty. Throws std::runtime_error.
  static Device create(const std::filesystem::path& folder, const Layout& layout,
                       Storage storage = Storage::folder);
  // Opens a device that was created with Storage::folder. Throws std::runtime_error.
  static Device open(const std::filesystem::path& folder);

  Device(Device&&) noexcept;
  Device& operator=(Device&&) noexcept;
  ~Device();

  const std::filesystem::path& folder() const;
  const Layout& layout() const;
  Nand& nand();
  const Nand& nand() const;
  Faults faults();
  SavedStore store() const;
  // Applies a faults file's content. Faults that the device held before are gone.
  void apply(const FaultPlan& plan);

  // --- Partitions. ---

  std::uint32_t partition_count() const;
  Partition partition(std::uint32_t number);
  // By name; throws std::out_of_range with the name when there is none.
  Partition partition(std::string_view name);
  std::optional<std::uint32_t> find_partition(std::string_view name) const;

  // --- Files. `path` is the device's: "/cache/ovu_fota_ab/upgrade.package". ---

  std::filesystem::path host_path(std::string_view path) const;
  void write_file(std::string_view path, std::string_view bytes);  // makes missing folders
  void write_file(std::string_view path, const Bytes& bytes);
  // Throws std::runtime_error when it cannot be read.
  std::string read_file(std::string_view path) const;
  bool has_file(std::string_view path) const;
  void remove_file(std::string_view path);

  // "/proc/mtd", "/proc/cmdline" and the table file are ordinary files: overwrite them with
  // write_file() for hostile content; power_on() writes the first two anew.

  // The system that "/proc/cmdline" names to programs.
  System running() const;
  void set_running(System system);

  // --- Power. ---

  Power power() const;
  void set_power(Power power);
  // What a start of the device does besides choosing a system: write protection is back on every
  // partition, "/proc/mtd" and "/proc/cmdline" are the kernel's again, power is on. Chip, files
  // and saved store values stay. (The boot loader, boot_loader.h, calls this.)
  void power_on(System system);

  // --- Counters, since the device was made or cleared. ---

  std::uint64_t count(Op op) const;
  // Block erases and page programs: what PowerCut::at counts.
  std::uint64_t flash_operations() const;
  void clear_counts();

  // Chip, write protection, store and running system, to go back to; not files, faults, counters.
  struct Snapshot {
    Bytes chip;
    Bytes state;
    std::vector<std::pair<std::string, std::string>> store;
  };
  Snapshot snapshot() const;
  // Takes a snapshot of this device; power is on, faults and counters are cleared.
  void restore(const Snapshot& snapshot);

  struct State;  // shared memory, for the simulator's own layers
  State& state();
  const State& state() const;

 private:
  struct Parts;
  explicit Device(std::unique_ptr<Parts> parts);
  std::unique_ptr<Parts> parts_;
};

}  // namespace sim

#endif
