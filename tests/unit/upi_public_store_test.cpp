// SPDX-License-Identifier: Apache-2.0
//
// The status store, on a configuration store of this program's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/support/device_test.h"
#include "upi_public.h"

namespace {

struct HostStore {
  std::map<std::string, std::string> values;
  std::vector<std::string> calls;  // "set name=value", "save", "get name"
  int result = 0;                  // what every call returns
  bool fills = false;              // get: leaves no terminator when the value fills the buffer
  bool buffer_was_clear = false;   // of the last get
  int buffer_size = 0;
};
HostStore g_store;

}  // namespace

extern "C" int sc_cfg_set(const char* name, const char* value) {
  g_store.calls.push_back(std::string("set ") + name + "=" + value);
  if (g_store.result == 0) {
    g_store.values[name] = value;
  }
  return g_store.result;
}

extern "C" int sc_cfg_save() {
  g_store.calls.emplace_back("save");
  return g_store.result;
}

extern "C" int sc_cfg_get(const char* name, char* value, int value_size) {
  g_store.calls.push_back(std::string("get ") + name);
  g_store.buffer_size = value_size;
  g_store.buffer_was_clear =
      std::all_of(value, value + value_size, [](char byte) { return byte == '\0'; });
  const auto found = g_store.values.find(name);
  if (found != g_store.values.end()) {
    const std::size_t size = found->second.size() + (g_store.fills ? 0 : 1);
    std::memcpy(value, found->second.c_str(), std::min(size, static_cast<std::size_t>(value_size)));
  }
  return g_store.result;
}

