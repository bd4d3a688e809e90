// SPDX-License-Identifier: Apache-2.0
//
// Operations on the boot flag record in which any one request fails: a record that counts is left,
// and it is the old one or the new one.
#include <tuple>

#include "fault_sweep.h"
#include "upi_fotaflag_partition.h"
#include "vemk_fota_ab_upgrade.h"

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
    {{"SetBootToSystem", [] { return vemk_dual_set_boot_to_system(DUAL_SYSTEM2, 0); },
      [](reference::Library& library) { return library.set_boot_to_system(DUAL_SYSTEM2, 0); }},
     [](sim::BootRecord& record) {
       record.set_boot_to(sim::System::b);
       record.set_word(8, 1);
     }},
    {{"SetBootToSystemAndReboot", [] { return vemk_dual_set_boot_to_system(DUAL_SYSTEM, 1); },
      [](reference::Library& library) { return library.set_boot_to_system(DUAL_SYSTEM, 1); }},
     [](sim::BootRecord& record) { record.set_boot_to(sim::System::a); }},
    {{"SetSystemStatus",
      [] { return vemk_dual_set_system_status(DUAL_SYSTEM, DUALSYSTEM_STATUS_SUCCESSFUL); },
      [](reference::Library& library) {
        return library.set_system_status(DUAL_SYSTEM, DUALSYSTEM_STATUS_SUCCESSFUL);
      }},
     [](sim::BootRecord& record) {
       record.set_status(sim::System::a, DUALSYSTEM_STATUS_SUCCESSFUL);
     }},
    {{"SetFotaStatus", [] { return vemk_dual_set_fota_status_for_nv(1); },
      [](reference::Library& library) { return library.set_fota_status(1); }},
     [](sim::BootRecord& record) { record.set_word(8, 1); }},
    {{"SetFotaStatusThatIs", [] { return dual_AB_set_fota_status_for_nv(0); },
      [](reference::Library& library) { return library.set_fota_status(0); }},
     {}},
    {{"Init", [] { return vemk_init_flag_partition(); },
      [](reference::Library& library) { return library.init_flag_partition(); }},
     [](sim::BootRecord& record) { record = sim::factory_record(); }},
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

class FlagsSweepTest : public FaultSweep, public ::testing::WithParamInterface<FlagsOperation> {
 protected:
  FlagsSweepTest() { use_small_device(sim::System::a); }

  // A record that counts is found, with everything of the old one or everything of the new one.
  void expect_old_or_new(const LibraryRun& run) {
    const sim::BootRecord before = old_;
    sim::BootRecord after = before;
    if (GetParam().change) {
      GetParam().change(after);
    }
    const sim::RecordCopies copies = sim::read_records(device());
    ASSERT_NE(copies.chosen(), nullptr) << "no copy is left";
    const auto& found = copies.chosen()->record.bytes;
    EXPECT_TRUE(found == before.bytes || found == after.bytes);
    EXPECT_TRUE(!GetParam().only_reads || run.made(Op::memerase).empty());
  }

  const sim::BootRecord old_ = [] {
    sim::BootRecord record = sim::factory_record();
    record.set_status(sim::System::b, sim::kStatusSuccessful);
    return record;
  }();
};

TEST_P(FlagsSweepTest, KeepsARecordThatCounts) {
  const std::size_t kinds = sweep_all(GetParam().operation, faults_at,
                                      [this](const LibraryRun& run) { expect_old_or_new(run); });
  EXPECT_GE(kinds, 3U) << "kinds of requests";
}

INSTANTIATE_TEST_SUITE_P(Of, FlagsSweepTest, ::testing::ValuesIn(kOperations),
                         [](const auto& sweep) { return sweep.param.operation.name; });

}  // namespace
