// SPDX-License-Identifier: Apache-2.0
#include "mtd_checks.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstring>
#include <vector>

#include "mtd_check_list.h"

namespace mtd_checks {
namespace {

constexpr unsigned long kProtectLift = 0x80044D18;
constexpr unsigned long kProtectRestore = 0x80044D19;
constexpr unsigned long kUnknownRequest = 0x4D7F;

struct Answer {
  std::int64_t result = 0;
  int error = 0;
  bool has_bytes = false;
  bool shows_bytes = true;  // false: only whether they are those that they are compared with
  std::vector<unsigned char> bytes;
};

const char* error_name(int error) {
  struct Name {
    int error;
    const char* name;
  };
  constexpr std::array<Name, 14> kNames = {{{0, "-"},
                                            {EPERM, "EPERM"},
                                            {ENOENT, "ENOENT"},
                                            {EIO, "EIO"},
                                            {EBADF, "EBADF"},
                                            {EACCES, "EACCES"},
                                            {EFAULT, "EFAULT"},
                                            {ENODEV, "ENODEV"},
                                            {EINVAL, "EINVAL"},
                                            {ENOTTY, "ENOTTY"},
                                            {ENOSPC, "ENOSPC"},
                                            {EROFS, "EROFS"},
                                            {EOVERFLOW, "EOVERFLOW"},
                                            {EOPNOTSUPP, "EOPNOTSUPP"}}};
  for (const Name& entry : kNames) {
    if (entry.error == error) {
      return entry.name;
    }
  }
  return std::strerror(error);
}

std::uint64_t hash_of(const std::vector<unsigned char>& bytes) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const unsigned char byte : bytes) {
    hash = (hash ^ byte) * 0x100000001B3U;
  }
  return hash;
}

std::vector<unsigned char> pattern(std::size_t length, unsigned seed) {
  std::vector<unsigned char> bytes(length);
  std::uint32_t state = seed;
  for (unsigned char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<unsigned char>(state >> 24U);
  }
  return bytes;
}

class Runner {
 public:
  Runner(const Device& device, FILE* out) : device_(device), out_(out) {}

  bool prepare();
  void run_all(const Checks& checks) {
    for (const Check& check : checks) {
      print(check, run_one(check));
    }
  }
  bool has_bad() const { return bad_ >= 0; }
  // Byte offset that a place counts from.
  std::int64_t base(From from) const;

 private:
  bool find_blocks(int fd);
  bool has_defect(std::int64_t block) const;
  std::int64_t offset_of(const Place& place) const;
  std::int64_t length_of(const Length& length) const;
  Answer run_one(const Check& check);
  Answer act(int fd, const Check& check);
  Answer act_plain(int fd, const Check& check);
  Answer transfer(int fd, const Check& check) const;
  Answer info(int fd) const;
  void print(const Check& check, const Answer& answer);

  Device device_;
  FILE* out_;
  std::int64_t size_ = 0;
  std::int64_t block_ = 0;
  std::int64_t page_ = 0;
  std::int64_t good_ = -1;
  std::int64_t bad_ = -1;
};

Answer answered(std::int64_t result) {
  Answer answer;
  answer.result = result;
  answer.error = result < 0 ? errno : 0;
  return answer;
}

// A device's answer to "bad" leaves errno alone: what an earlier call left there shows.
Answer note_is_bad(int fd, loff_t offset) {
  Answer answer;
  errno = ENOENT;
  answer.result = ioctl(fd, MEMGETBADBLOCK, &offset);
  answer.error = errno;
  return answer;
}

Answer kind_of(int fd) {
  struct stat status {};
  Answer answer = answered(fstat(fd, &status));
  answer.result = S_ISCHR(status.st_mode) ? static_cast<std::int64_t>(major(status.st_rdev)) : -1;
  return answer;
}

bool Runner::prepare() {
  const int fd = open(device_.node.c_str(), O_RDONLY);
  mtd_info_user info{};
  const bool known = fd >= 0 && ioctl(fd, MEMGETINFO, &info) == 0 && info.erasesize > 0;
  if (known) {
    size_ = info.size;
    block_ = info.erasesize;
    page_ = info.writesize;
  }
  const bool found = known && find_blocks(fd);
  if (fd >= 0) {
    close(fd);
  }
  if (!found) {
    static_cast<void>(std::fprintf(out_, "%s: no MTD device with three good blocks in a row\n",
                                   device_.node.c_str()));
  }
  return found;
}

