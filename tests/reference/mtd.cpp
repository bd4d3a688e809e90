// SPDX-License-Identifier: Apache-2.0
//
// Partitions: found, opened, erased, read, written.
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "tests/reference/library.h"
#include "tests/support/package_file.h"

namespace reference {
namespace {

using std::to_string;

struct Line {
  int number = 0;
  unsigned size = 0;
};

std::optional<Line> scan(std::FILE* table, const std::string& name) {
  char text[128];
  while (std::fgets(text, sizeof text, table) != nullptr) {
    Line line;
    unsigned erase_size = 0;
    char found[64] = {};
    const int values =
        std::sscanf(text, "mtd%d: %x %x \"%63[^\"]", &line.number, &line.size, &erase_size, found);
    if (values == 4 && name == found) {
      return line;
    }
  }
  return std::nullopt;
}

std::string hexadecimal(std::uint64_t number) {
  std::ostringstream out;
  out << "0x" << std::hex << number;
  return out.str();
}

int is_bad(int fd, std::uint64_t offset) {
  __kernel_loff_t at = static_cast<__kernel_loff_t>(offset);
  return ioctl(fd, MEMGETBADBLOCK, &at);
}

std::string number(std::uint32_t value) {
  return to_string(static_cast<std::int32_t>(value));
}

}  // namespace

std::optional<std::string> Library::find(const std::string& name, int type) {
  const char* const self = "mtd_find";
  const char* const stems[] = {"/dev/mtd", "/dev/zftl", "/dev/mtdblock"};
  std::FILE* table = std::fopen("/proc/mtd", "r");
  if (table == nullptr) {
    say(self, "open file /proc/mtd error:" + error());
    return std::nullopt;
  }
  say(self, "partition name:" + name + ", type:" + to_string(type));
  const std::optional<Line> line = scan(table, name);
  std::optional<std::string> path;
  if (!line) {
    say(self, "Get info from mtd error:" + error());
  } else {
    path = stems[type] + to_string(line->number);
    say(self, "o_mtd_path=[" + *path + "]");
  }
  std::fclose(table);
  return path;
}

bool Library::exists(int target, const std::string& name) {
  const char* const self = "is_partition_exist";
  begin(self);
  std::FILE* table = std::fopen("/proc/mtd", "r");
  if (table == nullptr) {
    return fail(self, "Fopen file error:" + error());
  }
  const std::string wanted = mtd_name(name, target);
  const std::optional<Line> line = scan(table, wanted);
  say(self, line ? "Mtd :[" + wanted + "] exist, size:" + number(line->size)
                 : "Get info from mtd error:" + error());
  std::fclose(table);
  if (line) {
    end(self);
  }
  return line.has_value();
}

bool Library::open_partition(const std::string& name, int type, Node& node) {
  const char* const self = "get_partition_mtd_info";
  const std::optional<std::string> path = find(name, type);
  if (!path) {
    return fail(self, "Partition [" + name + "] not found!");
  }
  const int fd = open_shown(*path, O_RDWR | O_DSYNC);
  if (fd < 0) {
    return fail(self, "Open flash error:" + error());
  }
  mtd_info_user info{};
  if (ioctl(fd, MEMGETINFO, &info) != 0) {
    say(self, "Get flash info error:" + error());
    if (close(fd) != 0) {
      say(self, std::string("Close file error, error:") + std::strerror(errno));
    }
    return false;
  }
  node = {fd, info.size, info.erasesize, info.writesize, info.oobsize};
  say(self, "Mtd info:");
  say(self, "Mtd Blocksize:" + number(node.block) + ":");
  say(self, "Mtd oobsize:" + number(node.oob) + ":");
  say(self, "Mtd pageperblock:" + number(node.block / node.page) + ":");
  say(self, "Mtd pagesize:" + number(node.page) + ":");
  say(self, "Mtd totalsize:" + number(node.size) + ":");
  say(self, "mtd partition file description:" + shown(fd));
  return true;
}

std::uint32_t Library::translate(const Node& node, std::uint32_t address) {
  const std::uint32_t offset = address % node.block;
  std::uint32_t good = 0;
  for (std::uint32_t i = 0; i < node.size / node.block; ++i) {
    const std::uint32_t physical = i * node.block;
    if (is_bad(node.fd, physical) != 0) {
      say("checkGoodAddress", "Partition file description:" + shown(node.fd) + ", BAD address [" +
                                  number(physical) + "], errno no:" + error());
      say("translateToGoodAddress", "Index:" + number(i) + ", bad block!");
    } else if (++good == address / node.block + 1) {
      return physical + offset;
    }
  }
  return node.size / node.block * node.block + offset;
}

int Library::read_image(const char* speaker, const Node& node, std::uint8_t* to,
                        std::uint32_t address, std::uint32_t size) {
  const std::uint32_t from = translate(node, address);
  if (from >= node.size || from + size > node.size) {
    say(speaker, "Start address (" + number(from) + ") or new start address (" +
                     number(from + size) + ") out of partition total size (" + number(node.size) +
                     ")!");
    return -2;
  }
  if (lseek(node.fd, static_cast<off_t>(from), SEEK_SET) < 0) {
    say(speaker, "Lseek error, error:" + error());
    return -1;
  }
  const ssize_t got = read(node.fd, to, size);
  if (got != static_cast<ssize_t>(size)) {
    say(speaker, "Read len (" + to_string(got) + ") < need len (" + number(size) + ")!");
    say(speaker, "VEMK_ReadImage fail");
    return -1;
  }
  return 0;
}

bool Library::write_block(const Node& node, std::uint32_t address, const std::uint8_t* data) {
  const char* const self = "VEMK_WriteBlock";
  const std::uint32_t at = translate(node, address);
  if (at >= node.size) {
    return fail(self, "Start address[" + number(at) + "] out of partition total size[" +
                          number(node.size) + "]!");
  }
  erase_info_user range{at, node.block};
  if (ioctl(node.fd, MEMERASE, &range) < 0) {
    return fail(self, "Ioctl [MEMERASE] error, error: " + error());
  }
  if (lseek(node.fd, static_cast<off_t>(at), SEEK_SET) < 0) {
    return fail(self, "Lseek error, error: " + error());
  }
  const ssize_t written = write(node.fd, data, node.block);
  if (written != static_cast<ssize_t>(node.block)) {
    return fail(self, "Write flash error, write len[" + to_string(written) + "] != blocksize[" +
                          number(node.block) + "], error: " + error());
  }
  return true;
}

bool Library::write_data(const Node& node, std::uint32_t offset, const Bytes& data) {
  const char* const self = "write_mtd_partition_data";
  begin(self);
  say(self, "Mtd fd:" + shown(node.fd));
  for (std::size_t done = 0; done < data.size(); done += node.block) {
    Bytes block(node.block, 0xFF);
    const std::size_t size = std::min<std::size_t>(node.block, data.size() - done);
    if (size < node.block && !allocate()) {
      return fail(self, "Malloc for the lash block fail!");
    }
    std::copy_n(data.data() + done, size, block.data());
    if (!write_block(node, offset + static_cast<std::uint32_t>(done), block.data())) {
      return fail(self, "Write data to mtd fail!");
    }
  }
  end(self);
  return true;
}

std::optional<bool> Library::erase_blocks(const char* speaker, const std::string& mtd_name,
                                          const std::string& shown_name) {
  const std::optional<std::string> path = find(mtd_name);
  if (!path) {
    say(speaker, "Mtd_find " + shown_name + " failed");
    return std::nullopt;
  }
  const int fd = open_shown(*path, O_RDWR | O_DSYNC);
  if (fd < 0) {
    say(speaker, "Open partition [" + shown_name + "] error, error:" + error());
    return std::nullopt;
  }
  mtd_info_user info{};
  const bool known = ioctl(fd, MEMGETINFO, &info) == 0;
  if (!known) {
    say(speaker, "Get partition [" + shown_name + "] info error:" + error());
  }
  for (std::uint64_t start = 0; known && start < info.size; start += info.erasesize) {
    erase_info_user64 range{start, info.erasesize};
    if (is_bad(fd, start) != 0) {
      say(speaker, "Mtd, not erasing bad block at " + hexadecimal(start));
    } else if (ioctl(fd, MEMERASE64, &range) < 0) {
      say(speaker, "Mtd, erasing failure at " + hexadecimal(start) + ", error:" + error());
    }
  }
  if (close(fd) != 0) {
    say(speaker, "Close partition [" + shown_name + "] fd fail, error:" + error());
  }
  return known;
}

bool Library::erase_partition(int target, const std::string& name) {
  const char* const self = "mtd_erase_partition";
  begin(self);
  say(self, "partition name:" + name + ", real name:" + mtd_name(name, target));
  const std::optional<bool> erased = erase_blocks(self, mtd_name(name, target), name);
  if (erased) {
    end(self);
  }
  return erased.value_or(false);
}

bool Library::image_matches(const Node& node, std::int32_t len, const Bytes& digest) {
  const char* const self = "check_image_hash";
  begin(self);
  Bytes image(static_cast<std::size_t>(std::max(len, 0)));
  for (std::size_t done = 0; done < image.size(); done += 1024) {
    const auto size = static_cast<std::uint32_t>(std::min<std::size_t>(1024, image.size() - done));
    if (read_image("VEMK_ReadImage", node, image.data() + done, static_cast<std::uint32_t>(done),
                   size) < 0) {
      return fail(self, "Read image content fail!");
    }
  }
  end(self);
  return same_digest(digest, support::sha512(image));
}

}  // namespace reference
