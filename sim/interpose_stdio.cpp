// SPDX-License-Identifier: Apache-2.0
//
// Streams.
#include <cstdio>

#include "sim/interpose.h"

namespace {

using sim::MappedPath;

template <typename RealOpen>
FILE* open_stream(const char* path, const char* mode, RealOpen real) {
  const MappedPath mapped(path);
  if (!mapped.foreign()) {
    return sim::process_fopen(mapped, mode);
  }
  FILE* stream = real(mapped.passed, mode);
  if (stream != nullptr) {
    sim::forget(fileno(stream));  // a number that was closed behind our back
  }
  return stream;
}

}  // namespace

SIM_API FILE* fopen(const char* path, const char* mode) {
  REAL(fopen);
  return open_stream(path, mode,
                     [](const char* real, const char* how) { return real_fopen(real, how); });
}

SIM_API FILE* fopen64(const char* path, const char* mode) {
  REAL(fopen64);
  return open_stream(path, mode,
                     [](const char* real, const char* how) { return real_fopen64(real, how); });
}

SIM_API FILE* freopen(const char* path, const char* mode, FILE* stream) {
  REAL(freopen);
  return real_freopen(sim::HostPath(path).get(), mode, stream);
}

SIM_API FILE* freopen64(const char* path, const char* mode, FILE* stream) {
  REAL(freopen64);
  return real_freopen64(sim::HostPath(path).get(), mode, stream);
}

// A stream over a descriptor of the device closes it without our hearing of it.
SIM_API int fclose(FILE* stream) {
  if (sim::is_stream(stream)) {
    return sim::process_fclose(stream);
  }
  if (sim::g_device != nullptr && stream != nullptr) {
    sim::forget(fileno(stream));
  }
  REAL(fclose);
  return real_fclose(stream);
}