namespace {

using support::logged;
using support::LogLine;
using Lines = std::vector<LogLine>;
using Calls = std::vector<std::string>;

class StoreTest : public support::DeviceTest {
 protected:
  void SetUp() override { g_store = HostStore{}; }
};

std::string name_of(const char* name) {
  return name;
}

// --- Numbers. -----------------------------------------------------------------------------------

TEST_F(StoreTest, SetStoresDecimalTextAndSavesOnce) {
  std::string name = name_of("any_key");
  const Lines lines = logged([&] { EXPECT_EQ(upi_set_nv_int(name.data(), 1234), 0); });
  EXPECT_EQ(g_store.calls, (Calls{"set any_key=1234", "save"}));
  EXPECT_TRUE(lines.empty());
}

TEST_F(StoreTest, SetStoresEveryInt) {
  std::string name = name_of("k");
  upi_set_nv_int(name.data(), -1);
  upi_set_nv_int(name.data(), INT_MAX);
  upi_set_nv_int(name.data(), INT_MIN);
  upi_set_nv_int(name.data(), 0);
  EXPECT_EQ(g_store.calls, (Calls{"set k=-1", "save", "set k=2147483647", "save",
                                  "set k=-2147483648", "save", "set k=0", "save"}));
}

TEST_F(StoreTest, SetSavesAndSucceedsAlsoWhenTheStoreFails) {
  g_store.result = -1;
  std::string name = name_of("k");
  const Lines lines = logged([&] { EXPECT_EQ(upi_set_nv_int(name.data(), 5), 0); });
  EXPECT_EQ(g_store.calls, (Calls{"set k=5", "save"}));
  EXPECT_TRUE(lines.empty());
}

TEST_F(StoreTest, GetAsksWithAClearBufferOf32Bytes) {
  g_store.values["k"] = "77";
  std::string name = name_of("k");
  EXPECT_EQ(upi_get_nv_int(name.data()), 77);
  EXPECT_EQ(g_store.calls, (Calls{"get k"}));
  EXPECT_EQ(g_store.buffer_size, 32);
  EXPECT_TRUE(g_store.buffer_was_clear);
}

TEST_F(StoreTest, GetClearsTheBufferEachTime) {
  std::string name = name_of("k");
  g_store.values["k"] = "2147483647";
  EXPECT_EQ(upi_get_nv_int(name.data()), INT_MAX);
  g_store.values.clear();
  EXPECT_EQ(upi_get_nv_int(name.data()), 0);
  EXPECT_TRUE(g_store.buffer_was_clear);
}

TEST_F(StoreTest, GetReadsLeadingDigitsOnly) {
  const std::vector<std::pair<std::string, int>> cases = {{"-1", -1},
                                                          {"12abc", 12},
                                                          {"abc", 0},
                                                          {"", 0},
                                                          {"0x10", 0},
                                                          {"010", 10},
                                                          {"2147483647", INT_MAX},
                                                          {"7 8", 7},
                                                          {"-2147483648", INT_MIN},
                                                          {"+4", 4}};
  for (const auto& [text, value] : cases) {
    g_store.values["k"] = text;
    std::string name = name_of("k");
    EXPECT_EQ(upi_get_nv_int(name.data()), value) << text;
  }
}

TEST_F(StoreTest, GetIgnoresTheStoresResult) {
  g_store.values["k"] = "42";
  g_store.result = -1;
  std::string name = name_of("k");
  EXPECT_EQ(upi_get_nv_int(name.data()), 42);
}

// A value without a terminator must not be read past the buffer.
TEST_F(StoreTest, GetTakesAValueThatFillsItsBuffer) {
  g_store.fills = true;
  g_store.values["k"] = std::string(40, '0');
  std::string name = name_of("k");
  EXPECT_EQ(upi_get_nv_int(name.data()), 0);
  g_store.values["k"] = "19" + std::string(38, ' ');
  EXPECT_EQ(upi_get_nv_int(name.data()), 19);
}

// --- The four entries. --------------------------------------------------------------------------

struct Entry {
  const char* key;
  void (*set)(int);
  int (*get)();
};

constexpr Entry kEntries[] = {
    {"fota_ab_upgrade_status", upi_set_upgrade_status, upi_get_upgrade_status},
    {"fota_ab_upgrade_total_size", upi_set_upgrade_total_size, upi_get_upgrade_total_size},
    {"fota_ab_upgrade_updated_size", upi_set_upgrade_updated_size, upi_get_upgrade_updated_size},
    {"fota_ab_aa_sync_status", upi_set_sync_status, upi_get_sync_status}};

TEST_F(StoreTest, EachSetterStoresItsKeyAndSavesOnce) {
  for (const Entry& entry : kEntries) {
    g_store.calls.clear();
    entry.set(-12);
    EXPECT_EQ(g_store.calls, (Calls{std::string("set ") + entry.key + "=-12", "save"}));
  }
}

TEST_F(StoreTest, EachGetterReadsItsKey) {
  int value = 100;
  for (const Entry& entry : kEntries) {
    g_store.values[entry.key] = std::to_string(++value);
    g_store.calls.clear();
    EXPECT_EQ(entry.get(), value);
    EXPECT_EQ(g_store.calls, (Calls{std::string("get ") + entry.key}));
  }
}

TEST_F(StoreTest, KeyThatWasNeverWrittenReadsAsZero) {
  for (const Entry& entry : kEntries) {
    EXPECT_EQ(entry.get(), 0) << entry.key;
  }
}

TEST_F(StoreTest, StatusesHaveTheirValues) {
  EXPECT_EQ(UPGRADE_STATUS_UNKNOWN, -1);
  EXPECT_EQ(UPGRADE_STATUS_VERIFING, 0);
  EXPECT_EQ(UPGRADE_STATUS_VERIFY_SUCCESS, 1);
  EXPECT_EQ(UPGRADE_STATUS_VERIFY_FAIL, 2);
  EXPECT_EQ(UPGRADE_STATUS_UPDATING, 3);
  EXPECT_EQ(UPGRADE_STATUS_UPDATE_SUCCESS, 4);
  EXPECT_EQ(UPGRADE_STATUS_UPDATE_FAIL, 5);
  EXPECT_EQ(UPGRADE_STATUS_NO_NEED_UPDATE, 6);
  EXPECT_EQ(UPGRADE_STATUS_NEED_UPDATE, 7);
  EXPECT_EQ(SYNC_STATUS_FAIL, -1);
  EXPECT_EQ(SYNC_STATUS_SUCCESS, 0);
  EXPECT_EQ(SYNC_STATUS_SYNCING, 1);
}

// --- The host's functions. ----------------------------------------------------------------------

TEST_F(StoreTest, UpgradeStatusIsReadInTheOrderOfItsFields) {
  g_store.values["fota_ab_upgrade_status"] = "3";
  g_store.values["fota_ab_upgrade_total_size"] = "1000";
  g_store.values["fota_ab_upgrade_updated_size"] = "250";
  z_upgrade_status_info_t info{};
  const Lines lines = logged([&] { EXPECT_EQ(vemk_dual_get_upgrade_status(&info), 0); });
  EXPECT_EQ(info.upgrade_status, 3);
  EXPECT_EQ(info.total_size, 1000);
  EXPECT_EQ(info.upgraded_size, 250);
  EXPECT_EQ(g_store.calls, (Calls{"get fota_ab_upgrade_status", "get fota_ab_upgrade_total_size",
                                  "get fota_ab_upgrade_updated_size"}));
  EXPECT_TRUE(lines.empty());
}

TEST_F(StoreTest, UpgradeStatusRecordIsThreeInts) {
  z_upgrade_status_info_t info{};
  const auto at = [&](const int& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&info);
  };
  EXPECT_EQ(at(info.upgrade_status), 0);
  EXPECT_EQ(at(info.total_size), 4);
  EXPECT_EQ(at(info.upgraded_size), 8);
  EXPECT_EQ(sizeof info, 12U);
}

