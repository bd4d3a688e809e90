// SPDX-License-Identifier: Apache-2.0
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "sim/device_state.h"
#include "sim/process.h"

// Only in the library that is preloaded: puts the process on its device.
extern "C" __attribute__((weak)) void zozale_sim_start();

namespace sim {
namespace {

// A path being put together, always within PATH_MAX.
class PathText {
 public:
  explicit PathText(char (&out)[PATH_MAX]) : out_(out) { out_[0] = '\0'; }

  void add(std::string_view part) {
    if (length_ + part.size() >= PATH_MAX) {
      too_long_ = true;
      return;
    }
    std::memcpy(out_ + length_, part.data(), part.size());
    length_ += part.size();
    out_[length_] = '\0';
  }
  void drop_last() {
    while (length_ > 0 && out_[--length_] != '/') {
    }
    out_[length_] = '\0';
  }
  // Walks a path: "." and empty parts vanish, ".." takes the part before it away.
  void walk(std::string_view path) {
    while (!path.empty()) {
      const std::size_t end = path.find('/');
      const std::string_view part = path.substr(0, end);
      path = end == std::string_view::npos ? std::string_view() : path.substr(end + 1);
      if (part == "..") {
        drop_last();
      } else if (!part.empty() && part != ".") {
        add("/");
        add(part);
      }
    }
  }
  std::string_view view() const { return {out_, length_}; }
  bool too_long() const { return too_long_; }

 private:
  char* out_;
  std::size_t length_ = 0;
  bool too_long_ = false;
};

bool starts_with(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool inside(std::string_view path, std::string_view folder) {
  return starts_with(path, folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// Not a std::string with a constructor to run: paths are looked at before constructors ran.
char g_root[PATH_MAX];
std::size_t g_root_length = 0;

std::string_view root() {
  return {g_root, g_root_length};
}

// Reads the number behind a node's prefix; false when there is none.
bool parse_number(std::string_view& text, std::uint32_t& number) {
  std::size_t digits = 0;
  number = 0;
  while (digits < text.size() && digits < 6 && text[digits] >= '0' && text[digits] <= '9') {
    number = number * 10 + static_cast<std::uint32_t>(text[digits] - '0');
    ++digits;
  }
  text.remove_prefix(digits);
  return digits > 0;
}

void match_node(std::string_view path, MappedPath& out) {
  struct Family {
    std::string_view prefix;
    PathKind kind;
  };
  constexpr Family kFamilies[] = {{"/dev/mtdblock", PathKind::block},
                                  {"/dev/zftl", PathKind::block},
                                  {"/dev/mtd", PathKind::mtd}};
  for (const Family& family : kFamilies) {
    if (!starts_with(path, family.prefix)) {
      continue;
    }
    std::string_view rest = path.substr(family.prefix.size());
    out.kind = parse_number(rest, out.number) ? family.kind : PathKind::nothing;
    out.read_only = family.kind == PathKind::mtd && rest == "ro";
    if ((!rest.empty() && !out.read_only) || out.number >= g_device->partition_count()) {
      out.kind = PathKind::nothing;
    }
    return;
  }
}

bool in_device_folder(std::string_view path) {
  return inside(path, "/cache") || inside(path, "/etc_ro");
}

bool is_file(std::string_view path) {
  return path == "/proc/mtd" || path == "/proc/cmdline" || in_device_folder(path);
}

// A relative path counts from the working directory, which may lie inside the device's folder.
void absolute(const char* path, PathText& text) {
  if (path[0] != '/') {
    char here[PATH_MAX];
    if (syscall(SYS_getcwd, here, sizeof here) > 0) {
      text.walk(unmapped(here));
    }
  }
  text.walk(path);
}

void match_file(const char* original, MappedPath& out) {
  if (!is_file(out.path)) {
    return;
  }
  PathText host(out.host);
  host.add(root());
  host.add(out.path);
  const std::size_t length = std::strlen(original);
  if (original[length - 1] == '/') {
    host.add("/");
  }
  out.kind = host.too_long() ? PathKind::foreign : PathKind::file;
}

}  // namespace

void set_root(const Device* device) {
  g_root_length = 0;
  if (device != nullptr) {
    const std::string root = (device->folder() / "root").string();
    g_root_length = root.copy(g_root, PATH_MAX - 1);
  }
}

MappedPath::MappedPath(const char* original) : passed(original) {
  if (zozale_sim_start != nullptr) {
    zozale_sim_start();
  }
  path[0] = '\0';
  host[0] = '\0';
  if (g_device == nullptr || original == nullptr || original[0] == '\0') {
    return;
  }
  const Errno keep;
  PathText text(path);
  absolute(original, text);
  if (!text.too_long()) {
    match_node(text.view(), *this);
  }
  if (kind == PathKind::foreign && !text.too_long()) {
    match_file(original, *this);
  }
  // "/cache/.." leads out of the device by way of a folder that only the device has.
  if (foreign() && in_device_folder(original) && !text.too_long()) {
    passed = path[0] == '\0' ? "/" : path;
  }
  keep.give(0);
}

std::string_view MappedPath::partition() const {
  if (kind != PathKind::mtd && kind != PathKind::block) {
    return {};
  }
  return g_device->state().partitions.at(number).name;
}

bool is_empty_path(const char* path) {
  return path != nullptr && path[0] == '\0';
}

std::string_view unmapped(std::string_view host) {
  const std::string_view folder = root();
  if (!folder.empty() && inside(host, folder) && host.size() > folder.size()) {
    return host.substr(folder.size());
  }
  return host;
}

}  // namespace sim