bool Runner::has_defect(std::int64_t block) const {
  return (device_.worn_block && *device_.worn_block == block) ||
         (device_.failing_page && device_.failing_page->block == block) ||
         (device_.unreadable_page && device_.unreadable_page->block == block);
}

bool Runner::find_blocks(int fd) {
  int in_a_row = 0;
  for (std::int64_t block = 0; block < size_ / block_; ++block) {
    loff_t at = block * block_;
    const bool is_bad = ioctl(fd, MEMGETBADBLOCK, &at) != 0;
    in_a_row = is_bad || has_defect(block) ? 0 : in_a_row + 1;
    if (in_a_row == 3 && good_ < 0) {
      good_ = (block - 2) * block_;
    }
    // With a block before it, for a range that holds it.
    if (is_bad && bad_ < 0 && block > 0) {
      bad_ = block * block_;
    }
  }
  return good_ >= 0;
}

std::int64_t Runner::base(From from) const {
  switch (from) {
    case From::start:
      return 0;
    case From::end:
      return size_;
    case From::good:
      return good_;
    case From::bad:
      return bad_;
    case From::worn:
      return *device_.worn_block * block_;
    case From::failing:
      return device_.failing_page->block * block_;
    case From::failing_page:
      return device_.failing_page->block * block_ + device_.failing_page->page * page_;
    case From::unreadable:
      return device_.unreadable_page->block * block_;
    case From::unreadable_page:
      return device_.unreadable_page->block * block_ + device_.unreadable_page->page * page_;
  }
  return 0;
}

std::int64_t Runner::length_of(const Length& length) const {
  return length.blocks * block_ + length.pages * page_ + length.bytes;
}

std::int64_t Runner::offset_of(const Place& place) const {
  return base(place.from) + length_of({place.blocks, place.pages, place.bytes});
}

// Only whether the bytes are the ones expected shows.
Answer compared(ssize_t count, bool equal) {
  Answer answer = answered(count);
  answer.has_bytes = true;
  answer.shows_bytes = false;
  answer.bytes = {static_cast<unsigned char>(equal ? 1 : 0)};
  return answer;
}

Answer read_twice(int fd, std::int64_t at, std::size_t length) {
  std::vector<unsigned char> once(length);
  std::vector<unsigned char> again(length);
  const ssize_t count = pread64(fd, once.data(), length, at);
  return count < 0 || pread64(fd, again.data(), length, at) != count
             ? answered(-1)
             : compared(count, once == again);
}

// Every check has a descriptor of its own.
Answer Runner::run_one(const Check& check) {
  const int fd = open(device_.node.c_str(), check.access);
  if (fd < 0 || check.action == Action::open) {
    Answer answer = answered(fd < 0 ? -1 : 0);
    if (fd >= 0) {
      close(fd);
    }
    return answer;
  }
  errno = 0;
  Answer answer = act(fd, check);
  close(fd);
  return answer;
}

Answer Runner::act(int fd, const Check& check) {
  const std::int64_t at = offset_of(check.at);
  const std::int64_t length = length_of(check.length);
  switch (check.action) {
    case Action::erase32: {
      erase_info_user range = {static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(length)};
      return answered(ioctl(fd, MEMERASE, &range));
    }
    case Action::erase64: {
      erase_info_user64 range = {static_cast<std::uint64_t>(at),
                                 static_cast<std::uint64_t>(length)};
      return answered(ioctl(fd, MEMERASE64, &range));
    }
    case Action::is_bad: {
      loff_t offset = at;
      return answered(ioctl(fd, MEMGETBADBLOCK, &offset));
    }
    case Action::note_is_bad:
      return note_is_bad(fd, at);
    case Action::seek:
      return answered(lseek64(fd, at, SEEK_SET));
    case Action::seek_back:
      return answered(lseek64(fd, length, SEEK_END));
    case Action::seek_step:
      lseek64(fd, at, SEEK_SET);
      return answered(lseek64(fd, length, SEEK_CUR));
    default:
      return act_plain(fd, check);
  }
}

