// SPDX-License-Identifier: Apache-2.0
#include "twin_device.h"

#include <algorithm>

#include "sim/device_state.h"
#include "tests/support/package_file.h"

namespace cuts {

Image make_image(const std::string& name, std::size_t length, std::uint32_t seed) {
  sim::Bytes data = support::pattern(length, seed);
  sim::Bytes digest = support::sha512(data);
  return {name, std::move(data), std::move(digest)};
}

TwinDevice::TwinDevice(const sim::Layout& layout)
    : device_(sim::Device::create(folder_.path() / "device", layout, sim::Storage::memory)) {
  sim::attach(device_);
}

TwinDevice::~TwinDevice() {
  sim::detach();
}

sim::Partition TwinDevice::partition_of(sim::System system, const std::string& name) {
  return device_.partition(system == sim::System::a ? name : name + "2");
}

void TwinDevice::flash(sim::System system, const Release& release) {
  for (const Image& image : release) {
    partition_of(system, image.name).flash(image.data);
  }
}

void TwinDevice::put_package(const Release& release) {
  support::PackageFile package;
  for (const Image& image : release) {
    package.partitions.push_back({image.name, image.data});
  }
  device_.write_file(support::kPackagePath, package.bytes());
}

sim::Bytes TwinDevice::read(const sim::Partition& partition, std::size_t length) {
  const std::uint64_t first = device_.state().partitions.at(partition.number()).first_block;
  sim::Bytes bytes(length);
  std::size_t done = 0;
  for (std::uint32_t block = 0; block < partition.blocks() && done < length; ++block) {
    if (!partition.is_bad(block)) {
      const std::size_t part = std::min<std::size_t>(length - done, partition.block_size());
      device_.nand().read((first + block) * partition.block_size(), bytes.data() + done, part);
      done += part;
    }
  }
  bytes.resize(done);
  return bytes;
}

bool TwinDevice::holds(sim::System system, const Image& image) {
  const sim::Bytes found = read(partition_of(system, image.name), image.data.size());
  return found.size() == image.data.size() && support::sha512(found) == image.digest;
}

bool TwinDevice::holds(sim::System system, const Release& release) {
  return std::all_of(release.begin(), release.end(),
                     [&](const Image& image) { return holds(system, image); });
}

int TwinDevice::stored(const std::string& name) const {
  constexpr int kNotSaved = -1000;
  const auto value = device_.store().get(name);
  return value ? std::stoi(*value) : kNotSaved;
}

}  // namespace cuts
