// SPDX-License-Identifier: Apache-2.0
//
// One line for each call on the device, for people.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "sim/process.h"
#include "sim/real.h"

namespace sim {
namespace {

int g_trace_fd = -1;

void describe(std::ostream& out, const Call& call) {
  out << op_name(call.op);
  if (!call.path.empty()) {
    out << ' ' << call.path;
  }
  if (!call.partition.empty()) {
    out << " (" << call.partition << ')';
  }
  if (!call.text.empty()) {
    out << " \"" << call.text << '"';
  }
  if (call.op == Op::open || call.op == Op::access || call.op == Op::mkdir) {
    out << " flags=0x" << std::hex << call.flags << std::dec;
  }
  if (call.offset != 0 || call.length != 0) {
    out << " offset=" << call.offset << " length=" << call.length;
  }
  out << " = " << call.result;
  if (call.error != 0) {
    out << ' ' << std::strerror(call.error);
  }
  out << '\n';
}

}  // namespace

void trace_to(const char* file) {
  REAL(open64);
  g_trace_fd = real_open64(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
}

bool tracing() {
  return g_trace_fd >= 0;
}

void trace(const Call& call) {
  std::ostringstream line;
  describe(line, call);
  const std::string text = line.str();
  REAL(write);
  static_cast<void>(real_write(g_trace_fd, text.data(), text.size()));
}

}  // namespace sim
