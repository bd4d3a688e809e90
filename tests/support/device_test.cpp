// SPDX-License-Identifier: Apache-2.0
#include "tests/support/device_test.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <stdexcept>

// The library keeps its log stream open over many calls; each device is to get a log of its own.
extern "C" __attribute__((weak)) void upi_close_logfile();

namespace support {
namespace {

constexpr const char* kLogPath = "/cache/ovu_fota_ab/upi_ab.log";

void close_log() {
  if (upi_close_logfile != nullptr) {
    static_cast<void>(printed([] { upi_close_logfile(); }));
  }
}

void silence_stdout() {
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, STDOUT_FILENO);
  close(null);
}

// In memory where that is possible: each test makes and removes a dozen files.
std::filesystem::path fast_folder() {
  constexpr const char* kMemory = "/dev/shm";
  const bool chosen = std::getenv("TMPDIR") != nullptr;
  return !chosen && access(kMemory, W_OK) == 0 ? kMemory : std::filesystem::temp_directory_path();
}

[[noreturn]] void run_child(const std::function<int()>& body) {
  silence_stdout();
  int status = 1;
  try {
    status = body();
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "child: %s\n", error.what()));
  }
  _exit(status);
}

}  // namespace

TempFolder::TempFolder() {
  std::string name = (fast_folder() / "zozale-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error(name + ": cannot be made");
  }
  path_ = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ChildEnd in_child(const std::function<int()>& body) {
  static_cast<void>(std::fflush(nullptr));
  const pid_t child = fork();
  if (child < 0) {
    throw std::runtime_error("fork failed");
  }
  if (child == 0) {
    run_child(body);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ChildEnd end;
  end.exited = WIFEXITED(status);
  end.status = end.exited ? WEXITSTATUS(status) : WTERMSIG(status);
  end.power_cut = end.exited && end.status == sim::kPowerCutStatus;
  end.exited = end.exited && !end.power_cut;
  return end;
}

DeviceTest::DeviceTest() {
  use(sim::test_layout());
}

DeviceTest::~DeviceTest() {
  close_log();
  sim::detach();
}

void DeviceTest::use(const sim::Layout& layout, sim::Storage storage) {
  close_log();
  sim::detach();
  const auto folder = folder_.path() / ("device" + std::to_string(devices_++));
  device_ = std::make_unique<sim::Device>(sim::Device::create(folder, layout, storage));
  sim::attach(*device_);
}

void DeviceTest::TearDown() {
  // The log's stream, and the descriptor below it when a fault may strike its transfers.
  std::set<bool> of_the_log;
  for (const sim::OpenDescriptor& open : sim::open_descriptors()) {
    const bool log = open.path == kLogPath && of_the_log.insert(open.stream).second;
    EXPECT_TRUE(!check_descriptors_ || log) << open.path << " was left open as " << open.fd;
  }
  if (check_rules_) {
    const sim::RuleBreaks& broken = device_->nand().rule_breaks();
    EXPECT_EQ(broken.page_programmed_twice, 0U);
    EXPECT_EQ(broken.page_out_of_order, 0U);
    EXPECT_EQ(broken.block_not_erased, 0U);
    EXPECT_EQ(broken.bad_block_programmed, 0U);
    EXPECT_EQ(broken.bad_block_erased, 0U);
    EXPECT_EQ(broken.bad_block_read, 0U);
  }
}

void DeviceTest::write_flags(const std::function<void(sim::BootRecord&)>& change) {
  sim::BootRecord record = sim::factory_record();
  if (change) {
    change(record);
  }
  sim::Partition flags = partition("flags");
  int copies = 0;
  for (std::uint32_t block = 0; block < flags.blocks() && copies < 2; ++block) {
    if (!flags.is_bad(block)) {
      sim::Bytes content(flags.block_size(), 0xFF);
      std::copy(record.bytes.begin(), record.bytes.end(), content.begin());
      flags.poke(std::uint64_t{block} * flags.block_size(), content);
      ++copies;
    }
  }
}

sim::Bytes pattern(std::size_t length, std::uint32_t seed) {
  sim::Bytes out(length);
  std::uint32_t state = seed * 2654435761U + 1;
  for (std::uint8_t& byte : out) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<std::uint8_t>(state >> 24U);
  }
  return out;
}

std::string text(const sim::Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}
sim::Bytes bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

}  // namespace support
