// SPDX-License-Identifier: Apache-2.0
//
// Numbers that a seed and a name give again on every machine and with every C++ library.
#ifndef TESTS_POWER_CUT_RANDOM_H
#define TESTS_POWER_CUT_RANDOM_H

#include <cstdint>
#include <random>
#include <string>

namespace cuts {

class Random {
 public:
  Random(std::uint64_t seed, const std::string& name) : engine_(mixed(seed, name)) {}

  // 0 to below - 1; `below` is not 0.
  std::uint64_t below(std::uint64_t below) { return engine_() % below; }
  // Once in so many times.
  bool once_in(std::uint64_t times) { return below(times) == 0; }

 private:
  static std::uint64_t mixed(std::uint64_t seed, const std::string& name) {
    std::uint64_t hash = 0xCBF29CE484222325U ^ seed;
    for (const char c : name) {
      hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    }
    return hash;
  }

  std::mt19937_64 engine_;
};

}  // namespace cuts

#endif
