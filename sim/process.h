// SPDX-License-Identifier: Apache-2.0
//
// The calling process on a simulated device: which of its paths and descriptors are the device's,
// and what it asks of them. The interposed C library functions are thin entries to this.
//
// Results are those of a system call inside the kernel: 0 or more, or a negated errno value.
#ifndef SIM_PROCESS_H
#define SIM_PROCESS_H

#include <sys/types.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sim/attach.h"
#include "sim/device.h"
#include "sim/mtd.h"

namespace sim {

// --- The attached device. -----------------------------------------------------------------------

// Null as long as none is attached: every call then passes through.
extern Device* g_device;

// While one exists on a thread, what that thread allocates is the simulator's.
class InSimulator {
 public:
  InSimulator() { ++depth; }
  ~InSimulator() { --depth; }
  InSimulator(const InSimulator&) = delete;
  InSimulator& operator=(const InSimulator&) = delete;
  static bool now() { return depth > 0; }

 private:
  static thread_local int depth;
};

// Gives a call its errno: restored on success, set on failure.
class Errno {
 public:
  Errno();
  // -1 with errno set, or the result with errno as it was when this was made.
  std::int64_t give(std::int64_t result) const;

 private:
  int before_;
};

// The negated errno form of a C library result.
std::int64_t from_libc(std::int64_t result);

// --- Paths. -------------------------------------------------------------------------------------

enum class PathKind : std::uint8_t {
  foreign,  // not the device's
  file,     // a file or folder of the device's folder
  mtd,      // an MTD character device
  block,    // "/dev/mtdblockN" or "/dev/zftlN"
  nothing,  // the device's, but there is no such node
};

// Where a path leads. Makes no allocation: paths are looked at in odd moments of a program's life.
struct MappedPath {
  explicit MappedPath(const char* path);
  bool foreign() const { return kind == PathKind::foreign; }
  std::string_view partition() const;

  PathKind kind = PathKind::foreign;
  bool read_only = false;    // "/dev/mtdNro"
  std::uint32_t number = 0;  // of the node
  const char* passed;        // foreign: what to hand on
  char path[PATH_MAX];       // on the device, normalised
  char host[PATH_MAX];       // files: where it is
};

// Sets what device paths are mapped to.
void set_root(const Device* device);

// False for a null path.
bool is_empty_path(const char* path);

// The device path of a path inside the device's folder, else the path itself.
std::string_view unmapped(std::string_view host);

// --- Counting, faults, recording. ---------------------------------------------------------------

// Counts an operation on a path and lets a fault meet it.
Struck meet_path(Op op, const MappedPath& path);
// The same for what has no path: the store, the shell.
Struck meet_plain(Op op, std::string_view where = {});

struct Details {
  int fd = -1;
  int flags = 0;
  unsigned long request = 0;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
  std::string_view text = {};
};
// True when calls are recorded or traced.
bool recording();
// Appends a line for each call from now on to a file.
void trace_to(const char* file);
bool tracing();
void trace(const Call& call);
// True when each MEMGETBADBLOCK is to be recorded.
extern bool g_records_queries;
void note(Op op, std::string_view path, std::string_view partition, const Details& details,
          std::int64_t result);
inline void note(Op op, const MappedPath& path, const Details& details, std::int64_t result) {
  note(op, path.path, path.partition(), details, result);
}

// --- Descriptors. -------------------------------------------------------------------------------

// A descriptor number of the device.
struct OpenFile {
  std::string path;              // on the device
  std::string partition;         // of nodes
  std::uint32_t number = 0;      // of nodes
  bool node = false;             // a device node: the descriptor itself is only a reserved number
  std::shared_ptr<MtdFile> mtd;  // shared by duplicates; null for files and block nodes
};

constexpr std::size_t kMaxDescriptors = 4096;
extern OpenFile* g_open_files[kMaxDescriptors];

// Null when the descriptor is not the device's.
inline OpenFile* open_file(int fd) {
  const auto index = static_cast<unsigned>(fd);
  return index < kMaxDescriptors ? g_open_files[index] : nullptr;
}

void adopt(int fd, const OpenFile& file);
// Forgets the number, without closing anything.
void forget(int fd);
void forget_all();

// Opens a mapped path; the result is a descriptor. The other calls take what open_file() gave.
std::int64_t process_open(const MappedPath& path, int flags, mode_t mode);
std::int64_t process_close(int fd, const OpenFile& file);

struct Transfer {
  Op op;                               // Op::read or Op::write
  void* buffer;                        // of a write: only read from
  std::size_t count;                   // bytes
  std::optional<std::int64_t> offset;  // not set: at the descriptor's position
};
std::int64_t process_transfer(int fd, const OpenFile& file, const Transfer& transfer);

std::int64_t process_lseek(int fd, const OpenFile& file, std::int64_t offset, int whence);
std::int64_t process_fsync(int fd, const OpenFile& file);
std::int64_t process_ioctl(int fd, const OpenFile& file, unsigned long request, void* argument);

// --- Streams. -----------------------------------------------------------------------------------

// Null with errno set when it cannot be opened.
FILE* process_fopen(const MappedPath& path, const char* mode);
bool is_stream(FILE* stream);
int process_fclose(FILE* stream);
// Forgets every stream, without closing anything.
void forget_streams();

// --- The rest of the platform. ------------------------------------------------------------------

int process_store_get(const char* name, char* buffer, int length);
int process_store_set(const char* name, const char* value);
int process_store_save();
void forget_store();
// True when the shell command restarts the device; it is then recorded.
bool process_reboot(const char* command);

}  // namespace sim

#endif
