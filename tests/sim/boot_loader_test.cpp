// SPDX-License-Identifier: Apache-2.0
#include "sim/boot_loader.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/support/device_test.h"

namespace {

using sim::BootRecord;
using sim::BootResult;
using sim::Bytes;
using sim::Health;
using sim::System;
using support::DeviceTest;

constexpr int kMostAttempts = 3;

class BootLoaderTest : public DeviceTest {
 protected:
  BootRecord copy(std::uint32_t block) {
    BootRecord record;
    const Bytes bytes = partition("flags").block(block);
    std::copy_n(bytes.begin(), record.bytes.size(), record.bytes.begin());
    return record;
  }
  void put(std::uint32_t block, const BootRecord& record) {
    Bytes content(partition("flags").block_size(), 0xFF);
    std::copy(record.bytes.begin(), record.bytes.end(), content.begin());
    partition("flags").poke(std::uint64_t{block} * content.size(), content);
  }
  std::string cmdline() { return device().read_file("/proc/cmdline"); }
};

BootRecord record(System target, std::int32_t status_a, int attempts_a, std::int32_t status_b,
                  int attempts_b) {
  BootRecord out = sim::factory_record();
  out.set_boot_to(target);
  out.set_status(System::a, status_a);
  out.set_status(System::b, status_b);
  out.set_attempts(System::a, attempts_a);
  out.set_attempts(System::b, attempts_b);
  return out;
}

TEST_F(BootLoaderTest, FactoryRecordIsByteExact) {
  Bytes expected(292, 0);
  const auto put_word = [&expected](std::size_t at, std::uint32_t word) {
    std::memcpy(expected.data() + at, &word, 4);
  };
  put_word(0, 0x464C4147);
  put_word(4, 0x875A);
  put_word(12, 0xB0AB);
  put_word(20, 0xB0AB);
  put_word(28, 0x464C4147);
  put_word(32, 0xABAB);
  const BootRecord record = sim::factory_record();
  EXPECT_EQ(Bytes(record.bytes.begin(), record.bytes.end()), expected);
  EXPECT_TRUE(record.valid());
}

TEST_F(BootLoaderTest, StartsAWithoutARecord) {
  device().set_running(System::b);
  const BootResult result = sim::boot(device());
  EXPECT_EQ(result.started, System::a);
  EXPECT_EQ(result.row, nullptr);
  EXPECT_EQ(result.why, "no valid boot flag record was found: A is the default");
  EXPECT_FALSE(result.record_written);
  EXPECT_EQ(device().count(sim::Op::block_erase), 0U);
}

TEST_F(BootLoaderTest, StartsAWithoutAFlagsPartition) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.erase(layout.partitions.begin());
  use(layout);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  sim::write_records(device(), sim::factory_record());
}

TEST_F(BootLoaderTest, CountsAnAttemptInBothCopies) {
  write_flags();
  const BootResult result = sim::boot(device());
  EXPECT_EQ(result.started, System::a);
  EXPECT_EQ(result.wanted, System::a);
  EXPECT_TRUE(result.record_written);
  EXPECT_EQ(copy(0).attempts(System::a), 1);
  EXPECT_EQ(copy(1).attempts(System::a), 1);
  EXPECT_EQ(copy(0).attempts(System::b), 0);
  const Bytes block = partition("flags").block(0);
  EXPECT_TRUE(
      std::all_of(block.begin() + 292, block.end(), [](auto byte) { return byte == 0xFF; }));
}

TEST_F(BootLoaderTest, StartTellsTheKernelTheSystem) {
  write_flags([](BootRecord& r) { r.set_boot_to(System::b); });
  partition("kernel").set_write_protected(false);
  sim::boot(device());
  EXPECT_EQ(cmdline(), "console=ttyS0,115200 system=system_b rootwait\n");
  EXPECT_EQ(device().running(), System::b);
  EXPECT_TRUE(partition("kernel").write_protected());
  EXPECT_EQ(device().power(), sim::Power::on);
}

