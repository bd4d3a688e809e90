// SPDX-License-Identifier: Apache-2.0
#include "tests/reference/library.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern "C" int sc_cfg_set(const char* name, const char* value);
extern "C" int sc_cfg_save();

namespace reference {

std::string mtd_name(const std::string& name, int system) {
  return system == 2 ? name + "2" : name;
}

int code_of(int system) {
  return system == 2 ? 0x986B : 0x875A;
}

bool same_digest(const Bytes& a, const Bytes& b) {
  for (std::size_t i = 0; i < 64; ++i) {
    if (a[i] != b[i] || a[i] == 0) {
      return a[i] == b[i];
    }
  }
  return true;
}

void Library::say(const std::string& function, const std::string& message) {
  log_.push_back({function, message});
}

bool Library::fail(const std::string& function, const std::string& message) {
  say(function, message);
  return false;
}

void Library::begin(const std::string& function) {
  say(function, function + " func begin!");
}

void Library::end(const std::string& function) {
  say(function, function + " func end!");
}

std::string Library::error() {
  const int number = errno;
  return std::to_string(number) + "[" + std::strerror(number) + "]";
}

bool Library::allocate() {
  if (++allocations_ != failing_) {
    return true;
  }
  errno = ENOMEM;
  return false;
}

int Library::open_shown(const std::string& path, int flags) {
  const int fd = open(path.c_str(), flags);
  if (fd >= 0) {
    shown_[fd] = next_to_show_ < to_show_.size() ? to_show_[next_to_show_] : -1;
    ++next_to_show_;
  }
  return fd;
}

std::string Library::shown(int fd) const {
  const auto found = shown_.find(fd);
  return std::to_string(found == shown_.end() ? fd : found->second);
}

int Library::readn(int fd, void* buffer, std::uint32_t count) {
  say("upi_readn", "Read data from file by fd!");
  std::uint32_t done = 0;
  while (done < count) {
    const ssize_t got = read(fd, static_cast<char*>(buffer) + done, count - done);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      say("upi_readn", "Read data from file error, error: " + error());
      return -1;
    }
    if (got == 0) {
      say("upi_readn", "Read data to the file end!");
      return static_cast<int>(done);
    }
    done += static_cast<std::uint32_t>(got);
  }
  return static_cast<int>(count);
}

bool Library::create_folder(const std::string& path) {
  const auto problem = [this](int result) {
    return fail("upi_create_folder", "Create folder problem value: " + std::to_string(result) +
                                         ", errno: " + std::to_string(errno));
  };
  if (mkdir(path.c_str(), 0777) == 0 || errno == EEXIST) {
    return true;
  }
  if (errno != ENOENT) {
    return problem(-1);
  }
  if (const int result = create_ancestors(path)) {
    return problem(result);
  }
  return mkdir(path.c_str(), 0777) == 0 || problem(-1);
}

int Library::create_ancestors(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  if (mkdir(folder.c_str(), 0777) == 0 || errno == EEXIST) {
    return 0;
  }
  if (errno == ENOENT) {
    const int result = create_ancestors(folder);
    return result != 0 ? result : mkdir(folder.c_str(), 0777);
  }
  say("RecursiveFolderCreater", std::string("mkdir ret:-1, error:") + std::strerror(errno));
  return -1;
}

void Library::store(const std::string& key, int value) {
  sc_cfg_set(key.c_str(), std::to_string(value).c_str());
  sc_cfg_save();
}

// 1, 2, or -1 when the command line does not tell.
int Library::running_system() {
  const char* const self = "upi_get_current_system";
  begin(self);
  std::FILE* file = std::fopen("/proc/cmdline", "r");
  if (file == nullptr) {
    say(self, std::string("Open file /proc/cmdline error, error:") + std::strerror(errno));
    return -1;
  }
  int system = -1;
  while (system == -1 && std::feof(file) == 0) {
    char line[1024] = {};
    if (std::fgets(line, sizeof line, file) == nullptr) {
      say(self, std::string("get info from /proc/cmdline error:") + std::strerror(errno));
      break;
    }
    say(self, std::string("buff:") + line);
    for (char* token = std::strtok(line, " "); token != nullptr && system == -1;
         token = std::strtok(nullptr, " ")) {
      const std::string parameter = token;
      say(self, "para:" + parameter);
      system = parameter.rfind("system=system_a", 0) == 0   ? 1
               : parameter.rfind("system=system_b", 0) == 0 ? 2
                                                            : -1;
    }
  }
  std::fclose(file);
  end(self);
  return system;
}

int Library::current_system() {
  const int system = running_system();
  return system == -1 ? -1 : code_of(system);
}

}  // namespace reference
