// SPDX-License-Identifier: Apache-2.0
//
// Catches a descriptor number that is closed a second time after it was closed already.
//
// Such a close strikes whoever got the number in between. While a squatter exists, that is the
// squatter: at every diagnostic it takes the lowest free number, keeps it for a while, and tells
// afterwards which ones somebody else closed.
#ifndef TESTS_UNIT_DESCRIPTOR_SQUATTER_H
#define TESTS_UNIT_DESCRIPTOR_SQUATTER_H

#include <cstddef>
#include <deque>
#include <vector>

class DescriptorSquatter {
 public:
  DescriptorSquatter();
  ~DescriptorSquatter();
  DescriptorSquatter(const DescriptorSquatter&) = delete;
  DescriptorSquatter& operator=(const DescriptorSquatter&) = delete;

  void take();
  // Gives all numbers back and returns those that somebody else closed.
  std::vector<int> lost();
  // How often it took a number.
  std::size_t taken() const { return taken_; }

 private:
  void give_back();

  std::deque<int> held_;
  std::vector<int> lost_;
  std::size_t taken_ = 0;
};

#endif