TEST_F(BootLoaderTest, WritesNothingForASuccessfulSystem) {
  write_flags([](BootRecord& r) { r.set_status(System::a, sim::kStatusSuccessful); });
  EXPECT_FALSE(sim::boot(device()).record_written);
  EXPECT_EQ(device().flash_operations(), 0U);
}

TEST_F(BootLoaderTest, ResetsTheAttemptsOfASuccessfulSystem) {
  write_flags([](BootRecord& r) {
    r.set_status(System::a, sim::kStatusSuccessful);
    r.set_attempts(System::a, 9);
  });
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(copy(0).attempts(System::a), 0);
}

TEST_F(BootLoaderTest, NextBootWritesNothing) {
  write_flags();
  EXPECT_EQ(sim::next_boot(device()).started, System::a);
  EXPECT_EQ(device().flash_operations(), 0U);
  EXPECT_EQ(copy(0).attempts(System::a), 0);
}

TEST_F(BootLoaderTest, MendsABadCopy) {
  write_flags([](BootRecord& r) { r.set_status(System::a, sim::kStatusSuccessful); });
  BootRecord broken = copy(1);
  broken.set_word(28, 0);
  put(1, broken);
  EXPECT_TRUE(sim::boot(device()).record_written);
  EXPECT_EQ(copy(1).bytes, copy(0).bytes);
}

TEST_F(BootLoaderTest, MainCopyWins) {
  write_flags([](BootRecord& r) { r.set_status(System::b, sim::kStatusSuccessful); });
  BootRecord other = copy(1);
  other.set_boot_to(System::b);
  put(0, other);
  EXPECT_EQ(sim::boot(device()).started, System::b);
  EXPECT_EQ(copy(1).boot_to(), sim::kBootToB);
}

TEST_F(BootLoaderTest, NeedsBothMagicWords) {
  write_flags();
  BootRecord main = copy(0);
  main.set_boot_to(System::b);
  main.set_word(28, 0x464C4148);
  put(0, main);
  EXPECT_EQ(sim::boot(device()).started, System::a);
}

TEST_F(BootLoaderTest, SkipsBadBlocks) {
  for (const std::uint32_t block : {0U, 2U, 3U}) {
    partition("flags").set_bad(block);
  }
  write_flags([](BootRecord& r) { r.set_boot_to(System::b); });
  EXPECT_EQ(sim::boot(device()).started, System::b);
  EXPECT_EQ(copy(1).attempts(System::b), 1);
  EXPECT_EQ(copy(4).attempts(System::b), 1);
}

TEST_F(BootLoaderTest, LivesWithALoneGoodBlock) {
  for (std::uint32_t block = 1; block < partition("flags").blocks(); ++block) {
    partition("flags").set_bad(block);
  }
  write_flags();
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(copy(0).attempts(System::a), 1);
}

TEST_F(BootLoaderTest, MovesOnFromABlockThatTurnsBad) {
  allow_rule_breaks();
  write_flags();
  partition("flags").set_erase_defect(0, sim::EraseDefect::turns_bad_fails);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(copy(1).attempts(System::a), 1);
  EXPECT_EQ(copy(2).attempts(System::a), 1);
}

TEST_F(BootLoaderTest, LivesWithAWornBlock) {
  write_flags();
  partition("flags").set_erase_defect(0, sim::EraseDefect::worn);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_FALSE(copy(0).valid());
  EXPECT_EQ(copy(1).attempts(System::a), 1);
}

TEST_F(BootLoaderTest, FallsBackWhenAttemptsAreUsedUp) {
  write_flags([](BootRecord& r) {
    r.set_boot_to(System::b);
    r.set_status(System::a, sim::kStatusSuccessful);
  });
  const auto history = sim::boot_until_up(device(), {System::b});
  ASSERT_TRUE(history.up);
  ASSERT_EQ(history.boots.size(), kMostAttempts + 1U);
  for (int i = 0; i < kMostAttempts; ++i) {
    EXPECT_EQ(history.boots[static_cast<std::size_t>(i)].started, System::b);
  }
  EXPECT_EQ(history.boots.back().started, System::a);
  EXPECT_EQ(copy(0).boot_to(), sim::kBootToA);
  EXPECT_EQ(copy(0).attempts(System::b), 0) << "the next system installed there has all attempts";
  EXPECT_EQ(copy(0).status(System::b), sim::kStatusBootable);
}

