// SPDX-License-Identifier: Apache-2.0
//
// A host that defines every function which the library exports besides the ones it is called by.
// The library keeps calling its own; only the configuration store is the host's.
#include <dlfcn.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/device_test.h"
#include "tests/support/package_file.h"
#include "vemk_fota_ab_upgrade.h"

namespace {

std::vector<std::string>& called() {
  static std::vector<std::string> names;
  return names;
}

std::map<std::string, std::string>& store() {
  static std::map<std::string, std::string> values;
  return values;
}

int g_saves = 0;

}  // namespace

extern "C" {

// The generated stand-ins call this.
int host_was_called(const char* name) {
  called().push_back(name);
  return -1;
}

int upi_verify(void);
int hash_compare(void);

int sc_cfg_set(const char* name, const char* value) {
  store()[name] = value;
  return 0;
}

int sc_cfg_save(void) {
  ++g_saves;
  return 0;
}

int sc_cfg_get(const char* name, char* value, int size) {
  const auto found = store().find(name);
  if (found != store().end()) {
    static_cast<void>(
        std::snprintf(value, static_cast<std::size_t>(size), "%s", found->second.c_str()));
  }
  return 0;
}

}  // extern "C"

namespace {

class HostNamesTest : public support::DeviceTest {
 protected:
  HostNamesTest() {
    called().clear();
    store().clear();
    g_saves = 0;
    write_flags();
    device().write_file(support::kPackagePath, support::system_package(3000).bytes());
  }
  static int quiet(const std::function<int()>& call) {
    int result = 0;
    static_cast<void>(support::printed([&] { result = call(); }));
    return result;
  }
};

// What the other tests rely on: a call by these names outside the library reaches the host.
TEST_F(HostNamesTest, AreTheHostsForTheHostAndForWhoeverLooksThemUp) {
  upi_verify();
  hash_compare();
  EXPECT_EQ(called(), (std::vector<std::string>{"upi_verify", "hash_compare"}));
  auto* const found = reinterpret_cast<int (*)()>(dlsym(RTLD_DEFAULT, "mtd_find"));
  ASSERT_NE(found, nullptr);
  found();
  EXPECT_EQ(called().back(), "mtd_find");
}

TEST_F(HostNamesTest, DoNotReachIntoAnUpgrade) {
  EXPECT_EQ(quiet(vemk_dual_get_upgrade_type), 0);
  EXPECT_EQ(quiet(vemk_dual_verify), 0);
  EXPECT_EQ(quiet([] { return vemk_dual_upgrade(nullptr); }), 0);
  EXPECT_EQ(called(), std::vector<std::string>{});
  EXPECT_EQ(partition("kernel2").block(0), support::pattern(2048, 101));
}

TEST_F(HostNamesTest, DoNotReachIntoASynchronisation) {
  partition("kernel").flash(support::pattern(5000));
  EXPECT_EQ(quiet(vemk_dual_sync_system), 0);
  EXPECT_EQ(called(), std::vector<std::string>{});
  EXPECT_EQ(partition("kernel2").raw(), partition("kernel").raw());
}

TEST_F(HostNamesTest, DoNotReachIntoBootControl) {
  z_upgrade_system_info_t info{};
  EXPECT_EQ(quiet(vemk_init_flag_partition), 0);
  EXPECT_EQ(quiet([] { return vemk_dual_set_boot_to_system(DUAL_SYSTEM2, 1); }), 0);
  EXPECT_EQ(device().power(), sim::Power::rebooting);
  EXPECT_EQ(
      quiet([] { return vemk_dual_set_system_status(DUAL_SYSTEM, DUALSYSTEM_STATUS_SUCCESSFUL); }),
      0);
  EXPECT_EQ(quiet([&] { return vemk_dual_get_system_status(&info); }), 0);
  EXPECT_EQ(info.system_1.status, DUALSYSTEM_STATUS_SUCCESSFUL);
  EXPECT_EQ(quiet(dual_AB_get_fota_status_for_nv), 1);
  EXPECT_EQ(quiet([] { return dual_AB_set_fota_status_for_nv(0); }), 0);
  EXPECT_EQ(quiet(vemk_dual_get_boot_to_system), DUAL_SYSTEM2);
  EXPECT_EQ(quiet(vemk_dual_get_current_system), DUAL_SYSTEM);
  EXPECT_EQ(called(), std::vector<std::string>{});
}

TEST_F(HostNamesTest, TheStoreIsTheHosts) {
  EXPECT_EQ(quiet([] { return vemk_dual_upgrade(nullptr); }), 0);
  EXPECT_EQ(quiet([] { return vemk_dual_set_sync_status(SYNC_STATUS_SYNCING); }), 0);
  EXPECT_EQ(store(), (std::map<std::string, std::string>{{"fota_ab_upgrade_status", "4"},
                                                         {"fota_ab_upgrade_total_size", "9000"},
                                                         {"fota_ab_upgrade_updated_size", "9000"},
                                                         {"fota_ab_aa_sync_status", "1"}}));
  // Status, both sizes; status, total; three times status and size; status; sync status.
  EXPECT_EQ(g_saves, 3 + 2 + 3 * 2 + 1 + 1);

  store()["fota_ab_upgrade_total_size"] = "123456";
  z_upgrade_status_info_t status{};
  EXPECT_EQ(vemk_dual_get_upgrade_status(&status), 0);
  EXPECT_EQ(status.total_size, 123456);
  EXPECT_TRUE(sim::store_sets().empty());
}

}  // namespace
