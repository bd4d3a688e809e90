// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/flags_test.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace unit {
namespace {

// Nothing for the 0 that belongs there.
std::string argument(const sim::Call& call) {
  return call.offset == 0 ? std::string() : "(" + std::to_string(call.offset) + ")";
}

std::string described(const sim::Call& call) {
  std::ostringstream out;
  switch (call.op) {
    case sim::Op::open:
      out << "open " << std::hex << call.flags << std::dec;
      break;
    case sim::Op::memgetinfo:
      out << "getinfo";
      break;
    case sim::Op::memgetbadblock:
      out << "bad? " << call.offset << (call.result == 1 ? " yes" : "");
      break;
    case sim::Op::memerase:
      out << "erase " << call.offset << '+' << call.length;
      break;
    case sim::Op::lseek:
      out << "seek " << call.offset;
      break;
    case sim::Op::read:
      out << "read " << call.length << '@' << call.offset;
      break;
    case sim::Op::write:
      out << "write " << call.length << '@' << call.offset;
      break;
    case sim::Op::protect_lift:
      out << "lift" << argument(call);
      break;
    case sim::Op::protect_restore:
      out << "restore" << argument(call);
      break;
    default:
      out << sim::op_name(call.op);
  }
  if (call.error != 0) {
    out << " E" << call.error;
  }
  return out.str();
}

// Puts "*" for what stands between a number's first digit behind `before` and the end, which is to
// be `end`.
void settle(std::string& message, const std::string& before, const std::string& end) {
  const std::size_t place = message.find(before);
  const std::size_t from = place + before.size();
  if (place == std::string::npos || from + end.size() >= message.size() ||
      std::isdigit(static_cast<unsigned char>(message[from])) == 0 ||
      message.substr(message.size() - end.size()) != end) {
    return;
  }
  message.erase(from);
  message += "*";
}

std::string at(std::uint32_t block) {
  return std::to_string(block * kBlock);
}

}  // namespace

Lines operator+(Lines a, const LogLine& b) {
  a.push_back(b);
  return a;
}

Requests operator+(Requests a, const std::string& b) {
  a.push_back(b);
  return a;
}

Requests operator+(Requests a, const Requests& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

sim::Layout flags_layout(std::uint32_t blocks, const std::vector<std::uint32_t>& bad) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.at(0) = {"flags", blocks, bad};
  return layout;
}

sim::BootRecord sample_record(std::uint32_t seed) {
  sim::BootRecord record;
  for (std::size_t i = kEnvA; i < sim::kRecordSize; ++i) {
    record.bytes.at(i) = static_cast<std::uint8_t>(i * 7 + seed);
  }
  record.set_word(kMagic, 0x464C4147);
  record.set_word(kBootTo, 0x986B);
  record.set_word(kFotaStatus, 100 + seed);
  record.set_word(kStatusA, 200 + seed);
  record.set_word(kAttemptsA, 300 + seed);
  record.set_word(kStatusB, 400 + seed);
  record.set_word(kAttemptsB, 500 + seed);
  record.set_word(kEnvMagic, 0x464C4147);
  record.set_word(kSystemType, 0xAAAA);
  return record;
}

sim::BootRecord with(sim::BootRecord record, Field field, std::uint32_t value) {
  record.set_word(field, value);
  return record;
}

sim::Bytes block_image(const sim::BootRecord& record, std::uint32_t block_size) {
  sim::Bytes image(block_size, 0xFF);
  std::copy(record.bytes.begin(), record.bytes.end(), image.begin());
  return image;
}

// --- Diagnostics. -------------------------------------------------------------------------------

Lines found_flags(const std::string& node) {
  return {{"mtd_find", "partition name:flags, type:0"}, {"mtd_find", "o_mtd_path=[" + node + "]"}};
}

Lines settled(Lines lines) {
  for (LogLine& line : lines) {
    settle(line.message, "Fotaflag partition fd:", "");
    settle(line.message, " is bad, errno no:", "]");
    settle(line.message, " , change to be bad block errno: ", "]!");
  }
  return lines;
}

Lines settled_log(const std::function<void()>& body) {
  return settled(support::logged(body));
}

LogLine writing(const std::string& message) {
  return {"upi_set_boot_flags_content", message};
}
LogLine block_said(const std::string& message) {
  return {"upi_write_fota_flag_img_content", message};
}

const Lines kWriteBegin = Lines{writing("upi_set_boot_flags_content func begin!")} + found_flags() +
                          writing("Fotaflag partition fd:*") +
                          writing("begin to write main fotaflag");
const Lines kWriteEnd = {writing("upi_set_boot_flags_content func end!")};

Lines rewritten() {
  return kWriteBegin + writing("Write main to [0] block!") +
         writing("Main fotaflag location:[0]->[0]") + writing("begin to write backup fotaflag") +
         writing("Backup fotaflag location:[1]->[1]") + kWriteEnd;
}

// --- Requests. ----------------------------------------------------------------------------------

Requests requests_of(const std::function<void()>& body) {
  const sim::Recording recording({true});
  static_cast<void>(support::printed(body));
  Requests out;
  for (const sim::Call& call : recording.calls()) {
    if (call.partition == "flags") {
      out.push_back(described(call));
    }
  }
  return out;
}

const Requests kOpened = {"open 1002", "getinfo"};

Requests reading(std::uint32_t block) {
  return {"bad? " + at(block), "seek " + at(block), "read 292@" + at(block)};
}

Requests writing_block(std::uint32_t block) {
  const std::string length = std::to_string(kBlock);
  return {"lift",
          "bad? " + at(block),
          "erase " + at(block) + "+" + length,
          "bad? " + at(block),
          "seek " + at(block),
          "write " + length + "@" + at(block),
          "restore"};
}

Requests read_both() {
  return kOpened + reading(0) + reading(1) + "close";
}
Requests rewrite_both() {
  return kOpened + writing_block(0) + writing_block(1) + "close";
}

// --- The fixture. -------------------------------------------------------------------------------

void FlagsTest::fail(sim::Op op, int error, std::uint64_t at) {
  device().faults().add({op, "flags", at, error});
}

void FlagsTest::fail_always(sim::Op op, int error) {
  device().faults().add({op, "flags", 1, error, true});
}

void FlagsTest::shorten(sim::Op op, std::uint32_t bytes, std::uint64_t at) {
  device().faults().add({op, "flags", at, 0, false, bytes});
}

void FlagsTest::put(std::uint32_t block, const sim::BootRecord& record) {
  sim::Partition partition = flags();
  partition.poke(std::uint64_t{block} * kBlock, block_image(record));
}

sim::BootRecord FlagsTest::record_at(std::uint32_t block) {
  const sim::Bytes content = flags().block(block);
  sim::BootRecord record;
  std::copy_n(content.begin(), sim::kRecordSize, record.bytes.begin());
  return record;
}

void FlagsTest::expect_copy(std::uint32_t block, const sim::BootRecord& record) {
  EXPECT_EQ(flags().block(block), block_image(record)) << "block " << block;
}

void FlagsTest::expect_erased(std::uint32_t block) {
  EXPECT_EQ(flags().block(block), sim::Bytes(kBlock, 0xFF)) << "block " << block;
}

}  // namespace unit
