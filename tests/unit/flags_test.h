// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the boot flag record share: a "flags" partition to their liking, the requests
// that a call makes on it, and the diagnostics that come with every access.
#ifndef TESTS_UNIT_FLAGS_TEST_H
#define TESTS_UNIT_FLAGS_TEST_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/device_test.h"
#include "tests/unit/expected_lines.h"

namespace unit {

using support::LogLine;
using Requests = std::vector<std::string>;

Lines operator+(Lines a, const LogLine& b);
Requests operator+(Requests a, const Requests& b);
Requests operator+(Requests a, const std::string& b);

inline LogLine line(const std::string& function, const std::string& message) {
  return {function, message};
}

// Bytes of an erase block of sim::test_layout().
constexpr std::uint32_t kBlock = 2048;

// sim::test_layout() with a "flags" partition of `blocks` blocks, those in `bad` being bad.
sim::Layout flags_layout(std::uint32_t blocks, const std::vector<std::uint32_t>& bad = {});

// A valid record whose fields all differ from a factory's and, by `seed`, from another sample's.
sim::BootRecord sample_record(std::uint32_t seed);
// Fields of a record, by their offset.
enum Field : std::size_t {
  kMagic = 0,
  kBootTo = 4,
  kFotaStatus = 8,
  kStatusA = 12,
  kAttemptsA = 16,
  kStatusB = 20,
  kAttemptsB = 24,
  kEnvMagic = 28,
  kSystemType = 32,
  kEnvA = 36,
  kEnvB = 164,
};
sim::BootRecord with(sim::BootRecord record, Field field, std::uint32_t value);

// The erase block that holds a record: the rest of it is 0xFF.
sim::Bytes block_image(const sim::BootRecord& record, std::uint32_t block_size = kBlock);

// --- Diagnostics. -------------------------------------------------------------------------------

// The lookup of "flags" that finds it.
Lines found_flags(const std::string& node = "/dev/mtd0");
// Puts "*" for the number of the descriptor in "Fotaflag partition fd:" and for the error that is
// told with a bad block: the kernel leaves errno alone then, so it is whatever it was.
Lines settled(Lines lines);
// The diagnostics of a call, settled.
Lines settled_log(const std::function<void()>& body);

// What the writer of both copies says before and after it writes them.
extern const Lines kWriteBegin;
extern const Lines kWriteEnd;
LogLine writing(const std::string& message);  // said by upi_set_boot_flags_content
// A rewrite that puts both copies where the old ones stand, in blocks 0 and 1.
Lines rewritten();
LogLine block_said(const std::string& message);  // said by upi_write_fota_flag_img_content

// --- Requests. ----------------------------------------------------------------------------------

// The requests on "flags" that `body` makes, in order: "open 1002", "getinfo", "bad? OFFSET",
// "lift", "erase OFFSET+LENGTH", "seek OFFSET", "read LENGTH@OFFSET", "write LENGTH@OFFSET",
// "restore", "close". " yes" follows for a bad block, " E" and the error's number for a failure,
// the argument in parentheses for a protection request that has one other than 0.
Requests requests_of(const std::function<void()>& body);

extern const Requests kOpened;                // open, ask for the geometry
Requests reading(std::uint32_t block);        // one copy
Requests writing_block(std::uint32_t block);  // one copy, successfully
// One read of both copies from blocks 0 and 1, and one rewrite of both to the same blocks.
Requests read_both();
Requests rewrite_both();

// --- The fixture. -------------------------------------------------------------------------------

class FlagsTest : public support::DeviceTest {
 protected:
  void use_flags(std::uint32_t blocks, const std::vector<std::uint32_t>& bad = {}) {
    use(flags_layout(blocks, bad));
  }
  sim::Partition flags() { return partition("flags"); }
  // The n-th operation on "flags" from now on fails.
  void fail(sim::Op op, int error, std::uint64_t at = 1);
  void fail_always(sim::Op op, int error);
  // The n-th transfer is short.
  void shorten(sim::Op op, std::uint32_t bytes, std::uint64_t at = 1);

  void put(std::uint32_t block, const sim::BootRecord& record);
  sim::BootRecord record_at(std::uint32_t block);
  // Expects the block to hold this record and 0xFF behind it.
  void expect_copy(std::uint32_t block, const sim::BootRecord& record);
  void expect_erased(std::uint32_t block);
};

}  // namespace unit

#endif
