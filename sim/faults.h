// SPDX-License-Identifier: Apache-2.0
//
// What goes wrong, and when: the n-th operation of a kind fails, is cut short, or is the one at
// which the power goes.
//
// Faults live in memory that all processes of a device share: they count operations from the
// moment they are added, over every program that runs on the device, and a fault that has struck
// once does not strike again after a reboot.
#ifndef SIM_FAULTS_H
#define SIM_FAULTS_H

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// The operations that the simulated device sees, counts and can let fail.
enum class Op : std::uint8_t {
  // On descriptors: MTD nodes and files of the device ("/cache", "/etc_ro", "/proc").
  open,
  close,
  read,   // read, pread
  write,  // write, pwrite
  lseek,
  fsync,
  // Requests on MTD nodes.
  memgetinfo,
  memerase,
  memerase64,
  memgetbadblock,
  protect_lift,
  protect_restore,
  other_request,
  // On streams of the device's files.
  fopen,
  fclose,
  stream_read,   // one refill of a stream's buffer
  stream_write,  // one flush of a stream's buffer
  // On paths of the device.
  access,
  stat,
  mkdir,
  rename,
  unlink,  // unlink, remove, rmdir
  // On the chip, below the kernel: what a power cut counts.
  block_erase,
  page_program,
  // On the process and the platform.
  malloc,  // malloc, calloc, realloc: in-process only, see attach.h
  store_get,
  store_set,
  store_save,
  reboot,  // the shell command
};
constexpr std::size_t kOpCount = static_cast<std::size_t>(Op::reboot) + 1;

// "open", "MEMERASE64", "protect-lift", "block-erase" ...: the names of faults.toml.
const char* op_name(Op op);
std::optional<Op> op_from_name(std::string_view name);

struct Fault {
  Op op = Op::open;
  // Only operations on this partition ("kernel2") or path of the device ("/cache/x"; a trailing
  // "*" makes it a prefix); for Op::malloc: calls out of object files whose name contains it.
  // Empty: anywhere.
  std::string where;
  std::uint64_t at = 1;  // the how-manieth matching operation from now on; from 1
  int error = EIO;       // errno; the operation is not carried out (a close closes all the same)
  bool forever = false;  // that operation and every one after it
  // For read, write and stream_read: not an error, only this many bytes are transferred.
  std::optional<std::uint32_t> bytes = std::nullopt;
};

enum class CutKind : std::uint8_t {
  before,    // nothing of the operation happened
  after,     // all of it happened, but nobody was told
  torn,      // a page programmed up to a byte, a block erased up to a page
  unstable,  // a mix of old and new bits that reads differently each time
};
const char* cut_name(CutKind kind);
std::optional<CutKind> cut_from_name(std::string_view name);

// The power goes at a flash operation (block erase or page program) and the process is gone.
struct PowerCut {
  std::uint64_t at = 1;  // the how-manieth flash operation from now on; from 1
  CutKind kind = CutKind::before;
  // Torn: where. Past the end, or not given: in the middle.
  std::optional<std::uint32_t> byte = std::nullopt;  // of the page
  std::optional<std::uint32_t> page = std::nullopt;  // of the block
};

// Most faults that a device can hold at a time.
constexpr std::size_t kMaxFaults = 64;

// A fault as the operation meets it.
struct Struck {
  int error = 0;                       // errno, or 0: not struck
  std::optional<std::uint32_t> bytes;  // a short transfer instead of an error
  explicit operator bool() const { return error != 0 || bytes.has_value(); }
};

// The faults of one device, in memory that the device shares with other processes.
class Faults {
 public:
  struct Memory;  // plain data, zero-filled: no fault

  explicit Faults(Memory& memory) : memory_(&memory) {}

  // Throws std::runtime_error when kMaxFaults are held, or the fault makes no sense.
  void add(const Fault& fault);
  void set_power_cut(const PowerCut& cut);
  void clear();
  // How many faults (not the power cut) have struck, each counted once.
  std::size_t struck() const;

  // For the simulator: counts the operation against every fault of its kind.
  Struck meet(Op op, std::string_view partition, std::string_view path);
  // The same by a caller's object file, of whose name a fault's place is a part.
  Struck meet_caller(Op op, std::string_view object);
  // False as long as no fault of that kind is held: nothing to meet.
  bool any(Op op) const;
  // True when a fault of that kind is held that `path` could meet, struck or not.
  bool any(Op op, std::string_view path) const;
  // The cut, when the flash operation that is about to begin is the one.
  std::optional<PowerCut> meet_flash_operation();

 private:
  template <typename Matches>
  Struck meet_those(Op op, Matches matches);

  Memory* memory_;
};

// What a faults file describes (its keys: docs/simulator.md).
struct FaultPlan {
  std::vector<Fault> faults;
  std::optional<PowerCut> power_cut;
  struct Block {
    std::string partition;
    std::uint32_t block = 0;
    std::string defect;  // "bad", "worn", "turns-bad-fails", "turns-bad-passes"
    std::uint32_t at = 1;
  };
  struct Page {
    std::string partition;
    std::uint32_t block = 0;
    std::uint32_t page = 0;
    std::string defect;  // "fails-program", "unreadable", "misread", "unstable"
  };
  std::vector<Block> blocks;
  std::vector<Page> pages;
};

// Throws std::runtime_error with a message that names file, field, value found and expected.
FaultPlan read_faults(const std::filesystem::path& file);

}  // namespace sim

#endif
