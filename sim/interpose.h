// SPDX-License-Identifier: Apache-2.0
//
// What the interposed functions share. A function of the C library that is defined here answers
// for the device's paths and descriptors and hands everything else on.
//
// The files that define them are compiled without _FORTIFY_SOURCE and without _FILE_OFFSET_BITS:
// each name is to be defined as itself.
#ifndef SIM_INTERPOSE_H
#define SIM_INTERPOSE_H

#include "sim/process.h"
#include "sim/real.h"

// Seen from outside although the rest of the simulator is hidden.
#define SIM_API extern "C" __attribute__((visibility("default")))

namespace sim {

// The result of a call on a device path: counts it, lets a fault meet it, records it. `call` makes
// the real call on the path that it is handed.
template <typename RealCall>
int on_path(Op op, const char* path, int flags, RealCall call, std::string_view text = {}) {
  const MappedPath mapped(path);
  if (mapped.foreign()) {
    return call(mapped.passed);
  }
  const InSimulator in_simulator;
  const Errno outcome;
  const Struck struck = meet_path(op, mapped);
  std::int64_t result = -struck.error;
  if (result == 0 && mapped.kind == PathKind::file) {
    result = from_libc(call(static_cast<const char*>(mapped.host)));
  } else if (result == 0 && mapped.kind == PathKind::nothing) {
    result = -ENOENT;
  }
  Details details;
  details.flags = flags;
  details.text = text;
  note(op, mapped, details, result);
  return static_cast<int>(outcome.give(result));
}

// The path that a call without a meaning of its own in the simulator is to be made on.
class HostPath {
 public:
  explicit HostPath(const char* path) : mapped_(path) {}
  const char* get() const { return mapped_.kind == PathKind::file ? mapped_.host : mapped_.passed; }

 private:
  MappedPath mapped_;
};

}  // namespace sim

#endif
