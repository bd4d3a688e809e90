// SPDX-License-Identifier: Apache-2.0
//
// The host's boot control.
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "tests/unit/flags_test.h"
#include "vemk_fota_ab_upgrade.h"

namespace unit {
namespace {

using support::logged;

constexpr int kA = 0x875A;
constexpr int kB = 0x986B;
constexpr int kBootable = 0xB0AB;
constexpr int kUnbootable = 0xBABE;

const Lines kNothingValid =
    found_flags() + line("get_info_from_img_boot_flag", "Do not find valid flag info!");

class BootControlTest : public FlagsTest {
 protected:
  void put_both(const sim::BootRecord& record) {
    put(0, record);
    put(1, record);
  }
  void expect_both(const sim::BootRecord& record) {
    expect_copy(0, record);
    expect_copy(1, record);
  }
  std::uint64_t writes() { return flags().count(sim::Op::write); }
};

// --- The running system. ------------------------------------------------------------------------

TEST_F(BootControlTest, CurrentSystemIsACode) {
  device().set_running(sim::System::a);
  EXPECT_EQ(vemk_dual_get_current_system(), 34650);
  device().set_running(sim::System::b);
  EXPECT_EQ(vemk_dual_get_current_system(), 39019);
}

TEST_F(BootControlTest, CurrentSystemMayBeUnknown) {
  device().write_file("/proc/cmdline", "console=ttyS0\n");
  EXPECT_EQ(vemk_dual_get_current_system(), -1);
  device().remove_file("/proc/cmdline");
  EXPECT_EQ(vemk_dual_get_current_system(), -1);
}

TEST_F(BootControlTest, CurrentSystemSaysNothingOfItsOwn) {
  device().write_file("/proc/cmdline", "system=system_b\n");
  const Lines lines = logged([] { EXPECT_EQ(vemk_dual_get_current_system(), kB); });
  for (const LogLine& line : lines) {
    EXPECT_EQ(line.function, "upi_get_current_system");
  }
  EXPECT_EQ(lines.size(), 4U);
  EXPECT_EQ(flags().count(sim::Op::open), 0U);
}

// --- The boot target. ---------------------------------------------------------------------------

TEST_F(BootControlTest, BootTargetIsTheRecords) {
  put_both(with(sample_record(1), kBootTo, kA));
  EXPECT_EQ(logged([] { EXPECT_EQ(vemk_dual_get_boot_to_system(), kA); }), found_flags());
  put_both(sample_record(1));
  EXPECT_EQ(vemk_dual_get_boot_to_system(), kB);
}

TEST_F(BootControlTest, BootTargetNeedsAValidCopy) {
  EXPECT_EQ(logged([] { EXPECT_EQ(vemk_dual_get_boot_to_system(), -1); }),
            kNothingValid + line("upi_get_boot_flag", "get flag info fail~") +
                line("vemk_dual_get_boot_to_system", "Get get system status fail"));
}

// --- The whole record. --------------------------------------------------------------------------

TEST_F(BootControlTest, SystemStatusIsTheRecordAsTheHostSeesIt) {
  put_both(with(sample_record(1), kStatusA, static_cast<std::uint32_t>(kBootable)));
  z_upgrade_system_info_t info;
  std::memset(&info, 0x5A, sizeof info);
  const Lines lines = logged([&] { EXPECT_EQ(vemk_dual_get_system_status(&info), 0); });
  EXPECT_EQ(info.boot_to, kB);
  EXPECT_EQ(info.fota_status, 101);
  EXPECT_EQ(info.system_1.system, kA);
  EXPECT_EQ(info.system_1.status, kBootable);
  EXPECT_EQ(info.system_1.try_cnt, 301);
  EXPECT_EQ(info.system_2.system, kB);
  EXPECT_EQ(info.system_2.status, 401);
  EXPECT_EQ(info.system_2.try_cnt, 501);
  const auto said = [](const std::string& message) {
    return LogLine{"vemk_dual_get_system_status", message};
  };
  EXPECT_EQ(lines, found_flags() + said("dual get system info:") + said("dual boot to:39019") +
                       said("dual fota stauts:101") +
                       said("dual get system 1 status:0x0000B0AB[45227]") +
                       said("dual get system 1 try_cnt:301") +
                       said("dual get system 2 status:0x00000191[401]") +
                       said("dual get system 2 try_cnt:501"));
}

TEST_F(BootControlTest, SystemStatusShowsWhateverTheBootLoaderStored) {
  put_both(with(with(sample_record(1), kStatusA, 0xFFFFFFFE), kAttemptsB, 0x80000000));
  z_upgrade_system_info_t info{};
  const Lines lines = logged([&] { EXPECT_EQ(vemk_dual_get_system_status(&info), 0); });
  EXPECT_EQ(info.system_1.status, -2);
  EXPECT_EQ(lines.at(5).message, "dual get system 1 status:0xFFFFFFFE[-2]");
  EXPECT_EQ(lines.at(8).message, "dual get system 2 try_cnt:-2147483648");
}

TEST_F(BootControlTest, SystemStatusLeavesTheRecordAloneOnFailure) {
  z_upgrade_system_info_t info;
  std::memset(&info, 0x5A, sizeof info);
  const z_upgrade_system_info_t before = info;
  EXPECT_EQ(logged([&] { EXPECT_EQ(vemk_dual_get_system_status(&info), -1); }),
            kNothingValid + line("upi_get_system_info", "get flag info fail~") +
                line("vemk_dual_get_system_status", "Get get system status fail"));
  EXPECT_EQ(std::memcmp(&info, &before, sizeof info), 0);
}

TEST(SystemInfo, HasItsLayout) {
  EXPECT_EQ(offsetof(z_upgrade_system_info_t, boot_to), 0U);
  EXPECT_EQ(offsetof(z_upgrade_system_info_t, fota_status), 4U);
  EXPECT_EQ(offsetof(z_upgrade_system_info_t, system_1), 8U);
  EXPECT_EQ(offsetof(z_upgrade_system_info_t, system_2), 20U);
  EXPECT_EQ(offsetof(z_system_info_t, system), 0U);
  EXPECT_EQ(offsetof(z_system_info_t, status), 4U);
  EXPECT_EQ(offsetof(z_system_info_t, try_cnt), 8U);
  EXPECT_EQ(sizeof(z_upgrade_system_info_t), 32U);
}

// --- Choosing the boot target. ------------------------------------------------------------------

TEST_F(BootControlTest, SetTargetChangesTargetAndFotaStatusAlone) {
  put_both(with(sample_record(1), kBootTo, kA));
  const Lines lines = settled_log([] { EXPECT_EQ(vemk_dual_set_boot_to_system(kB, 0), 0); });
  expect_both(with(with(sample_record(1), kBootTo, kB), kFotaStatus, 1));
  EXPECT_EQ(lines,
            found_flags() +
                line("upi_set_system_boot_to", "Set boot to 39019, current flag is :34650~") +
                rewritten() + line("upi_set_system_boot_to", "Set system boot to success"));
  EXPECT_EQ(device().power(), sim::Power::on);
}

TEST_F(BootControlTest, SetTargetToTheSameLeavesFotaStatus) {
  put_both(with(sample_record(1), kFotaStatus, 0));
  EXPECT_EQ(vemk_dual_set_boot_to_system(kB, 0), 0);
  expect_both(with(sample_record(1), kFotaStatus, 0));
}

TEST_F(BootControlTest, SetTargetTakesCodesOnly) {
  put_both(sample_record(1));
  for (const int system : {1, 2, 0, -1}) {
    Lines lines;
    const Requests requests = requests_of(
        [&] { lines = logged([&] { EXPECT_EQ(vemk_dual_set_boot_to_system(system, 1), -1); }); });
    EXPECT_EQ(
        lines,
        (Lines{{"vemk_dual_set_boot_to_system", "Invalid system :" + std::to_string(system)}}));
    EXPECT_TRUE(requests.empty());
  }
  EXPECT_EQ(device().power(), sim::Power::on);
}

TEST_F(BootControlTest, SetTargetRebootsAfterTheRecordIsWritten) {
  put_both(with(sample_record(1), kBootTo, kA));
  const sim::Recording recording;
  EXPECT_EQ(vemk_dual_set_boot_to_system(kB, 1), 0);
  EXPECT_EQ(device().power(), sim::Power::rebooting);
  const auto reboots = recording.calls(sim::Op::reboot);
  ASSERT_EQ(reboots.size(), 1U);
  EXPECT_EQ(reboots[0].text, "reboot");
  bool rebooted = false;
  for (const sim::Call& call : recording.calls()) {
    rebooted = rebooted || call.op == sim::Op::reboot;
    EXPECT_FALSE(rebooted && call.partition == "flags");
  }
  expect_both(with(with(sample_record(1), kBootTo, kB), kFotaStatus, 1));
}

TEST_F(BootControlTest, SetTargetRebootsForExactlyOneOnly) {
  for (const int flag : {0, 2, -1, 257}) {
    put_both(with(sample_record(1), kBootTo, kA));
    EXPECT_EQ(vemk_dual_set_boot_to_system(kB, flag), 0);
    EXPECT_EQ(vemk_dual_get_boot_to_system(), kB);
    EXPECT_EQ(device().count(sim::Op::reboot), 0U) << flag;
  }
}

TEST_F(BootControlTest, SetTargetThatFailsDoesNotReboot) {
  EXPECT_EQ(settled_log([] { EXPECT_EQ(vemk_dual_set_boot_to_system(kB, 1), -1); }),
            found_flags() + line("upi_set_system_boot_to", "Get boot flag invalid") +
                line("vemk_dual_set_boot_to_system", "Set system fail"));
  put_both(sample_record(1));
  fail_always(sim::Op::protect_lift, EIO);
  EXPECT_EQ(vemk_dual_set_boot_to_system(kA, 1), -1);
  EXPECT_EQ(device().count(sim::Op::reboot), 0U);
}

// --- Health of a system. ------------------------------------------------------------------------

TEST_F(BootControlTest, SetStatusGoesToTheNamedSystem) {
  put_both(sample_record(1));
  EXPECT_EQ(settled_log([] { EXPECT_EQ(vemk_dual_set_system_status(kB, kUnbootable), 0); }),
            found_flags() + line("upi_set_system_status", "Set 39019 system status to 47806") +
                line("upi_set_system_status", "Current status:system1:201 system2:47806") +
                rewritten() + line("upi_set_system_status", "Set system status success"));
  expect_both(with(sample_record(1), kStatusB, kUnbootable));
}

TEST_F(BootControlTest, SetStatusTellsTheSystemInHexadecimal) {
  EXPECT_EQ(logged([] { EXPECT_EQ(vemk_dual_set_system_status(kB, 5), -1); }),
            (Lines{{"upi_set_system_status",
                    "Invalide status:5, valid is:bootable(45227), successful(23759), "
                    "unbootable(47806)"},
                   {"vemk_dual_set_system_status", "Set syste [0x0000986B] status [5] error!"}}));
  EXPECT_EQ(
      logged([] { EXPECT_EQ(vemk_dual_set_system_status(1, kBootable), -1); }),
      (Lines{{"upi_set_system_status", "Invalid system :1"},
             {"vemk_dual_set_system_status", "Set syste [0x00000001] status [45227] error!"}}));
  EXPECT_EQ(flags().count(sim::Op::open), 0U);
}

TEST_F(BootControlTest, SetStatusFailsWithoutAValidCopy) {
  EXPECT_EQ(
      logged([] { EXPECT_EQ(vemk_dual_set_system_status(kA, kBootable), -1); }),
      found_flags() + line("upi_set_system_status", "Get boot flag invalid") +
          line("vemk_dual_set_system_status", "Set syste [0x0000875A] status [45227] error!"));
}

// --- fota_status, under both names. -------------------------------------------------------------

TEST_F(BootControlTest, OldNamesAreTheSameEntryPoints) {
  EXPECT_EQ(&vemk_dual_get_fota_status_for_nv, &dual_AB_get_fota_status_for_nv);
  EXPECT_EQ(&vemk_dual_set_fota_status_for_nv, &dual_AB_set_fota_status_for_nv);
}

class FotaStatusTest : public BootControlTest, public ::testing::WithParamInterface<bool> {
 protected:
  static int get() {
    return GetParam() ? dual_AB_get_fota_status_for_nv() : vemk_dual_get_fota_status_for_nv();
  }
  static int set(int status) {
    return GetParam() ? dual_AB_set_fota_status_for_nv(status)
                      : vemk_dual_set_fota_status_for_nv(status);
  }
};

std::string name_of(const ::testing::TestParamInfo<bool>& old_names) {
  return old_names.param ? "dual_AB" : "vemk_dual";
}

INSTANTIATE_TEST_SUITE_P(Names, FotaStatusTest, ::testing::Bool(), name_of);

TEST_P(FotaStatusTest, IsTheRecordsAndNotTheStores) {
  device().store().put("fota_ab_upgrade_status", "55");
  put_both(sample_record(1));
  EXPECT_EQ(logged([] { EXPECT_EQ(get(), 101); }), found_flags());
}

TEST_P(FotaStatusTest, IsNotThereWithoutAValidCopy) {
  EXPECT_EQ(logged([] { EXPECT_EQ(get(), -1); }),
            kNothingValid + line("upi_get_system_fota_status", "get flag info fail~"));
}

TEST_P(FotaStatusTest, IsSetInBothCopies) {
  put_both(sample_record(1));
  for (const int status : {1, 0}) {
    EXPECT_EQ(settled_log([&] { EXPECT_EQ(set(status), 0); }),
              found_flags() + rewritten() +
                  line("upi_set_system_fota_stauts", "Set system boot to success"));
    expect_both(with(sample_record(1), kFotaStatus, static_cast<std::uint32_t>(status)));
    EXPECT_EQ(get(), status);
  }
  EXPECT_TRUE(sim::store_sets().empty());
}

TEST_P(FotaStatusTest, IsNotWrittenWhenItIsThere) {
  put_both(with(sample_record(1), kFotaStatus, 1));
  EXPECT_EQ(set(1), 0);
  EXPECT_EQ(writes(), 0U);
}

TEST_P(FotaStatusTest, TakesZeroAndOneOnly) {
  put_both(sample_record(1));
  EXPECT_EQ(logged([] { EXPECT_EQ(set(2), -1); }),
            (Lines{{"upi_set_system_fota_stauts", "Invalid status :2"}}));
  EXPECT_EQ(set(-1), -1);
  EXPECT_EQ(writes(), 0U);
}

// --- A fresh partition. -------------------------------------------------------------------------

TEST_F(BootControlTest, InitWritesAFreshRecord) {
  put_both(sample_record(1));
  const Lines lines = logged([] { EXPECT_EQ(vemk_init_flag_partition(), 0); });
  EXPECT_EQ(lines.front(),
            (LogLine{"init_fotaflag_partition", "init_fotaflag_partition func begin!"}));
  EXPECT_EQ(lines.back(), (LogLine{"init_fotaflag_partition",
                                   "Init system status success, alread write block :8"}));
  z_upgrade_system_info_t info{};
  ASSERT_EQ(vemk_dual_get_system_status(&info), 0);
  EXPECT_EQ(info.boot_to, kA);
  EXPECT_EQ(info.fota_status, 0);
  EXPECT_EQ(info.system_1.status, kBootable);
  EXPECT_EQ(info.system_1.try_cnt, 0);
  EXPECT_EQ(info.system_2.status, kBootable);
  EXPECT_EQ(info.system_2.try_cnt, 0);
}

TEST_F(BootControlTest, InitFailsWithOneGoodBlock) {
  use_flags(3, {0, 2});
  EXPECT_EQ(vemk_init_flag_partition(), -1);
}

// --- The record and the boot loader. ------------------------------------------------------------

TEST_F(BootControlTest, BootLoaderStartsTheChosenSystem) {
  use_flags(6, {0, 2});
  EXPECT_EQ(vemk_init_flag_partition(), 0);
  EXPECT_EQ(vemk_dual_set_boot_to_system(kB, 1), 0);
  EXPECT_EQ(sim::boot(device()).started, sim::System::b);
  EXPECT_EQ(vemk_dual_get_current_system(), kB);
  EXPECT_EQ(vemk_dual_get_fota_status_for_nv(), 1);
  EXPECT_EQ(vemk_dual_set_system_status(kB, kUnbootable), 0);
  EXPECT_EQ(sim::boot(device()).started, sim::System::a);
  EXPECT_EQ(vemk_dual_get_current_system(), kA);
}

}  // namespace
}  // namespace unit
