// SPDX-License-Identifier: Apache-2.0
#include "mtd_checks.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstring>
#include <vector>

namespace mtd_checks {
namespace {

constexpr unsigned long kProtectLift = 0x80044D18;
constexpr unsigned long kProtectRestore = 0x80044D19;
constexpr unsigned long kUnknownRequest = 0x4D7F;

// --- The list. ----------------------------------------------------------------------------------

// A place, counted from what a device offers.
enum class From : std::uint8_t {
  start,       // of the partition
  end,         // of the partition
  good,        // the first of three good blocks in a row
  bad,         // a bad block
  worn,        // the places with a defect
  failing,     // its block
  unreadable,  // its block
};

// So many blocks, pages and bytes from there.
struct Place {
  From from = From::start;
  int blocks = 0;
  int pages = 0;
  int bytes = 0;
};

struct Length {
  int blocks = 0;
  int pages = 0;
  int bytes = 0;
};

enum class Action : std::uint8_t {
  open,
  info,
  erase32,
  erase64,
  is_bad,
  write,  // bytes of a pattern, chosen by `seed`
  pwrite,
  read,
  pread,
  seek,       // to the place, from the start
  seek_back,  // from the end, by the length
  seek_step,  // to the place, then by the length
  sync,
  data_sync,
  map,
  lift,
  restore,
  unknown,
};

struct Check {
  const char* name;
  Action action;
  int access = O_RDWR;
  Place at = {};
  Length length = {};
  unsigned seed = 0;
};

constexpr Length kBlock = {1, 0, 0};
constexpr Length kPage = {0, 1, 0};
constexpr Length kNothing = {0, 0, 0};

constexpr Place good(int blocks, int pages = 0, int bytes = 0) {
  return {From::good, blocks, pages, bytes};
}
constexpr Place bad(int blocks = 0, int pages = 0, int bytes = 0) {
  return {From::bad, blocks, pages, bytes};
}
constexpr Place end(int blocks = 0, int pages = 0, int bytes = 0) {
  return {From::end, blocks, pages, bytes};
}

const Check kProtected[] = {
    {"protected-erase", Action::erase32, O_RDWR, good(0), kBlock},
    {"protected-erase64", Action::erase64, O_RDWR, good(0), kBlock},
    {"protected-write", Action::write, O_RDWR, good(0), kPage, 1},
    {"protected-read", Action::read, O_RDONLY, good(0), {0, 0, 16}},
    {"protected-erase-read-only", Action::erase32, O_RDONLY, good(0), kBlock},
    {"lift", Action::lift},
    {"lift-again", Action::lift},
    {"lifted-erase-by-another-descriptor", Action::erase32, O_RDWR, good(0), kBlock},
    {"restore", Action::restore},
    {"restored-erase", Action::erase32, O_RDWR, good(0), kBlock},
    {"restored-write", Action::write, O_RDWR, good(0), kPage, 1},
    {"lift-for-the-rest", Action::lift},
};

const Check kPlain[] = {
    {"open-read-only", Action::open, O_RDONLY},
    {"open-write-only", Action::open, O_WRONLY},
    {"open-synchronous", Action::open, O_RDWR | O_DSYNC},
    {"info", Action::info, O_RDONLY},

    {"erase", Action::erase32, O_RDWR, good(0), kBlock},
    {"erase64", Action::erase64, O_RDWR, good(1), kBlock},
    {"erase-two-blocks", Action::erase32, O_RDWR, good(0), {2, 0, 0}},
    {"erase-three-blocks64", Action::erase64, O_RDWR, good(0), {3, 0, 0}},
    {"erase-read-only", Action::erase32, O_RDONLY, good(0), kBlock},
    {"erase64-read-only", Action::erase64, O_RDONLY, good(0), kBlock},
    {"erase-write-only", Action::erase32, O_WRONLY, good(0), kBlock},
    {"erase-unaligned-start", Action::erase32, O_RDWR, good(0, 1), kBlock},
    {"erase64-unaligned-start", Action::erase64, O_RDWR, good(0, 1), kBlock},
    {"erase-unaligned-length", Action::erase32, O_RDWR, good(0), {1, 1, 0}},
    {"erase64-unaligned-length", Action::erase64, O_RDWR, good(0), {0, 1, 0}},
    {"erase-nothing", Action::erase32, O_RDWR, good(0), kNothing},
    {"erase64-nothing", Action::erase64, O_RDWR, good(0), kNothing},
    {"erase-nothing-unaligned", Action::erase32, O_RDWR, good(0, 1), kNothing},
    {"erase-nothing-at-the-end", Action::erase32, O_RDWR, end(), kNothing},
    {"erase-nothing-past-the-end", Action::erase64, O_RDWR, end(1), kNothing},
    {"erase-nothing-read-only", Action::erase32, O_RDONLY, good(0), kNothing},
    {"erase-at-the-end", Action::erase32, O_RDWR, end(), kBlock},
    {"erase-past-the-end", Action::erase64, O_RDWR, end(1), kBlock},
    {"erase-across-the-end", Action::erase64, O_RDWR, end(-1), {2, 0, 0}},

    {"is-bad-good", Action::is_bad, O_RDONLY, good(0)},
    {"is-bad-good-inside", Action::is_bad, O_RDONLY, good(0, 1, 7)},
    {"is-bad-last-byte-of-block", Action::is_bad, O_RDONLY, good(1, 0, -1)},
    {"is-bad-at-the-end", Action::is_bad, O_RDONLY, end()},
    {"is-bad-past-the-end", Action::is_bad, O_RDONLY, end(5)},
    {"is-bad-negative", Action::is_bad, O_RDONLY, {From::start, -1, 0, 0}},
    {"is-bad-write-only", Action::is_bad, O_WRONLY, good(0)},

    {"read-erased", Action::read, O_RDONLY, good(0), kBlock},
    {"write-page", Action::write, O_RDWR, good(0), kPage, 1},
    {"read-page", Action::read, O_RDONLY, good(0), kPage},
    {"read-next-page-erased", Action::read, O_RDONLY, good(0, 1), kPage},
    {"write-page-again", Action::write, O_RDWR, good(0), kPage, 2},
    {"read-both-anded", Action::read, O_RDONLY, good(0), kPage},
    {"write-two-pages", Action::write, O_RDWR, good(0, 1), {0, 2, 0}, 3},
    {"write-across-blocks", Action::write, O_RDWR, good(1, -1), {0, 2, 0}, 4},
    {"read-across-blocks", Action::read, O_RDONLY, good(1, -1), {0, 2, 0}},
    {"read-odd-bytes", Action::read, O_RDONLY, good(0, 0, 3), {0, 1, 11}},
    {"read-one-byte", Action::read, O_RDONLY, good(0, 1, 1), {0, 0, 1}},
    {"read-nothing", Action::read, O_RDONLY, good(0), kNothing},
    {"read-write-only", Action::read, O_WRONLY, good(0), kPage},
    {"pread-page", Action::pread, O_RDONLY, good(0), kPage},
    {"pwrite-page", Action::pwrite, O_RDWR, good(2), kPage, 5},
    {"pread-what-pwrite-wrote", Action::pread, O_RDONLY, good(2), kPage},
    {"pread-negative", Action::pread, O_RDONLY, {From::start, -1, 0, 0}, kPage},
    {"write-read-only", Action::write, O_RDONLY, good(0), kPage, 1},
    {"write-part-of-a-page", Action::write, O_RDWR, good(2, 1), {0, 0, 100}, 1},
    {"write-page-and-a-bit", Action::write, O_RDWR, good(2, 1), {0, 1, 1}, 1},
    {"write-inside-a-page", Action::write, O_RDWR, good(2, 1, 16), kPage, 1},
    {"write-nothing", Action::write, O_RDWR, good(2, 1), kNothing, 1},
    {"read-after-refused-writes", Action::read, O_RDONLY, good(2, 1), kPage},
    {"write-whole-block", Action::erase32, O_RDWR, good(1), kBlock},
    {"write-whole-block-now", Action::write, O_RDWR, good(1), kBlock, 6},
    {"read-whole-block", Action::read, O_RDONLY, good(1), kBlock},

    {"read-at-the-end", Action::read, O_RDONLY, end(), kPage},
    {"read-nothing-at-the-end", Action::read, O_RDONLY, end(), kNothing},
    {"pread-past-the-end", Action::pread, O_RDONLY, end(1), kPage},
    {"write-at-the-end", Action::write, O_RDWR, end(), kPage, 1},
    {"write-nothing-at-the-end", Action::write, O_RDWR, end(), kNothing, 1},
    {"pwrite-past-the-end", Action::pwrite, O_RDWR, end(1), kPage, 1},

    {"seek-to-the-start", Action::seek, O_RDONLY, {From::start}},
    {"seek-inside", Action::seek, O_RDONLY, good(0, 1, 1)},
    {"seek-to-the-end", Action::seek, O_RDONLY, end()},
    {"seek-past-the-end", Action::seek, O_RDONLY, end(0, 0, 1)},
    {"seek-negative", Action::seek, O_RDONLY, {From::start, 0, 0, -1}},
    {"seek-back-from-the-end", Action::seek_back, O_RDONLY, end(), {0, 0, -5}},
    {"seek-on-from-the-end", Action::seek_back, O_RDONLY, end(), {0, 0, 1}},
    {"seek-step", Action::seek_step, O_RDONLY, good(0), {0, 1, 0}},
    {"seek-step-back", Action::seek_step, O_RDONLY, good(0, 1), {0, -1, 0}},
    {"seek-step-past-the-end", Action::seek_step, O_RDONLY, end(), {0, 0, 1}},

    {"fsync", Action::sync},
    {"fdatasync", Action::data_sync},
    {"map", Action::map, O_RDONLY},
    {"unknown-request", Action::unknown},
    {"unknown-request-read-only", Action::unknown, O_RDONLY},
};

const Check kBad[] = {
    {"is-bad-bad", Action::is_bad, O_RDONLY, bad()},
    {"is-bad-bad-inside", Action::is_bad, O_RDONLY, bad(0, 1, 3)},
    {"erase-bad", Action::erase32, O_RDWR, bad(), kBlock},
    {"erase64-bad", Action::erase64, O_RDWR, bad(), kBlock},
    {"erase-bad-nothing", Action::erase32, O_RDWR, bad(), kNothing},
    {"erase-bad-read-only", Action::erase32, O_RDONLY, bad(), kBlock},
    {"erase-range-with-bad", Action::erase64, O_RDWR, bad(-1), {2, 0, 0}},
    {"write-into-bad", Action::write, O_RDWR, bad(), kPage, 7},
    {"is-bad-after-write", Action::is_bad, O_RDONLY, bad()},
};

const Check kWorn[] = {
    {"worn-is-bad-before", Action::is_bad, O_RDONLY, {From::worn}},
    {"worn-erase", Action::erase32, O_RDWR, {From::worn}, kBlock},
    {"worn-erase64", Action::erase64, O_RDWR, {From::worn}, kBlock},
    {"worn-is-bad-after", Action::is_bad, O_RDONLY, {From::worn}},
};

const Check kFailing[] = {
    {"failing-erase", Action::erase32, O_RDWR, {From::failing}, kBlock},
    {"failing-write-block", Action::write, O_RDWR, {From::failing}, kBlock, 8},
    {"failing-first-page", Action::read, O_RDONLY, {From::failing}, kPage},
    {"failing-is-bad", Action::is_bad, O_RDONLY, {From::failing}},
};

const Check kUnreadable[] = {
    {"unreadable-erase", Action::erase32, O_RDWR, {From::unreadable}, kBlock},
    {"unreadable-write-block", Action::write, O_RDWR, {From::unreadable}, kBlock, 9},
    {"unreadable-read-differs", Action::read, O_RDONLY, {From::unreadable}, kBlock, 9},
};

// --- Running it. --------------------------------------------------------------------------------

struct Answer {
  std::int64_t result = 0;
  int error = 0;
  bool has_bytes = false;
  bool shows_bytes = true;  // false: only whether they are those of the pattern
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
  template <std::size_t N>
  void run_all(const Check (&checks)[N]) {
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
    case From::unreadable:
      return device_.unreadable_page->block * block_;
  }
  return 0;
}

std::int64_t Runner::length_of(const Length& length) const {
  return length.blocks * block_ + length.pages * page_ + length.bytes;
}

std::int64_t Runner::offset_of(const Place& place) const {
  return base(place.from) + length_of({place.blocks, place.pages, place.bytes});
}

// Every check has a descriptor of its own.
Answer Runner::run_one(const Check& check) {
  const int fd = open(device_.node.c_str(), check.access);
  if (fd < 0 || check.action == Action::open) {
    const Answer answer = answered(fd < 0 ? -1 : 0);
    if (fd >= 0) {
      close(fd);
    }
    return answer;
  }
  errno = 0;
  const Answer answer = act(fd, check);
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
    default:
      return transfer(fd, check);
  }
}

Answer Runner::transfer(int fd, const Check& check) const {
  const std::int64_t at = offset_of(check.at);
  const auto length = static_cast<std::size_t>(length_of(check.length));
  std::vector<unsigned char> bytes = pattern(length, check.seed);
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
  Answer answer = answered(count);
  if (count > 0) {
    bytes.resize(static_cast<std::size_t>(count));
    answer.has_bytes = true;
    answer.shows_bytes = check.seed == 0;
    answer.bytes =
        answer.shows_bytes
            ? bytes
            : std::vector<unsigned char>{static_cast<unsigned char>(bytes == expected ? 1 : 0)};
  }
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
    runner.run_all(kProtected);
  }
  runner.run_all(kPlain);
  if (runner.has_bad()) {
    runner.run_all(kBad);
  }
  if (device.worn_block) {
    runner.run_all(kWorn);
  }
  if (device.failing_page) {
    runner.run_all(kFailing);
  }
  if (device.unreadable_page) {
    runner.run_all(kUnreadable);
  }
  return true;
}

}  // namespace mtd_checks
