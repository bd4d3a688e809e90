// SPDX-License-Identifier: Apache-2.0
#include "tool_test.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLogName = "upi_ab.log";

std::string content_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<char*> pointers_to(const Arguments& command) {
  std::vector<char*> pointers;
  for (const std::string& argument : command) {
    pointers.push_back(const_cast<char*>(argument.c_str()));
  }
  pointers.push_back(nullptr);
  return pointers;
}

[[noreturn]] void become(const Arguments& command) {
  execv(command.front().c_str(), pointers_to(command).data());
  _exit(127);
}

int status_of(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void redirect(int descriptor, const fs::path& file, int flags) {
  const int fd = open(file.c_str(), flags, 0600);
  if (fd < 0 || dup2(fd, descriptor) < 0) {
    _exit(126);
  }
  close(fd);
}

Ended run(const Arguments& command, const std::string& input, const fs::path& folder) {
  std::ofstream(folder / "in") << input;
  const pid_t child = fork();
  if (child == 0) {
    redirect(STDIN_FILENO, folder / "in", O_RDONLY);
    redirect(STDOUT_FILENO, folder / "out", O_WRONLY | O_CREAT | O_TRUNC);
    redirect(STDERR_FILENO, folder / "err", O_WRONLY | O_CREAT | O_TRUNC);
    become(command);
  }
  Ended run;
  run.status = status_of(child);
  run.out = content_of(folder / "out");
  run.err = content_of(folder / "err");
  return run;
}

// Everything that comes out of a terminal until its last program has ended.
std::string drain(int terminal) {
  std::string text;
  char chunk[4096];
  for (ssize_t count = read(terminal, chunk, sizeof(chunk)); count > 0;
       count = read(terminal, chunk, sizeof(chunk))) {
    text.append(chunk, static_cast<std::size_t>(count));
  }
  return text;
}

Ended run_on_terminal(const Arguments& command, const std::string& typed) {
  int terminal = -1;
  winsize size = {};
  size.ws_col = 100;
  size.ws_row = 24;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    become(command);
  }
  Ended run;
  const bool sent =
      write(terminal, typed.data(), typed.size()) == static_cast<ssize_t>(typed.size());
  run.out = drain(terminal);
  close(terminal);
  run.status = status_of(child);
  return sent ? run : Ended{};
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

Arguments on_device(const sim::Device& device, const Arguments& command) {
  Arguments all = {SIM_TOOL, "run", device.folder().string(), "--"};
  all.insert(all.end(), command.begin(), command.end());
  return all;
}

Arguments zozale_command(const Arguments& arguments) {
  Arguments command = {DEVICE_TOOL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace

bool Ended::says(const std::string& text) const {
  return contains(out, text);
}

bool Ended::complains(const std::string& text) const {
  return contains(err, text);
}

nlohmann::json Ended::json() const {
  auto document = nlohmann::json::parse(out, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << *this;
  return document.is_discarded() ? nlohmann::json::object() : document;
}

std::ostream& operator<<(std::ostream& out, const Ended& run) {
  return out << "status " << run.status << "\n--- out\n" << run.out << "--- err\n" << run.err;
}

ToolTest::ToolTest() {
  use(sim::test_layout());
}

void ToolTest::use(const sim::Layout& layout) {
  const fs::path folder = folder_.path() / ("device" + std::to_string(devices_++));
  device_ = std::make_unique<sim::Device>(sim::Device::create(folder, layout));
  write_flags();
  std::uint32_t seed = 5000;
  for (const char* name : {"kernel", "kernel2", "rootfs", "rootfs2", "oemdata", "oemdata2"}) {
    fill_partition(name, seed++);
  }
}

// Three blocks and a half, so that the content has an end before the partition's.
void ToolTest::fill_partition(const std::string& name, std::uint32_t seed) {
  if (device_->find_partition(name)) {
    sim::Partition partition = device_->partition(name);
    partition.flash(support::pattern(partition.block_size() * 7 / 2, seed));
  }
}

Ended ToolTest::run_on_device(const Arguments& command, const std::string& input) {
  return run(on_device(device(), command), input, folder_.path());
}

Ended ToolTest::zozale(const Arguments& arguments, const std::string& input) {
  return run_on_device(zozale_command(arguments), input);
}

Ended ToolTest::zozale_on_terminal(const Arguments& arguments, const std::string& typed) {
  return run_on_terminal(on_device(device(), zozale_command(arguments)), typed);
}

void ToolTest::put_package(const support::PackageFile& package) {
  put_package(package.bytes());
}

void ToolTest::put_package(const sim::Bytes& bytes) {
  device().write_file(support::kPackagePath, bytes);
}

void ToolTest::write_flags(const std::function<void(sim::BootRecord&)>& change) {
  sim::BootRecord record = sim::factory_record();
  if (change) {
    change(record);
  }
  sim::write_records(device(), record);
}

void ToolTest::copy_running_system() {
  for (const char* name : {"kernel", "rootfs", "oemdata"}) {
    const sim::Bytes held = device().partition(running_name(name)).good();
    const std::size_t used = device().partition(running_name(name)).block_size() * 7 / 2;
    device()
        .partition(target_name(name))
        .flash(sim::Bytes(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(used)));
  }
}

std::string ToolTest::target_name(const std::string& name) const {
  return device_->running() == sim::System::a ? name + "2" : name;
}

std::string ToolTest::running_name(const std::string& name) const {
  return device_->running() == sim::System::a ? name : name + "2";
}

std::uint64_t ToolTest::erases() const {
  std::uint64_t sum = 0;
  for (std::uint32_t i = 0; i < device_->partition_count(); ++i) {
    sum += device_->partition(i).total_erases();
  }
  return sum;
}

std::uint64_t ToolTest::erases_of_systems() {
  return erases() - device().partition("flags").total_erases();
}

sim::BootRecord ToolTest::record() {
  const sim::RecordCopies copies = sim::read_records(device());
  const sim::RecordCopy* chosen = copies.chosen();
  EXPECT_NE(chosen, nullptr) << "no valid record";
  return chosen != nullptr ? chosen->record : sim::BootRecord();
}

DeviceContent ToolTest::content(bool with_log) {
  DeviceContent content;
  for (std::uint32_t i = 0; i < device().partition_count(); ++i) {
    const sim::Bytes raw = device().partition(i).raw();
    content.flash.insert(content.flash.end(), raw.begin(), raw.end());
  }
  content.store = device().store().all();
  for (const auto& entry : fs::recursive_directory_iterator(device().folder() / "root")) {
    const std::string name = entry.path().string();
    if (with_log || !contains(name, kLogName)) {
      content.files.emplace_back(name, entry.is_regular_file() ? content_of(entry.path()) : "");
    }
  }
  std::sort(content.files.begin(), content.files.end());
  return content;
}

Ended ToolTest::zozale_untouched(const Arguments& arguments) {
  const DeviceContent before = content();
  Ended run = zozale(arguments);
  EXPECT_TRUE(before == content()) << "the device was changed by a command that only looks\n"
                                   << run;
  return run;
}

std::string system_name(const ::testing::TestParamInfo<sim::System>& info) {
  return std::string(1, sim::letter(info.param));
}

}  // namespace tool
