// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_device.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "fuzz/require.h"
#include "sim/attach.h"

namespace fuzz {
namespace {

constexpr const char* kLogPath = "/cache/ovu_fota_ab/upi_ab.log";

std::filesystem::path new_folder() {
  constexpr const char* kMemory = "/dev/shm";
  const auto where = access(kMemory, W_OK) == 0 ? std::filesystem::path(kMemory)
                                                : std::filesystem::temp_directory_path();
  std::string name = (where / "zozale-fuzz-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error(name + ": cannot be made");
  }
  return name;
}

sim::Layout small_layout() {
  return sim::test_layout(512, 2, 6);
}

void silence_stdout() {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    throw std::runtime_error("standard output cannot be silenced");
  }
}

void fill(sim::Partition partition) {
  std::string content(static_cast<std::size_t>(partition.size()), '\0');
  std::uint32_t state = partition.number() + 1;
  for (char& byte : content) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24U);
  }
  partition.flash(content);
}

}  // namespace

FuzzDevice& FuzzDevice::get() {
  static FuzzDevice device;
  return device;
}

FuzzDevice::FuzzDevice()
    : folder_(new_folder()),
      device_(sim::Device::create(folder_ / "device", small_layout(), sim::Storage::memory)) {
  silence_stdout();
  for (std::uint32_t number = 0; number < device_.partition_count(); ++number) {
    if (device_.partition(number).name() != "flags") {
      fill(device_.partition(number));
    }
  }
  sim::write_records(device_, sim::factory_record());
  device_.clear_counts();
  made_ = device_.snapshot();
  sim::attach(device_);
  put(kPackagePath, {});
}

FuzzDevice::~FuzzDevice() {
  sim::detach();
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void FuzzDevice::reset() {
  device_.nand().restore(made_.chip);
  for (std::uint32_t number = 0; number < device_.partition_count(); ++number) {
    device_.partition(number).set_write_protected(true);
    device_.partition(number).set_reported_info(std::nullopt);
  }
  device_.set_power(sim::Power::on);
  device_.clear_counts();
  store_.clear();
}

void FuzzDevice::put(std::string_view path, const void* bytes, std::size_t size) {
  const std::string host = device_.host_path(path).string();
  std::filesystem::path folder = std::filesystem::path(host).parent_path();
  int fd = open(host.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    std::filesystem::create_directories(folder);
    fd = open(host.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  }
  const bool written = write(fd, bytes, size) == static_cast<ssize_t>(size);
  close(fd);
  if (!written) {
    throw std::runtime_error(host + ": cannot be written");
  }
}

void FuzzDevice::run(sim::System system) {
  if (system != running_) {
    device_.set_running(system);
    running_ = system;
  }
}

void FuzzDevice::close_package() {
  for (const sim::OpenDescriptor& open : sim::open_descriptors()) {
    if (open.path == kPackagePath && !open.stream) {
      close(open.fd);
    } else {
      REQUIRE(open.path == kLogPath);
    }
  }
}

void set_bad_blocks(sim::Partition partition, unsigned bits) {
  for (unsigned block = 0; block < partition.blocks(); ++block) {
    partition.set_bad(block, ((bits >> block) & 1U) != 0);
  }
}

bool lie_about(sim::Partition partition, unsigned which) {
  const sim::MtdInfo truth = partition.reported_info();
  const auto [size, block, page, oob] = truth;
  const std::array<sim::MtdInfo, 8> lies = {{truth,
                                             {0, block, page, oob},
                                             {size, 0, page, oob},
                                             {size, block, 0, oob},
                                             {size, 256, page, oob},
                                             {block - 1, block, page, oob},
                                             {64, 1, page, oob},
                                             {2 * size, 2 * block, page, oob}}};
  partition.set_reported_info(lies.at(which));
  return which != 0;
}

}  // namespace fuzz

// --- The platform's configuration store, in memory. ---------------------------------------------

extern "C" {
int sc_cfg_get(const char* name, char* value, int size);
int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save(void);
}

int sc_cfg_get(const char* name, char* value, int size) {
  const auto& store = fuzz::FuzzDevice::get().store();
  const auto found = store.find(name);
  if (found == store.end() || size <= 0) {
    return -1;
  }
  const std::size_t copied = std::min(found->second.size() + 1, static_cast<std::size_t>(size));
  std::memcpy(value, found->second.c_str(), copied);
  return 0;
}

int sc_cfg_set(const char* name, const char* value) {
  fuzz::FuzzDevice::get().store().insert_or_assign(name, value);
  return 0;
}

int sc_cfg_save(void) {
  return 0;
}
