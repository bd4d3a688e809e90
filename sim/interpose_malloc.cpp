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
__attribute__((weak)) void __interceptor_free(void* block);
}

namespace {

using Malloc = void* (*)(std::size_t);
using Calloc = void* (*)(std::size_t, std::size_t);
using Realloc = void* (*)(void*, std::size_t);
using Free = void (*)(void*);

// No function-local static: its guard may allocate, and this is called before anything else is.
Malloc g_malloc = nullptr;
Calloc g_calloc = nullptr;
Realloc g_realloc = nullptr;
Free g_free = nullptr;

bool g_watched = false;
std::uint64_t g_allocations = 0;
const char* g_holder = nullptr;
std::int64_t g_held = 0;

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

// Counts a block that the watched object file got or gave back.
void* held(void* block, const void* caller, int change) {
  if (block != nullptr && g_watched && g_holder != nullptr && !sim::InSimulator::now() &&
      object_of(caller).find(g_holder) != std::string_view::npos) {
    g_held += change;
  }
  return block;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
  if (g_malloc == nullptr) {
    g_malloc = find<Malloc>(__interceptor_malloc, "malloc");
  }
  const void* const caller = __builtin_return_address(0);
  return refused(caller) ? nullptr : held(g_malloc(size), caller, 1);
}

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count,
                                                               std::size_t size) noexcept {
  if (g_calloc == nullptr) {
    g_calloc = find<Calloc>(__interceptor_calloc, "calloc");
  }
  const void* const caller = __builtin_return_address(0);
  return refused(caller) ? nullptr : held(g_calloc(count, size), caller, 1);
}

extern "C" __attribute__((visibility("default"))) void* realloc(void* block,
                                                                std::size_t size) noexcept {
  if (g_realloc == nullptr) {
    g_realloc = find<Realloc>(__interceptor_realloc, "realloc");
  }
  return refused(__builtin_return_address(0)) ? nullptr : g_realloc(block, size);
}

extern "C" __attribute__((visibility("default"))) void free(void* block) noexcept {
  if (g_free == nullptr) {
    g_free = find<Free>(__interceptor_free, "free");
  }
  g_free(held(block, __builtin_return_address(0), -1));
}

namespace sim {

AllocationWatch::AllocationWatch(const char* holder) {
  g_allocations = 0;
  g_holder = holder;
  g_held = 0;
  g_watched = true;
}

AllocationWatch::~AllocationWatch() {
  g_watched = false;
}

std::uint64_t AllocationWatch::allocations() const {
  return g_allocations;
}

std::int64_t AllocationWatch::held() const {
  return g_held;
}

}  // namespace sim
