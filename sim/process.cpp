// SPDX-License-Identifier: Apache-2.0
#include "sim/process.h"

#include <cerrno>
#include <utility>

#include "sim/device_state.h"

namespace sim {

Device* g_device = nullptr;
bool g_records_queries = false;
thread_local int InSimulator::depth = 0;

namespace {

struct Record {
  bool on = false;
  std::vector<Call> calls;
};

Record& record() {
  static auto* const current = new Record;  // outlives every caller, also those at exit
  return *current;
}

}  // namespace

// --- The attached device. -----------------------------------------------------------------------

void attach(Device& device) {
  detach();
  const InSimulator in_simulator;
  set_root(&device);
  g_device = &device;
}

void detach() {
  const InSimulator in_simulator;
  g_device = nullptr;
  set_root(nullptr);
  forget_all();
  forget_streams();
  forget_store();
}

Device* attached() {
  return g_device;
}

Errno::Errno() : before_(errno) {}

std::int64_t Errno::give(std::int64_t result) const {
  errno = result < 0 ? static_cast<int>(-result) : before_;
  return result < 0 ? -1 : result;
}

std::int64_t from_libc(std::int64_t result) {
  return result < 0 ? -errno : result;
}

// --- Counting and faults. -----------------------------------------------------------------------

Struck meet_path(Op op, const MappedPath& path) {
  const std::string_view partition = path.partition();
  Counters& counts = partition.empty() ? g_device->state().counts
                                       : g_device->state().partitions.at(path.number).counts;
  ++counts.at(static_cast<std::size_t>(op));
  return g_device->faults().meet(op, partition, path.path);
}

Struck meet_plain(Op op, std::string_view where) {
  ++g_device->state().counts.at(static_cast<std::size_t>(op));
  return g_device->faults().meet(op, {}, where);
}

// --- Recording. ---------------------------------------------------------------------------------

bool recording() {
  return record().on || tracing();
}

void note(Op op, std::string_view path, std::string_view partition, const Details& details,
          std::int64_t result) {
  if (!recording()) {
    return;
  }
  const InSimulator in_simulator;
  Call call;
  call.op = op;
  call.path = path;
  call.partition = partition;
  call.fd = details.fd;
  call.request = details.request;
  call.flags = details.flags;
  call.offset = details.offset;
  call.length = details.length;
  call.text = details.text;
  call.result = result < 0 ? -1 : result;
  call.error = result < 0 ? static_cast<int>(-result) : 0;
  if (tracing()) {
    trace(call);
  }
  if (record().on) {
    record().calls.push_back(std::move(call));
  }
}

Recording::Recording(const RecordOptions& options) {
  record().on = true;
  record().calls.clear();
  g_records_queries = options.bad_block_queries;
}

Recording::~Recording() {
  record().on = false;
  record().calls.clear();
  g_records_queries = false;
}

const std::vector<Call>& Recording::calls() const {
  return record().calls;
}

std::vector<Call> Recording::calls(Op op, const std::string& where) const {
  std::vector<Call> out;
  for (const Call& call : record().calls) {
    if (call.op == op && (where.empty() || where == call.partition || where == call.path)) {
      out.push_back(call);
    }
  }
  return out;
}

void Recording::clear() {
  record().calls.clear();
}

}  // namespace sim