TEST_F(BootLoaderTest, TakesTurnsAsTheLastResort) {
  write_flags([](BootRecord& r) {
    r.set_status(System::a, sim::kStatusUnbootable);
    r.set_status(System::b, sim::kStatusUnbootable);
  });
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(sim::boot(device()).started, System::b);
  EXPECT_EQ(sim::boot(device()).started, System::a);
}

TEST_F(BootLoaderTest, GivesUpAfterTheLimit) {
  write_flags();
  const auto history = sim::boot_until_up(device(), {System::a, System::b}, 5);
  EXPECT_FALSE(history.up);
  EXPECT_EQ(history.boots.size(), 5U);
}

TEST_F(BootLoaderTest, IsNotHeldBackByWriteProtection) {
  write_flags();
  ASSERT_TRUE(partition("flags").write_protected());
  sim::boot(device());
  EXPECT_EQ(copy(0).attempts(System::a), 1);
}

// --- Every state of both copies and of both systems. --------------------------------------------

struct SystemState {
  std::int32_t status;
  int attempts;
  Health health;
};

const std::vector<SystemState>& system_states() {
  static const std::vector<SystemState> states = {
      {sim::kStatusSuccessful, 0, Health::successful},
      {sim::kStatusSuccessful, kMostAttempts, Health::successful},
      {sim::kStatusBootable, 0, Health::bootable},
      {sim::kStatusBootable, kMostAttempts - 1, Health::bootable},
      {sim::kStatusBootable, -5, Health::bootable},
      {sim::kStatusBootable, kMostAttempts, Health::used_up},
      {sim::kStatusBootable, 0x7FFFFFFF, Health::used_up},
      {sim::kStatusUnbootable, 0, Health::unbootable},
      {sim::kStatusUnbootable, kMostAttempts, Health::unbootable},
      {0x1234, 0, Health::unknown},
      {-1, kMostAttempts, Health::used_up},
  };
  return states;
}

constexpr std::uint32_t kOddTarget = 0x55AA;

class EveryState : public BootLoaderTest {
 protected:
  // Calls `body` for each pair of system states and each boot target.
  template <typename Body>
  void for_each_record(Body body) {
    for (const SystemState& a : system_states()) {
      for (const SystemState& b : system_states()) {
        for (const std::uint32_t target : {sim::kBootToA, sim::kBootToB, kOddTarget}) {
          BootRecord r = record(System::a, a.status, a.attempts, b.status, b.attempts);
          r.set_word(4, target);
          body(r, a, b);
        }
      }
    }
  }
  void put_both(const BootRecord& main, bool main_valid, bool backup_valid) {
    BootRecord broken = main;
    broken.set_word(0, 0);
    put(0, main_valid ? main : broken);
    put(1, backup_valid ? main : broken);
  }
};

TEST_F(EveryState, IsDecidedByTheTable) {
  for_each_record([&](const BootRecord& r, const SystemState& a, const SystemState& b) {
    const bool wants_b = r.boot_to() == sim::kBootToB;
    const sim::BootRow& row =
        sim::boot_row(wants_b ? b.health : a.health, wants_b ? a.health : b.health);
    const System wanted = wants_b ? System::b : System::a;
    for (const int valid : {1, 2, 3}) {
      put_both(r, (valid & 1) != 0, (valid & 2) != 0);
      const BootResult result = sim::boot(device());
      ASSERT_EQ(result.row, &row);
      ASSERT_EQ(result.wanted, wanted);
      ASSERT_EQ(result.started, row.start == sim::Start::wanted ? wanted : sim::other(wanted));
      ASSERT_EQ(device().running(), result.started);
    }
  });
}

TEST_F(EveryState, NeverStartsUnbootableWhenThereIsAChoice) {
  for_each_record([&](const BootRecord& r, const SystemState& a, const SystemState& b) {
    put_both(r, true, true);
    const System started = sim::boot(device()).started;
    const Health chosen = started == System::a ? a.health : b.health;
    const Health left = started == System::a ? b.health : a.health;
    ASSERT_TRUE(chosen != Health::unbootable || left == Health::unbootable);
  });
}

