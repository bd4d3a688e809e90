// SPDX-License-Identifier: Apache-2.0
#include "heap_meter.h"

#include <malloc.h>

#include <cerrno>
#include <cstdlib>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

std::size_t g_held;
std::size_t g_peak;

// The C library keeps one word of its own before each block.
std::size_t size_of(void* block) {
  return block == nullptr ? 0 : malloc_usable_size(block) + sizeof(std::size_t);
}

void* took(void* block) {
  g_held += size_of(block);
  g_peak = g_held > g_peak ? g_held : g_peak;
  return block;
}

}  // namespace

extern "C" void* malloc(std::size_t size) noexcept {
  return took(__libc_malloc(size));
}
extern "C" void* calloc(std::size_t count, std::size_t size) noexcept {
  return took(__libc_calloc(count, size));
}
extern "C" void* realloc(void* block, std::size_t size) noexcept {
  const std::size_t before = size_of(block);
  void* moved = __libc_realloc(block, size);
  if (moved != nullptr || size == 0) {
    g_held -= before;
  }
  return took(moved);
}
extern "C" void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return took(__libc_memalign(alignment, size));
}
extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return took(__libc_memalign(alignment, size));
}
extern "C" int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  *block = took(__libc_memalign(alignment, size));
  return *block == nullptr ? ENOMEM : 0;
}
extern "C" void free(void* block) noexcept {
  g_held -= size_of(block);
  __libc_free(block);
}

std::size_t heap_held() {
  return g_held;
}
std::size_t heap_peak() {
  return g_peak;
}
void reset_heap_peak() {
  g_peak = g_held;
}