Answer Runner::act_plain(int fd, const Check& check) {
  switch (check.action) {
    case Action::info:
      return info(fd);
    case Action::kind:
      return kind_of(fd);
    case Action::truncate:
      return answered(ftruncate(fd, 0));
    case Action::sync:
      return answered(fsync(fd));
    case Action::data_sync:
      return answered(fdatasync(fd));
    case Action::lift:
      return answered(ioctl(fd, kProtectLift, 0));
    case Action::restore:
      return answered(ioctl(fd, kProtectRestore, 0));
    case Action::unknown:
      return answered(ioctl(fd, kUnknownRequest, 0));
    case Action::map: {
      void* mapped = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0);
      return answered(mapped == MAP_FAILED ? -1 : 0);
    }
    case Action::null_info:
      return answered(ioctl(fd, MEMGETINFO, nullptr));
    case Action::null_erase:
      return answered(ioctl(fd, MEMERASE, nullptr));
    case Action::null_erase64:
      return answered(ioctl(fd, MEMERASE64, nullptr));
    case Action::null_is_bad:
      return answered(ioctl(fd, MEMGETBADBLOCK, nullptr));
    default:
      return transfer(fd, check);
  }
}

Answer Runner::transfer(int fd, const Check& check) const {
  const std::int64_t at = offset_of(check.at);
  const auto length = static_cast<std::size_t>(length_of(check.length));
  std::vector<unsigned char> bytes = pattern(length, check.seed);
  if (check.action == Action::read_twice) {
    return read_twice(fd, at, length);
  }
  const bool positioned = check.action == Action::read || check.action == Action::write;
  if (positioned && lseek64(fd, at, SEEK_SET) != at) {
    return answered(-1);
  }
  if (check.action == Action::write) {
    return answered(write(fd, bytes.data(), length));
  }
  if (check.action == Action::pwrite) {
    return answered(pwrite64(fd, bytes.data(), length, at));
  }
  const std::vector<unsigned char> expected = bytes;
  const ssize_t count = check.action == Action::read ? read(fd, bytes.data(), length)
                                                     : pread64(fd, bytes.data(), length, at);
  if (count <= 0) {
    return answered(count);
  }
  bytes.resize(static_cast<std::size_t>(count));
  if (check.seed != 0) {
    return compared(count, bytes == expected);
  }
  Answer answer = answered(count);
  answer.has_bytes = true;
  answer.bytes = bytes;
  return answer;
}

Answer Runner::info(int fd) const {
  mtd_info_user info{};
  Answer answer = answered(ioctl(fd, MEMGETINFO, &info));
  const std::array<std::uint32_t, 5> words = {info.type, info.size, info.erasesize, info.writesize,
                                              info.oobsize};
  answer.has_bytes = true;
  answer.bytes.resize(sizeof words);
  std::memcpy(answer.bytes.data(), words.data(), sizeof words);
  return answer;
}

void Runner::print(const Check& check, const Answer& answer) {
  static_cast<void>(std::fprintf(out_, "%s %" PRId64 " %s ", check.name, answer.result,
                                 error_name(answer.error)));
  if (!answer.has_bytes) {
    static_cast<void>(std::fprintf(out_, "-\n"));
  } else if (!answer.shows_bytes) {
    static_cast<void>(std::fprintf(out_, "%s\n", answer.bytes[0] != 0 ? "same" : "different"));
  } else {
    static_cast<void>(std::fprintf(out_, "%016" PRIx64 "\n", hash_of(answer.bytes)));
  }
}

}  // namespace

bool run(const Device& device, FILE* out) {
  Runner runner(device, out);
  if (!runner.prepare()) {
    return false;
  }
  if (device.protects) {
    runner.run_all(protected_checks());
  }
  runner.run_all(plain_checks());
  if (runner.has_bad()) {
    runner.run_all(bad_checks());
  }
  if (device.worn_block) {
    runner.run_all(worn_checks());
  }
  if (device.failing_page) {
    runner.run_all(failing_checks());
  }
  if (device.unreadable_page) {
    runner.run_all(unreadable_checks());
  }
  return true;
}

}  // namespace mtd_checks
