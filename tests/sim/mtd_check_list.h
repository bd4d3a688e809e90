// SPDX-License-Identifier: Apache-2.0
//
// The checks that every MTD character device is put to, as data.
#ifndef TESTS_SIM_MTD_CHECK_LIST_H
#define TESTS_SIM_MTD_CHECK_LIST_H

#include <fcntl.h>

#include <cstdint>
#include <vector>

namespace mtd_checks {

// A place, counted from what a device offers.
enum class From : std::uint8_t {
  start,    // of the partition
  end,      // of the partition
  good,     // the first of three good blocks in a row
  bad,      // a bad block
  worn,     // the places with a defect
  failing,  // its block
  failing_page,
  unreadable,  // its block
  unreadable_page,
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
  read_twice,   // whether both give the same bytes
  note_is_bad,  // is_bad with an error of another call still in errno, which it prints
  null_info,    // requests with a null pointer
  null_erase,
  null_erase64,
  null_is_bad,
  truncate,
  kind,       // of file, and its major number
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

using Checks = std::vector<Check>;

// Lists that are run one after the other. Checks rely on what earlier ones left on the flash.
const Checks& protected_checks();   // leave the partition lifted
const Checks& plain_checks();       // need no defect
const Checks& bad_checks();         // need From::bad, with a good block before it
const Checks& worn_checks();        // need From::worn, with a good block before it
const Checks& failing_checks();     // need From::failing, page 1 or a later one
const Checks& unreadable_checks();  // need From::unreadable, page 1 or a later one

}  // namespace mtd_checks

#endif
