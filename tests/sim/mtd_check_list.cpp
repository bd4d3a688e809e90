// SPDX-License-Identifier: Apache-2.0
#include "mtd_check_list.h"

namespace mtd_checks {
namespace {

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

constexpr Place worn(int blocks = 0, int pages = 0, int bytes = 0) {
  return {From::worn, blocks, pages, bytes};
}
constexpr Place failing() {
  return {From::failing};
}
constexpr Place unreadable() {
  return {From::unreadable};
}

}  // namespace

const Checks& protected_checks() {
  static const Checks kList = {
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
  return kList;
}

const Checks& plain_checks() {
  static const Checks kList = {
      {"open-read-only", Action::open, O_RDONLY},
      {"open-write-only", Action::open, O_WRONLY},
      {"open-synchronous", Action::open, O_RDWR | O_DSYNC},
      {"info", Action::info, O_RDONLY},
      {"info-write-only", Action::info, O_WRONLY},
      {"info-null", Action::null_info},
      {"kind", Action::kind},
      {"truncate", Action::truncate},

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
      {"erase-negative-start", Action::erase32, O_RDWR, {From::start, -1, 0, 0}, kBlock},
      {"erase64-negative-start", Action::erase64, O_RDWR, {From::start, -1, 0, 0}, kBlock},
      {"erase-negative-length", Action::erase32, O_RDWR, good(0), {-1, 0, 0}},
      {"erase64-negative-length", Action::erase64, O_RDWR, good(0), {-1, 0, 0}},
      {"erase-null", Action::null_erase},
      {"erase64-null", Action::null_erase64},
      {"erase-across-the-end", Action::erase64, O_RDWR, end(-1), {2, 0, 0}},

      {"is-bad-good", Action::is_bad, O_RDONLY, good(0)},
      {"is-bad-good-inside", Action::is_bad, O_RDONLY, good(0, 1, 7)},
      {"is-bad-last-byte-of-block", Action::is_bad, O_RDONLY, good(1, 0, -1)},
      {"is-bad-at-the-end", Action::is_bad, O_RDONLY, end()},
      {"is-bad-past-the-end", Action::is_bad, O_RDONLY, end(5)},
      {"is-bad-negative", Action::is_bad, O_RDONLY, {From::start, -1, 0, 0}},
      {"is-bad-good-errno", Action::note_is_bad, O_RDONLY, good(0)},
      {"is-bad-null", Action::null_is_bad},
      {"is-bad-write-only", Action::is_bad, O_WRONLY, good(0)},

      {"read-erased", Action::read, O_RDONLY, good(0), kBlock},
      {"write-page", Action::write, O_RDWR, good(0), kPage, 1},
      {"read-page", Action::read, O_RDONLY, good(0), kPage},
      {"read-next-page-erased", Action::read, O_RDONLY, good(0, 1), kPage},
      // A kernel's ECC may take bits of such a page for flips and turn them; with these two seeds
      // it does not.
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

      {"read-across-the-end", Action::read, O_RDONLY, end(0, 0, -5), {0, 0, 10}},
      {"erase-last-block", Action::erase32, O_RDWR, end(-1), kBlock},
      {"write-across-the-end", Action::write, O_RDWR, end(0, -1), {0, 2, 0}, 10},
      {"read-what-fitted", Action::read, O_RDONLY, end(0, -1), {0, 2, 0}},
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
  return kList;
}

const Checks& bad_checks() {
  static const Checks kList = {
      {"is-bad-bad", Action::is_bad, O_RDONLY, bad()},
      {"is-bad-bad-errno", Action::note_is_bad, O_RDONLY, bad()},
      {"is-bad-bad-inside", Action::is_bad, O_RDONLY, bad(0, 1, 3)},
      {"erase-bad", Action::erase32, O_RDWR, bad(), kBlock},
      {"erase64-bad", Action::erase64, O_RDWR, bad(), kBlock},
      {"erase-bad-nothing", Action::erase32, O_RDWR, bad(), kNothing},
      {"erase-bad-read-only", Action::erase32, O_RDONLY, bad(), kBlock},
      {"erase-before-bad", Action::erase32, O_RDWR, bad(-1), kBlock},
      {"write-before-bad", Action::write, O_RDWR, bad(-1), kPage, 11},
      {"erase-range-with-bad", Action::erase64, O_RDWR, bad(-1), {2, 0, 0}},
      {"read-before-bad", Action::read, O_RDONLY, bad(-1), kPage},
      {"read-bad", Action::read, O_RDONLY, bad(), kPage},
      {"write-into-bad", Action::write, O_RDWR, bad(0, 1), kPage, 7},
      {"read-what-bad-took", Action::read, O_RDONLY, bad(0, 1), kPage},
      {"write-across-into-bad", Action::write, O_RDWR, bad(0, -1), {0, 2, 0}, 12},
      {"read-across-into-bad", Action::read, O_RDONLY, bad(0, -1), {0, 3, 0}},
      {"is-bad-after-write", Action::is_bad, O_RDONLY, bad()},
  };
  return kList;
}

const Checks& worn_checks() {
  static const Checks kList = {
      {"worn-is-bad-before", Action::is_bad, O_RDONLY, worn()},
      {"worn-write", Action::write, O_RDWR, worn(), kPage, 13},
      {"worn-read", Action::read, O_RDONLY, worn(), kPage},
      {"worn-erase", Action::erase32, O_RDWR, worn(), kBlock},
      {"worn-read-after-erase", Action::read, O_RDONLY, worn(), kBlock},
      {"worn-write-after-erase", Action::write, O_RDWR, worn(0, 1), kPage, 14},
      {"worn-read-after-write", Action::read, O_RDONLY, worn(0, 1), kPage},
      {"worn-erase64", Action::erase64, O_RDWR, worn(), kBlock},
      {"worn-erase-before", Action::erase32, O_RDWR, worn(-1), kBlock},
      {"worn-write-before", Action::write, O_RDWR, worn(-1), kPage, 15},
      {"worn-erase-range", Action::erase64, O_RDWR, worn(-1), {2, 0, 0}},
      {"worn-read-before", Action::read, O_RDONLY, worn(-1), kPage},
      {"worn-is-bad-after", Action::is_bad, O_RDONLY, worn()},
  };
  return kList;
}

const Checks& failing_checks() {
  static const Checks kList = {
      {"failing-erase", Action::erase32, O_RDWR, failing(), kBlock},
      {"failing-write-block", Action::write, O_RDWR, failing(), kBlock, 8},
      {"failing-first-page", Action::read, O_RDONLY, failing(), kPage},
      {"failing-page", Action::read, O_RDONLY, {From::failing_page}, kPage},
      {"failing-next-pages", Action::read, O_RDONLY, {From::failing_page, 0, 1, 0}, {0, 2, 0}},
      {"failing-is-bad", Action::is_bad, O_RDONLY, failing()},
      {"failing-erase-again", Action::erase32, O_RDWR, failing(), kBlock},
      {"failing-read-erased", Action::read, O_RDONLY, failing(), kBlock},
      {"failing-write-before", Action::write, O_RDWR, failing(), kPage, 16},
  };
  return kList;
}

const Checks& unreadable_checks() {
  static const Checks kList = {
      {"unreadable-erase", Action::erase32, O_RDWR, unreadable(), kBlock},
      {"unreadable-write-block", Action::write, O_RDWR, unreadable(), kBlock, 9},
      {"unreadable-read-differs", Action::read, O_RDONLY, unreadable(), kBlock, 9},
      {"unreadable-read-twice", Action::read_twice, O_RDONLY, {From::unreadable_page}, kPage},
      {"unreadable-first-page", Action::read, O_RDONLY, unreadable(), kPage},
      {"unreadable-first-page-twice", Action::read_twice, O_RDONLY, unreadable(), kPage},
      {"unreadable-next-pages",
       Action::read,
       O_RDONLY,
       {From::unreadable_page, 0, 1, 0},
       {0, 2, 0}},
      {"unreadable-is-bad", Action::is_bad, O_RDONLY, unreadable()},
  };
  return kList;
}

}  // namespace mtd_checks