// Only the boot target and the attempts are the boot loader's to change.
TEST_F(EveryState, LeavesTheRestOfTheRecordAlone) {
  for_each_record([&](BootRecord r, const SystemState&, const SystemState&) {
    r.set_fota_status(1);
    std::memset(r.bytes.data() + 36, 'x', 100);
    put_both(r, true, true);
    sim::boot(device());
    BootRecord after = copy(0);
    ASSERT_EQ(copy(1).bytes, after.bytes);
    for (const std::size_t own : {4U, 16U, 24U}) {
      after.set_word(own, r.word(own));
    }
    ASSERT_EQ(after.bytes, r.bytes);
  });
}

// Whatever the record says, a system that comes up is started sooner or later: unless it must not
// be booted, or the other one is marked as one that does come up.
TEST_F(EveryState, ASystemThatComesUpIsFound) {
  for_each_record([&](const BootRecord& r, const SystemState& a, const SystemState& b) {
    for (const System dead : {System::a, System::b}) {
      const Health of_dead = dead == System::a ? a.health : b.health;
      const Health of_living = dead == System::a ? b.health : a.health;
      const bool allowed = of_living != Health::unbootable || of_dead == Health::unbootable;
      if (!allowed || of_dead == Health::successful) {
        continue;
      }
      put_both(r, true, true);
      const auto history = sim::boot_until_up(device(), {dead}, 3 * kMostAttempts);
      ASSERT_TRUE(history.up) << "status " << a.status << " " << b.status << " attempts "
                              << a.attempts << " " << b.attempts << " target " << r.boot_to();
    }
  });
}

TEST_F(EveryState, WithoutAValidCopyIsStartedInA) {
  for_each_record([&](const BootRecord& r, const SystemState&, const SystemState&) {
    put_both(r, false, false);
    ASSERT_EQ(sim::boot(device()).started, System::a);
  });
}

// --- Power cuts while the boot loader writes. ---------------------------------------------------

class BootLoaderCut : public BootLoaderTest {
 protected:
  // Cuts the power at every flash operation of one boot; a valid copy must always be left.
  void cut_everywhere(const std::function<void()>& prepare) {
    prepare();
    const sim::Device::Snapshot before = device().snapshot();
    sim::boot(device());
    const std::uint64_t operations = device().flash_operations();
    ASSERT_GT(operations, 0U);
    for (const sim::CutKind kind :
         {sim::CutKind::before, sim::CutKind::after, sim::CutKind::torn, sim::CutKind::unstable}) {
      for (std::uint64_t at = 1; at <= operations; ++at) {
        device().restore(before);
        sim::PowerCut cut;
        cut.at = at;
        cut.kind = kind;
        cut.byte = 40;
        device().faults().set_power_cut(cut);
        ASSERT_TRUE(support::in_child([&] { return sim::boot(device()), 0; }).power_cut);
        const auto* left = sim::read_records(device()).chosen();
        ASSERT_NE(left, nullptr) << sim::cut_name(kind) << " at " << at;
        ASSERT_EQ(sim::boot(device()).started, System::b) << sim::cut_name(kind) << " at " << at;
        ASSERT_EQ(copy(0).bytes, copy(1).bytes);
      }
    }
  }
  void want_b() {
    write_flags([](BootRecord& r) { r.set_boot_to(System::b); });
  }
};

TEST_F(BootLoaderCut, LeavesAValidCopy) {
  cut_everywhere([this] { want_b(); });
}

TEST_F(BootLoaderCut, LeavesAValidCopyWhenTheBackupWasBad) {
  cut_everywhere([this] {
    want_b();
    BootRecord broken = copy(1);
    broken.set_word(0, 0xFFFFFFFF);
    put(1, broken);
  });
}

TEST_F(BootLoaderCut, LeavesAValidCopyWhenTheMainWasBad) {
  cut_everywhere([this] {
    want_b();
    BootRecord broken = copy(0);
    broken.set_word(28, 0xFFFFFFFF);
    put(0, broken);
  });
}

}  // namespace