TEST_F(StoreTest, UpgradeStatusOfAnEmptyStoreIsZero) {
  z_upgrade_status_info_t info{7, 8, 9};
  EXPECT_EQ(vemk_dual_get_upgrade_status(&info), 0);
  EXPECT_EQ(info.upgrade_status, UPGRADE_STATUS_VERIFING);
  EXPECT_EQ(info.total_size, 0);
  EXPECT_EQ(info.upgraded_size, 0);
}

TEST_F(StoreTest, SyncStatusIsRead) {
  g_store.values["fota_ab_aa_sync_status"] = "-1";
  int status = 55;
  const Lines lines = logged([&] { vemk_dual_get_sync_status(&status); });
  EXPECT_EQ(status, SYNC_STATUS_FAIL);
  EXPECT_TRUE(lines.empty());
  g_store.values.clear();
  vemk_dual_get_sync_status(&status);
  EXPECT_EQ(status, SYNC_STATUS_SUCCESS);
}

TEST_F(StoreTest, SyncStatusTakesItsThreeValues) {
  for (const int status : {-1, 0, 1}) {
    g_store.calls.clear();
    const Lines lines = logged([&] { EXPECT_EQ(vemk_dual_set_sync_status(status), 0); });
    EXPECT_EQ(g_store.calls,
              (Calls{"set fota_ab_aa_sync_status=" + std::to_string(status), "save"}));
    EXPECT_EQ(lines, (Lines{{"vemk_dual_set_sync_status", "set sync status success"}}));
  }
}

TEST_F(StoreTest, SyncStatusRefusesEveryOtherValue) {
  g_store.values["fota_ab_aa_sync_status"] = "1";
  for (const int status : {2, -2, INT_MAX, INT_MIN}) {
    const Lines lines = logged([&] { EXPECT_EQ(vemk_dual_set_sync_status(status), -1); });
    EXPECT_EQ(lines, (Lines{{"vemk_dual_set_sync_status",
                             "Invalid sync_status [" + std::to_string(status) + "]"}}));
  }
  EXPECT_TRUE(g_store.calls.empty());
  EXPECT_EQ(g_store.values["fota_ab_aa_sync_status"], "1");
}

}  // namespace
