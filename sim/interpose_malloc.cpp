// SPDX-License-Identifier: Apache-2.0
//
// Memory of the process, for AllocationWatch. In process only: a preloaded library leaves the
// program's memory alone.
#include <dlfcn.h>

#include <cerrno>
#include <cstdlib>

#include "sim/device_state.h"
#include "sim/process.h"

// A sanitizer's own allocator, when there is one: its blocks and those of the C library must not
// be mixed.
extern "C" {
__attribute__((weak)) void* __interceptor_malloc(std::size_t size);
__attribute__((weak)) void* __interceptor_calloc(std::size_t count, std::size_t size);
__attribute__((weak)) void* __interceptor_realloc(void* block, std::size_t size);
}

namespace {

using Malloc = void* (*)(std::size_t);
using Calloc = void* (*)(std::size_t, std::size_t);
using Realloc = void* (*)(void*, std::size_t);

// No function-local static: its guard may allocate, and this is called before anything else is.
Malloc g_malloc = nullptr;
Calloc g_calloc = nullptr;
Realloc g_realloc = nullptr;

bool g_watched = false;
std::uint64_t g_allocations = 0;

template <typename Function>
Function find(Function sanitizer, const char* name) {
  return sanitizer != nullptr ? sanitizer : reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// The file name of the object that an address of code lies in.
std::string_view object_of(const void* code) {
  Dl_info info{};
  return dladdr(code, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "";
}

// A fault names part of the object's file name: its place is looked for in it.
bool struck(const void* caller) {
  if (!sim::g_device->faults().any(sim::Op::malloc)) {
    return false;
  }
  return sim::g_device->faults().meet_caller(sim::Op::malloc, object_of(caller)).error != 0;
}

bool refused(const void* caller) {
  if (!g_watched || sim::g_device == nullptr || sim::InSimulator::now()) {
    return false;
  }
  const sim::InSimulator in_simulator;
  ++g_allocations;
  ++sim::g_device->state().counts.at(static_cast<std::size_t>(sim::Op::malloc));
  if (!struck(caller)) {
    return false;
  }
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
  if (g_malloc == nullptr) {
    g_malloc = find<Malloc>(__interceptor_malloc, "malloc");
  }
  return refused(__builtin_return_address(0)) ? nullptr : g_malloc(size);
}

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count,
                                                               std::size_t size) noexcept {
  if (g_calloc == nullptr) {
    g_calloc = find<Calloc>(__interceptor_calloc, "calloc");
  }
  return refused(__builtin_return_address(0)) ? nullptr : g_calloc(count, size);
}

extern "C" __attribute__((visibility("default"))) void* realloc(void* block,
                                                                std::size_t size) noexcept {
  if (g_realloc == nullptr) {
    g_realloc = find<Realloc>(__interceptor_realloc, "realloc");
  }
  return refused(__builtin_return_address(0)) ? nullptr : g_realloc(block, size);
}

namespace sim {

AllocationWatch::AllocationWatch() {
  g_allocations = 0;
  g_watched = true;
}

AllocationWatch::~AllocationWatch() {
  g_watched = false;
}

std::uint64_t AllocationWatch::allocations() const {
  return g_allocations;
}

}  // namespace sim
