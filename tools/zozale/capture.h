// SPDX-License-Identifier: Apache-2.0
//
// Takes standard output away from the library for as long as it works.
#ifndef ZOZALE_TOOL_CAPTURE_H
#define ZOZALE_TOOL_CAPTURE_H

#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "common/file.h"

namespace zozale::tool {

// From construction to destruction whatever the process prints to standard output goes to
// `on_line`, line by line and without line feeds. A thread of its own reads, so that nobody waits
// for a full pipe, and calls both functions; they end before the destructor does.
class Capture {
 public:
  using OnLine = std::function<void(std::string_view line)>;
  // Called a few times a second, lines or not.
  using OnTick = std::function<void()>;

  // Throws Error when the system has no pipe or thread left.
  Capture(OnLine on_line, OnTick on_tick);
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  Capture(Capture&&) = delete;
  Capture& operator=(Capture&&) = delete;
  ~Capture();

 private:
  struct Pipe {
    Descriptor read;
    Descriptor write;
  };
  static Pipe make_pipe();

  void read_until_told_to_stop();
  // False when nothing more is there for now.
  bool take_some();
  void hand_on_lines();

  OnLine on_line_;
  OnTick on_tick_;
  Descriptor standard_output_;  // what descriptor 1 was
  Pipe lines_;
  Pipe stop_;
  std::string rest_;  // the line whose end has not come yet
  std::thread reader_;
};

// Opens descriptors 0 to 2 where they are closed: a flash node must never become standard output.
// Makes standard output line by line, so that a capture sees each line at once.
void prepare_standard_streams();

}  // namespace zozale::tool

#endif
