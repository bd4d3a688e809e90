// SPDX-License-Identifier: Apache-2.0
//
// Mutations for targets whose input is a package. Most of them end with digests that hold again:
// a device looks at nothing behind the first digest that does not.
#include <openssl/sha.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>

#include "upi_upgrade_package.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned int seed);

namespace {

constexpr size_t kHeadSize = sizeof(upgrade_package_head_info_t);
constexpr size_t kNumbersOfHead = 8;    // behind the magic word
constexpr size_t kCircumstances = 253;  // three bytes that choose the device, in fuzz_package.cpp

class Mutation {
 public:
  Mutation(uint8_t* data, size_t size, size_t max_size, unsigned int seed)
      : data_(data), size_(size), max_size_(max_size), random_(seed) {}

  size_t run() {
    switch (size_ < kHeadSize ? 0 : below(6)) {
      case 1:
        change_head();
        break;
      case 2:
      case 3:
        change_entry();
        break;
      case 4:
        change_payload();
        break;
      default:
        size_ = LLVMFuzzerMutate(data_, size_, max_size_);
    }
    if (size_ >= kHeadSize && below(8) != 0) {
      repair();
    }
    return size_;
  }

 private:
  size_t below(size_t limit) { return random_() % limit; }

  int32_t word_at(size_t offset) const {
    int32_t value = 0;
    std::memcpy(&value, data_ + offset, sizeof(value));
    return value;
  }
  void put_word(size_t offset, int32_t value) { std::memcpy(data_ + offset, &value, sizeof value); }

  // A number at one of the places where something begins or ends.
  int32_t interesting() {
    const auto size = static_cast<int32_t>(size_);
    const int32_t values[] = {0,         1,    2,        3,        -1,         49,   50,
                              256,       512,  1024,     1025,     6144,       6145, INT32_MAX,
                              INT32_MIN, size, size - 1, size + 1, size - 256, 4096, INT32_MAX - 1};
    return values[below(sizeof(values) / sizeof(values[0]))];
  }

  size_t entries(size_t count_at, size_t first, size_t entry_size) const {
    const auto wanted = static_cast<size_t>(std::clamp(word_at(count_at), 0, 49));
    return size_ < first ? 0 : std::min(wanted, (size_ - first) / entry_size);
  }
  size_t partitions() const {
    return entries(offsetof(upgrade_package_head_info_t, partition_num), kHeadSize,
                   sizeof(partition_head_info_t));
  }
  size_t extras_at() const { return kHeadSize + partitions() * sizeof(partition_head_info_t); }
  size_t extras() const {
    return entries(offsetof(upgrade_package_head_info_t, extra_num), extras_at(),
                   sizeof(extra_head_info_t));
  }

  void change_head() {
    if (below(4) == 0) {
      data_[kCircumstances + below(3)] = static_cast<uint8_t>(random_());
    } else {
      put_word(4 + 4 * below(kNumbersOfHead), interesting());
    }
  }

  void change_entry() {
    const size_t count = partitions();
    if (count == 0) {
      return change_head();
    }
    const size_t entry = kHeadSize + below(count) * sizeof(partition_head_info_t);
    if (below(3) == 0) {
      return put_name(entry);
    }
    put_word(entry + 32 + 4 * below(4), below(2) == 0 ? interesting() : near_the_payload());
  }
  // A place behind the tables, or a length that fits there.
  int32_t near_the_payload() {
    const size_t tables_end = std::min(size_, extras_at());
    return static_cast<int32_t>(below(2) == 0 ? tables_end + below(size_ - tables_end + 1)
                                              : below(size_ - tables_end + 1));
  }
  void put_name(size_t entry) {
    constexpr const char* kNames[] = {"kernel",   "rootfs", "oemdata", "kernel2",
                                      "oemdata2", "flags",  "",        "%s%n%1000d"};
    const char* name = kNames[below(sizeof(kNames) / sizeof(kNames[0]))];
    const int filler = below(4) == 0 ? 'x' : 0;
    std::memset(data_ + entry, filler, 32);
    std::memcpy(data_ + entry, name, std::strlen(name));
  }

  void change_payload() {
    const size_t begin = std::min(size_, extras_at());
    size_ = begin + LLVMFuzzerMutate(data_ + begin, size_ - begin, max_size_ - begin);
  }

  void put_digest(size_t at, size_t offset, size_t len) { SHA512(data_ + offset, len, data_ + at); }
  void repair_entry(size_t entry, size_t digest_at) {
    const int32_t len = word_at(entry + 32);
    const int32_t offset = word_at(entry + 36);
    if (len >= 0 && offset >= 0 && static_cast<size_t>(offset) <= size_ &&
        static_cast<size_t>(len) <= size_ - static_cast<size_t>(offset)) {
      put_digest(entry + digest_at, static_cast<size_t>(offset), static_cast<size_t>(len));
    }
  }
  void repair() {
    std::memcpy(data_, "FOTA", 4);
    for (size_t i = 0; i < partitions(); ++i) {
      repair_entry(kHeadSize + i * sizeof(partition_head_info_t),
                   offsetof(partition_head_info_t, hash));
    }
    for (size_t i = 0; i < extras(); ++i) {
      repair_entry(extras_at() + i * sizeof(extra_head_info_t), offsetof(extra_head_info_t, hash));
    }
    put_digest(offsetof(upgrade_package_head_info_t, hash), kHeadSize, size_ - kHeadSize);
  }

  uint8_t* data_;
  size_t size_;
  size_t max_size_;
  std::minstd_rand random_;
};

}  // namespace

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned int seed) {
  return Mutation(data, size, max_size, seed).run();
}
