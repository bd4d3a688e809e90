// SPDX-License-Identifier: Apache-2.0
//
// Operations on the boot flag record in which any one request fails: a record that counts is left,
// and it is the old one or the new one.
#include <tuple>

#include "operations.h"

namespace {

using sim::Op;

// What a finished operation makes of the record.
using Change = std::function<void(sim::BootRecord&)>;

struct FlagsOperation {
  Operation operation;
  Change change;  // none: it stays as it is
  bool only_reads = false;
};

const std::vector<FlagsOperation> kOperations = {
    {kSetBootToSystem,
     [](sim::BootRecord& record) {
       record.set_boot_to(sim::System::b);
       record.set_fota_status(1);
     }},
    {{"SetBootToSystemAndReboot", [] { return vemk_dual_set_boot_to_system(DUAL_SYSTEM, 1); },
      [](reference::Library& library) { return library.set_boot_to_system(DUAL_SYSTEM, 1); }},
     [](sim::BootRecord& record) { record.set_boot_to(sim::System::a); }},
    {kSetSystemStatus,
     [](sim::BootRecord& record) {
       record.set_status(sim::System::a, DUALSYSTEM_STATUS_UNBOOTABLE);
     }},
    {kSetFotaStatus, [](sim::BootRecord& record) { record.set_fota_status(1); }},
    {{"SetFotaStatusThatIs", [] { return dual_AB_set_fota_status_for_nv(0); },
      [](reference::Library& library) { return library.set_fota_status(0); }},
     {}},
    {kInitFlags, [](sim::BootRecord& record) { record = sim::factory_record(); }},
    {{"GetBootToSystem", [] { return vemk_dual_get_boot_to_system(); },
      [](reference::Library& library) { return library.boot_to_system(); }},
     {},
     true},
    {{"GetSystemStatus",
      [] {
        z_upgrade_system_info_t info{};
        return vemk_dual_get_system_status(&info);
      },
      [](reference::Library& library) { return library.system_status(); }},
     {},
     true},
    {{"GetFotaStatus", [] { return vemk_dual_get_fota_status_for_nv(); },
      [](reference::Library& library) { return library.fota_status(); }},
     {},
     true},
    {{"GetCurrentSystem", [] { return vemk_dual_get_current_system(); },
      [](reference::Library& library) { return library.current_system(); }},
     {},
     true},
};

// How the "flags" partition is before the operation.
struct State {
  std::string name;
  std::vector<std::uint32_t> bad;
  std::function<void(sim::Partition&)> change;
};

void spoil_word(sim::Partition& flags, std::uint32_t block, std::uint32_t offset) {
  flags.poke(std::uint64_t{block} * flags.block_size() + offset, {0x00});
}

const std::vector<State> kStates = {
    {"Fresh", {}, {}},
    {"FirstBlockBad", {0}, {}},
    {"SecondBlockBad", {1}, {}},
    {"RowOfBadBlocks", {0, 1, 2}, {}},
    {"BadBlockBetween", {1, 3}, {}},
    {"OnlyTwoGoodBlocks", {0, 1, 2, 4, 5, 6, 7, 8}, {}},
    {"MainSpoilt", {}, [](sim::Partition& flags) { spoil_word(flags, 0, 0); }},
    {"BackupSpoilt", {}, [](sim::Partition& flags) { spoil_word(flags, 1, 0); }},
};
// Without a copy that counts, without room for two, or with a main copy that only setters take.
const std::vector<State> kLostStates = {
    {"MainHalfSpoilt", {}, [](sim::Partition& flags) { spoil_word(flags, 0, 28); }},
    {"OneGoodBlock", {0, 1, 2, 3, 5, 6, 7, 8, 9}, {}},
    {"NoGoodBlock", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, {}},
    {"Erased", {}, [](sim::Partition& flags) { flags.wipe(); }},
    {"BothSpoilt",
     {},
     [](sim::Partition& flags) {
       spoil_word(flags, 0, 0);
       spoil_word(flags, 1, 0);
     }},
    {"BothHalfSpoilt",
     {},
     [](sim::Partition& flags) {
       spoil_word(flags, 0, 28);
       spoil_word(flags, 1, 28);
     }},
};

class FlagsSweepTest
    : public FaultSweep,
      public ::testing::WithParamInterface<std::tuple<sim::System, FlagsOperation>> {
 protected:
  static sim::System running() { return std::get<0>(GetParam()); }
  static const FlagsOperation& swept() { return std::get<1>(GetParam()); }

  void use_state(const State& state) {
    use_defective_device(running(), "flags", {state.name, true, [&](sim::Partition& flags) {
                                                for (const std::uint32_t block : state.bad) {
                                                  flags.set_bad(block);
                                                }
                                              }});
    if (state.change) {
      sim::Partition flags = partition("flags");
      state.change(flags);
    }
  }

  // Whether a copy is left that counts, with everything of the old record or of the new one.
  void expect_old_or_new(const LibraryRun& run) {
    const sim::BootRecord before = old_;
    sim::BootRecord after = before;
    if (swept().change) {
      swept().change(after);
    }
    const sim::RecordCopies copies = sim::read_records(device());
    ASSERT_NE(copies.chosen(), nullptr) << "no copy is left";
    const auto& found = copies.chosen()->record.bytes;
    EXPECT_TRUE(found == before.bytes || found == after.bytes);
    EXPECT_TRUE(!swept().only_reads || run.made(Op::memerase).empty());
  }

  const sim::BootRecord old_ = [] {
    sim::BootRecord record = sim::factory_record();
    record.set_status(sim::other(running()), sim::kStatusSuccessful);
    return record;
  }();
};

TEST_P(FlagsSweepTest, KeepsARecordThatCounts) {
  for (const State& state : kStates) {
    SCOPED_TRACE(state.name);
    use_state(state);
    const auto faults = [&](const FaultPlace& place) {
      return state.name == "Fresh" ? faults_for(running(), place) : one_error_at(place);
    };
    const std::size_t kinds = sweep_all(swept().operation, faults,
                                        [this](const LibraryRun& run) { expect_old_or_new(run); });
    EXPECT_GE(kinds, 3U) << "kinds of requests";
  }
}

TEST_P(FlagsSweepTest, DoesWhatItHasToWithoutARecord) {
  for (const State& state : kLostStates) {
    SCOPED_TRACE(state.name);
    use_state(state);
    sweep_all(swept().operation, one_error_at, [](const LibraryRun& run) {
      EXPECT_TRUE(!swept().only_reads || run.made(Op::memerase).empty());
    });
  }
}

// Setters look at the first magic word only: what they take for a record goes into both copies.
class HalfSpoiltFlagsTest : public FaultSweep {};

TEST_F(HalfSpoiltFlagsTest, MakeASetterLoseTheGoodBackup) {
  use_small_device(sim::System::a);
  sim::Partition flags = partition("flags");
  spoil_word(flags, 0, 28);
  ASSERT_NE(sim::read_records(device()).chosen(), nullptr);

  EXPECT_EQ(run_library([] { return vemk_dual_set_fota_status_for_nv(1); }).result, 0);

  EXPECT_EQ(sim::read_records(device()).chosen(), nullptr);
  EXPECT_EQ(run_library([] { return vemk_dual_get_fota_status_for_nv(); }).result, -1);
}

TEST_P(FlagsSweepTest, SurvivesBlocksThatDie) {
  for (const auto& defects : {dying({0, 1, 2, 9}, 4), dying_in_a_row(10), dying_at_the_end(10)}) {
    for (const Defect& defect : defects) {
      SCOPED_TRACE(defect.name);
      use_defective_device(running(), "flags", defect);
      expect_same(swept().operation);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Of, FlagsSweepTest,
                         ::testing::Combine(::testing::Values(sim::System::a, sim::System::b),
                                            ::testing::ValuesIn(kOperations)),
                         [](const auto& sweep) {
                           return run_name(std::get<0>(sweep.param),
                                           std::get<1>(sweep.param).operation.name);
                         });

}  // namespace
