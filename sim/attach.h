// SPDX-License-Identifier: Apache-2.0
//
// Puts the calling process on a simulated device.
//
// A program linked with zozale_sim_linked carries its own definitions of open(), read(), ioctl(),
// fopen(), ... which every library of the process then calls too. As long as no device is attached
// they hand everything on to the C library. While one is attached they answer for its paths:
//
//   /proc/mtd, /proc/cmdline, /cache, /etc_ro    files of the device folder
//   /dev/mtdN, /dev/mtdNro                       MTD character devices
//   /dev/mtdblockN, /dev/zftlN                   can be opened and closed; know no request
//
// and for sc_cfg_get(), sc_cfg_set(), sc_cfg_save() (weak: a test program that defines its own
// wins) and the shell command "reboot", which is recorded (Device::power()) and returns 0.
// Everything else passes through.
//
// Not for several threads at once: one thread uses the device.
#ifndef SIM_ATTACH_H
#define SIM_ATTACH_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sim/device.h"
#include "sim/power.h"

namespace sim {

// The device must live until detach(). One at a time: attaching another replaces the first.
// Store values that were set and not saved are forgotten.
void attach(Device& device);
void detach();
Device* attached();

class Attached {
 public:
  explicit Attached(Device& device) { attach(device); }
  ~Attached() { detach(); }
  Attached(const Attached&) = delete;
  Attached& operator=(const Attached&) = delete;
};

// --- What the process still holds of the device. ---

struct OpenDescriptor {
  int fd = -1;       // -1: a stream without a descriptor of its own
  std::string path;  // on the device
  bool stream = false;
};
// Every descriptor and stream on the device's paths that was opened and not closed.
std::vector<OpenDescriptor> open_descriptors();

// --- What the process asked of the device, call by call. ---

struct Call {
  Op op = Op::open;
  std::string path;           // on the device: "/dev/mtd0", "/cache/..."; rename: the old one
  std::string partition;      // for MTD nodes, else empty
  int fd = -1;                // the descriptor used, or got by an open
  unsigned long request = 0;  // ioctl: the request number
  int flags = 0;              // open: flags; lseek: whence; access: mode; mkdir: mode
  std::uint64_t offset = 0;   // read/write: where; lseek, protection: argument; erase, bad-block
                              // query: start
  std::uint64_t length = 0;   // read/write: bytes asked for; erase: length
  std::string text;           // fopen: mode; rename: new path; store: name=value; reboot: command
  std::int64_t result = 0;    // the call's; for fopen 0 or -1
  int error = 0;              // errno when the result tells of a failure, else 0
};

struct RecordOptions {
  bool bad_block_queries = false;  // MEMGETBADBLOCK too: there may be millions
};

// Records calls from construction to destruction; one recording at a time.
class Recording {
 public:
  explicit Recording(const RecordOptions& options = {});
  ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  const std::vector<Call>& calls() const;
  // Those of one kind, in order; with a partition name or device path: those on it only.
  std::vector<Call> calls(Op op, const std::string& where = {}) const;
  void clear();
};

// --- The store, from inside the process. ---

// Every sc_cfg_set() since the device was attached, in order: name and value.
const std::vector<std::pair<std::string, std::string>>& store_sets();
// How often sc_cfg_save() was called since the device was attached.
std::uint64_t store_saves();

// --- Memory. ---

// While one exists, malloc(), calloc() and realloc() calls of the process are counted, and faults
// of kind Op::malloc strike them. What the simulator itself allocates does not count. `holder` is
// part of the file name of an object whose own malloc(), calloc() and free() are balanced.
// Under valgrind this needs --soname-synonyms=somalloc=nouserintercepts.
class AllocationWatch {
 public:
  explicit AllocationWatch(const char* holder = nullptr);
  ~AllocationWatch();
  AllocationWatch(const AllocationWatch&) = delete;
  AllocationWatch& operator=(const AllocationWatch&) = delete;
  std::uint64_t allocations() const;
  // Blocks that the holder got since construction and has not given back.
  std::int64_t held() const;
};

}  // namespace sim

#endif
