// The binding tables: learning, limits, deletion, reports, and what the spoofing checks let through.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "antispoof/binding_table.h"
#include "config/store.h"
#include "core/device_if.h"
#include "core/log.h"

namespace {

// Before anything reads the tick's length: a full wait for a semaphore then takes 2 ms.
[[maybe_unused]] const int g_short_ticks = setenv("LINE_ID_TICK_US", "200", 1);

using octets = std::vector<uint8_t>;

constexpr uint8_t MAC_A[6] = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x01};
constexpr uint8_t MAC_B[6] = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x02};
constexpr uint8_t MAC_HIGH[6] = {0xFE, 0x00, 0x00, 0x00, 0x00, 0x00};

// The functions of one table, so that each test can run over both.
struct table_functions {
  const char* name;
  decltype(&line_id_add_dhcp_binding_entry) add;
  decltype(&line_id_del_dhcp_binding_entry) del;
  decltype(&line_id_search_dhcp_binding_table) search;
  decltype(&line_id_clear_dhcp_binding_table) clear;
  decltype(&line_id_del_dhcp_bindings) del_onu;
  decltype(&line_id_show_dhcp_binding_table) show;
  decltype(&line_id_dhcp_binding_table_init) init;
  decltype(&line_id_op_dhcp_anti_spoofing_entry) op;
  decltype(&line_id_dhcp_binding_search) tree_search;
  decltype(&line_id_dhcp_binding_insert) tree_insert;
  decltype(&line_id_dhcp_binding_del) tree_del;
  decltype(&line_id_dhcp_binding_add) tree_add;
  decltype(&line_id_dhcp_binding_free) tree_free;
  decltype(&line_id_set_dhcp_valid_binding_count_cfg) set_valid_count;
  rb_root* root;
  uint32_t* entries;
  int32_t* timeout;
  pal_sem* sem;
};

const table_functions TABLES[] = {
    {"dhcp", line_id_add_dhcp_binding_entry, line_id_del_dhcp_binding_entry, line_id_search_dhcp_binding_table,
     line_id_clear_dhcp_binding_table, line_id_del_dhcp_bindings, line_id_show_dhcp_binding_table,
     line_id_dhcp_binding_table_init, line_id_op_dhcp_anti_spoofing_entry, line_id_dhcp_binding_search,
     line_id_dhcp_binding_insert, line_id_dhcp_binding_del, line_id_dhcp_binding_add, line_id_dhcp_binding_free,
     line_id_set_dhcp_valid_binding_count_cfg, &g_dhcp_binding_table, &g_dhcp_binding_entries,
     &g_dhcp_binding_table_access_timeout, &g_sem_dhcp_binding_table},
    {"pppoe", line_id_add_pppoe_binding_entry, line_id_del_pppoe_binding_entry, line_id_search_pppoe_binding_table,
     line_id_clear_pppoe_binding_table, line_id_del_pppoe_bindings, line_id_show_pppoe_binding_table,
     line_id_pppoe_binding_table_init, line_id_op_pppoe_anti_spoofing_entry, line_id_pppoe_binding_search,
     line_id_pppoe_binding_insert, line_id_pppoe_binding_del, line_id_pppoe_binding_add, line_id_pppoe_binding_free,
     line_id_set_pppoe_valid_binding_count_cfg, &g_pppoe_binding_table, &g_pppoe_binding_entries,
     &g_pppoe_binding_table_access_timeout, &g_sem_pppoe_binding_table},
};

std::vector<octets> g_alarms;

int record_alarm(const line_id_alarm* alarm) {
  const auto* p = reinterpret_cast<const uint8_t*>(alarm);
  g_alarms.emplace_back(p, p + sizeof(*alarm));
  return 0;
}

class binding_table : public testing::Test {
protected:
  void SetUp() override {
    g_device_if = {};
    g_device_if.mac_spoof_alarm = record_alarm;
    g_alarms.clear();
    g_line_id_common_cfg[0] = {};
    for (const table_functions& table : TABLES) {
      ASSERT_EQ(table.init(), 0);
      ASSERT_EQ(table.clear(), 0);
      table.set_valid_count(0, 3);
    }
  }
  void TearDown() override {
    for (const table_functions& table : TABLES) EXPECT_EQ(pal_sem_count(table.sem), 1) << "semaphore not given back";
  }
};

uint32_t attempts_of(const table_functions& table, const uint8_t* mac) {
  const line_id_binding_entry* entry = table.tree_search(table.root, mac);
  return entry != nullptr ? entry->attempts : 0;
}

TEST_F(binding_table, macs_are_ordered_by_their_octets) {
  const uint8_t rows[][6] = {{0, 0, 0, 0, 0, 1},    {0, 0, 0, 0, 1, 0}, {0, 0, 0x7F, 0, 0, 0},
                             {0, 0, 0x80, 0, 0, 0}, {0, 1, 0, 0, 0, 0}, {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
                             {0x80, 0, 0, 0, 0, 0}};
  for (const table_functions& table : TABLES) {
    for (size_t i = std::size(rows); i-- > 0;) ASSERT_EQ(table.add(0, rows[i], 1, 2, 3, nullptr), 0);
    const rb_node* node = rb_first(table.root);
    for (size_t i = 0; i < std::size(rows); ++i, node = rb_next(node)) {
      ASSERT_EQ(node, &table.tree_search(table.root, rows[i])->node) << table.name << " row " << i;
      if (i > 0) {
        EXPECT_LT(line_id_macaddr_compare(rows[i - 1], rows[i]), 0);
      }
      EXPECT_EQ(line_id_macaddr_compare(rows[i], rows[i]), 0);
    }
    EXPECT_EQ(node, nullptr);
  }
}

// Two ONUs fight for one MAC: `seen` frames from A, then one from B.
TEST_F(binding_table, spoofing_starts_at_the_valid_binding_count) {
  struct row {
    uint32_t valid_count;
    uint32_t seen;
    uint32_t attempts; // before B comes
    int32_t result;    // of B's frame
    uint16_t onu;      // where the MAC is afterwards
    uint32_t attempts_after;
  };
  const row rows[] = {
      {0, 1, 1, -1, 42, 1}, {1, 1, 1, -1, 42, 1},          {2, 1, 1, -2, 43, 1}, {2, 2, 2, -1, 42, 2},
      {3, 1, 1, -2, 43, 1}, {3, 2, 2, -2, 43, 1},          {3, 3, 3, -1, 42, 3}, {3, 4, 3, -1, 42, 3},
      {3, 9, 3, -1, 42, 3}, {0xFFFFFFFF, 9, 9, -2, 43, 1},
  };
  for (const table_functions& table : TABLES) {
    for (const row& r : rows) {
      SCOPED_TRACE(std::string(table.name) + " count " + std::to_string(r.valid_count) + " seen " +
                   std::to_string(r.seen));
      table.clear();
      table.set_valid_count(0, r.valid_count);
      line_id_binding_place place = {};
      for (uint32_t i = 0; i < r.seen; ++i) {
        ASSERT_EQ(table.add(0, MAC_A, 1, 5, 42, &place), i == 0 ? 0 : -2);
      }
      EXPECT_EQ(place.onu, 0) << "only a MAC from elsewhere has a bound place";
      EXPECT_EQ(attempts_of(table, MAC_A), r.attempts);
      EXPECT_EQ(table.add(0, MAC_A, 1, 5, 43, &place), r.result);
      EXPECT_EQ(place, (line_id_binding_place{1, 5, 42}));
      ASSERT_EQ(table.search(MAC_A, &place), 0);
      EXPECT_EQ(place, (line_id_binding_place{1, 5, r.onu}));
      EXPECT_EQ(attempts_of(table, MAC_A), r.attempts_after);
      EXPECT_EQ(*table.entries, 1U);
    }
  }
}

TEST_F(binding_table, slot_pon_and_onu_each_make_another_place) {
  for (const table_functions& table : TABLES) {
    table.set_valid_count(0, 1);
    ASSERT_EQ(table.add(0, MAC_A, 1, 5, 42, nullptr), 0);
    EXPECT_EQ(table.add(0, MAC_A, 2, 5, 42, nullptr), -1);
    EXPECT_EQ(table.add(0, MAC_A, 1, 6, 42, nullptr), -1);
    EXPECT_EQ(table.add(0, MAC_A, 1, 5, 43, nullptr), -1);
    EXPECT_EQ(table.add(0, MAC_A, 1, 5, 42, nullptr), -2);
  }
}

TEST_F(binding_table, holds_16385_entries_and_refuses_the_next) {
  for (const table_functions& table : TABLES) {
    uint8_t mac[6] = {};
    for (uint32_t i = 0; i < 16385; ++i) {
      mac[3] = static_cast<uint8_t>(i * 37 >> 8);
      mac[4] = static_cast<uint8_t>(i * 37);
      mac[5] = static_cast<uint8_t>(i >> 8);
      ASSERT_EQ(table.add(0, mac, 1, 2, 3, nullptr), 0) << i;
    }
    EXPECT_EQ(*table.entries, 16385U);
    EXPECT_EQ(table.add(0, MAC_A, 1, 2, 3, nullptr), -4);
    EXPECT_EQ(table.add(0, mac, 1, 2, 3, nullptr), -2) << "a known MAC is still learnt";
    EXPECT_EQ(table.del(mac), 0);
    EXPECT_EQ(table.add(0, MAC_A, 1, 2, 3, nullptr), 0);
    EXPECT_EQ(table.clear(), 0);
    EXPECT_EQ(*table.entries, 0U);
    EXPECT_EQ(table.root->node, nullptr);
  }
}

TEST_F(binding_table, deletes_by_mac_and_by_onu) {
  for (const table_functions& table : TABLES) {
    const struct {
      uint8_t last;
      uint16_t pon, onu;
    } rows[] = {{1, 5, 42}, {2, 5, 43}, {3, 6, 42}, {4, 5, 42}, {5, 5, 42}};
    uint8_t mac[6] = {};
    for (const auto& r : rows) {
      mac[5] = r.last;
      ASSERT_EQ(table.add(0, mac, r.last, r.pon, r.onu, nullptr), 0);
    }
    EXPECT_EQ(table.del_onu(9, 42), 0);
    EXPECT_EQ(*table.entries, 5U);
    EXPECT_EQ(table.op(0, 3, 5, 42, nullptr), 0) << "operation 3 deletes by PON and ONU, whatever the slot";
    EXPECT_EQ(*table.entries, 2U);
    mac[5] = 2;
    EXPECT_EQ(attempts_of(table, mac), 1U);
    EXPECT_EQ(table.op(0, 2, 0, 0, mac), 0);
    EXPECT_EQ(table.del(mac), -1);
    EXPECT_EQ(table.op(0, 2, 0, 0, nullptr), -9);
    EXPECT_EQ(table.op(0, 4, 6, 42, mac), 0) << "another operation does nothing";
    EXPECT_EQ(*table.entries, 1U);
    line_id_binding_place place = {};
    EXPECT_EQ(table.search(mac, &place), -1);
    EXPECT_EQ(table.search(mac, nullptr), -9);
  }
}

TEST_F(binding_table, tree_level_calls) {
  for (const table_functions& table : TABLES) {
    line_id_binding_entry* entry = table.tree_add(table.root, MAC_A, 1, 5, 42);
    ASSERT_NE(entry, nullptr);
    entry->attempts = 2;
    EXPECT_EQ(table.tree_add(table.root, MAC_A, 2, 6, 43), entry);
    EXPECT_EQ(entry->place, (line_id_binding_place{2, 6, 43}));
    EXPECT_EQ(entry->attempts, 2U);
    line_id_binding_entry twin = {{}, entry->mac, {}, 1};
    EXPECT_EQ(table.tree_insert(table.root, &twin), -1);
    EXPECT_EQ(table.tree_insert(table.root, new line_id_binding_entry{{}, 0x00005E005302, {1, 1, 1}, 1}), 0);
    EXPECT_EQ(*table.entries, 2U);
    EXPECT_EQ(table.tree_del(table.root, MAC_B), 0);
    EXPECT_EQ(table.tree_del(table.root, MAC_B), -1);
    EXPECT_EQ(table.tree_free(table.root), 0);
    EXPECT_EQ(*table.entries, 0U);

    EXPECT_EQ(table.tree_search(nullptr, MAC_A), nullptr);
    EXPECT_EQ(table.tree_add(table.root, nullptr, 1, 1, 1), nullptr);
    EXPECT_EQ(table.tree_insert(table.root, nullptr), -9);
    EXPECT_EQ(table.tree_del(nullptr, MAC_A), -9);
    EXPECT_EQ(table.tree_free(nullptr), -9);
  }
}

TEST_F(binding_table, tables_are_independent) {
  ASSERT_EQ(line_id_add_dhcp_binding_entry(0, MAC_A, 1, 5, 42, nullptr), 0);
  line_id_binding_place place = {};
  EXPECT_EQ(line_id_search_pppoe_binding_table(MAC_A, &place), -1);
  ASSERT_EQ(line_id_add_pppoe_binding_entry(0, MAC_A, 1, 6, 43, nullptr), 0);
  EXPECT_EQ(line_id_clear_dhcp_binding_table(), 0);
  EXPECT_EQ(line_id_search_pppoe_binding_table(MAC_A, &place), 0);
  EXPECT_EQ(g_dhcp_binding_entries, 0U);
  EXPECT_EQ(g_pppoe_binding_entries, 1U);
}

TEST_F(binding_table, init_again_keeps_semaphore_and_bindings) {
  for (const table_functions& table : TABLES) {
    ASSERT_EQ(table.add(0, MAC_A, 1, 5, 42, nullptr), 0);
    *table.timeout = 600;
    const void* state = table.sem->state;
    ASSERT_EQ(table.init(), 0);
    EXPECT_EQ(*table.timeout, 10);
    EXPECT_EQ(table.sem->state, state);
    EXPECT_EQ(attempts_of(table, MAC_A), 1U);
  }
}

TEST_F(binding_table, semaphore_held_elsewhere) {
  for (const table_functions& table : TABLES) {
    ASSERT_EQ(table.add(0, MAC_A, 1, 5, 42, nullptr), 0);
    ASSERT_EQ(pal_sem_take(table.sem, 0), 0);
    line_id_binding_place place = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(table.add(0, MAC_B, 1, 5, 42, &place), -4);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("_binding_entry (-94).\r\n"), std::string::npos);
    testing::internal::CaptureStdout();
    EXPECT_EQ(table.del(MAC_A), -94);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("pal_sem_take failed(-94).\r\n"), std::string::npos);
    EXPECT_EQ(table.search(MAC_A, &place), -94);
    EXPECT_EQ(table.clear(), -94);
    EXPECT_EQ(table.del_onu(5, 42), -94);
    testing::internal::CaptureStdout();
    EXPECT_EQ(table.show(0), -94);
    const std::string report = testing::internal::GetCapturedStdout();
    EXPECT_NE(report.find("MAC Address"), std::string::npos) << "the heading comes first";
    EXPECT_EQ(report.find("Total"), std::string::npos);
    ASSERT_EQ(pal_sem_give(table.sem), 0);
    EXPECT_EQ(*table.entries, 1U);
  }
}

std::string report_of(const table_functions& table, uint8_t oltid) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(table.op(oltid, 1, 0, 0, nullptr), 0);
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST_F(binding_table, reports) {
  for (const table_functions& table : TABLES) {
    ASSERT_EQ(table.add(0, MAC_HIGH, 11, 120, 65535, nullptr), 0);
    ASSERT_EQ(table.add(0, MAC_A, 1, 5, 42, nullptr), 0);
    ASSERT_EQ(table.add(0, MAC_A, 1, 5, 42, nullptr), -2);
  }
  EXPECT_EQ(report_of(TABLES[0], 0), "\r\nDHCP MAC-ONU Binding Table - Status : Disabled  \r\n"
                                     "=========================================================\r\n"
                                     "MAC Address         Slot   PON   ONU-ID      Attempts\r\n"
                                     "---------------------------------------------------------\r\n"
                                     "00005e005301        01      05      42      2\r\n"
                                     "fe0000000000        11      120      65535      1\r\n"
                                     "Total 2 Entries\r\n");
  EXPECT_EQ(report_of(TABLES[1], 0), "\r\nPPPoE MAC-ONU Binding Table - Status : Disabled\r\n"
                                     "=======================================================\r\n"
                                     "MAC Address         Slot   PON   ONU-ID   Attempts\r\n"
                                     "-------------------------------------------------------\r\n"
                                     "00005e005301        01      05      42   2\r\n"
                                     "fe0000000000        11      120      65535   1\r\n"
                                     "Total 2 Entries\r\n");

  // The status is that of the instance that was asked for.
  for (const table_functions& table : TABLES) table.clear();
  ASSERT_EQ(line_id_set_dhcp_anti_spoofing_enable_cfg(2, 1), 0);
  ASSERT_EQ(line_id_set_dhcp_anti_spoofing_active_cfg(2, 1), 0);
  ASSERT_EQ(line_id_set_pppoe_anti_spoofing_enable_cfg(2, 1), 0);
  EXPECT_EQ(report_of(TABLES[0], 2).find("\r\nDHCP MAC-ONU Binding Table - Status : Enabled *\r\n=="), 0U);
  EXPECT_EQ(report_of(TABLES[1], 2).find("\r\nPPPoE MAC-ONU Binding Table - Status : Enabled\r\n=="), 0U);
  g_line_id_common_cfg[2] = {};
}

// A frame from PON 5, C-VLAN 200, of MAC_A, as the agents hand it to the checks.
struct frame_facts {
  line_id_pkt_info pkt = {};
  line_id_inf_info info = {};

  explicit frame_facts(uint16_t onu, uint8_t slot = 3) {
    pkt.onu_ponno = 5;
    pkt.onu_authno = onu;
    pkt.cvlan = 200;
    info.pkt_info_ptr = &pkt;
    info.olt_slot = slot;
    std::memcpy(info.client_mac, MAC_A, 6);
  }
  int32_t pppoe(int code) {
    info.pppoe_code = static_cast<uint8_t>(code);
    return line_id_process_pppoe_anti_mac_spoofing(0, 0, &info);
  }
  int32_t dhcp(int kind) {
    info.msg_kind = static_cast<uint8_t>(kind);
    return line_id_process_dhcp_anti_mac_spoofing(0, 0, &info);
  }
};

// The offending frame's place, host order: PON 5, ONU, C-VLAN 200, kind, MAC.
octets alarm_octets(uint16_t onu, uint8_t kind) {
  octets alarm = {0, 0, 0, 0, 0, 0, kind, 0x00, 0x00, 0x5E, 0x00, 0x53, 0x01};
  const uint16_t words[] = {5, onu, 200};
  std::memcpy(alarm.data(), words, sizeof(words));
  return alarm;
}

TEST_F(binding_table, pppoe_discovery_from_another_onu_is_spoofing) {
  frame_facts here(42), elsewhere(43);
  EXPECT_EQ(here.pppoe(0x09), 0);
  EXPECT_EQ(elsewhere.pppoe(0x19), 0) << "not yet firmly bound: moves";
  EXPECT_EQ(here.pppoe(0x09), 0);
  EXPECT_EQ(here.pppoe(0x19), 0);
  EXPECT_EQ(here.pppoe(0x19), 0);
  EXPECT_TRUE(g_alarms.empty());
  EXPECT_EQ(elsewhere.pppoe(0x09), -1);
  EXPECT_EQ(elsewhere.pppoe(0x19), -1) << "dropped although the instance does not ask for drops";
  EXPECT_EQ(g_alarms, (std::vector<octets>{alarm_octets(43, 0), alarm_octets(43, 0)}));
  EXPECT_EQ(here.pppoe(0x09), 0);
}

TEST_F(binding_table, padt_ends_a_binding_only_from_its_onu) {
  frame_facts here(42), elsewhere(43), other_slot(42, 4);
  EXPECT_EQ(here.pppoe(0xA7), -1) << "unknown MAC";
  ASSERT_EQ(here.pppoe(0x09), 0);
  EXPECT_EQ(elsewhere.pppoe(0xA7), -1);
  EXPECT_EQ(other_slot.pppoe(0xA7), -1);
  EXPECT_EQ(g_pppoe_binding_entries, 1U);
  EXPECT_TRUE(g_alarms.empty());
  EXPECT_EQ(here.pppoe(0xA7), 0);
  EXPECT_EQ(g_pppoe_binding_entries, 0U);
  EXPECT_EQ(g_alarms, (std::vector<octets>{alarm_octets(42, 1)}));
}

TEST_F(binding_table, pppoe_corners) {
  frame_facts no_slot(42, 0), here(42);
  for (const int code : {0x09, 0x19, 0xA7, 0x07}) EXPECT_EQ(no_slot.pppoe(code), -1);
  EXPECT_EQ(here.pppoe(0x07), 0);
  EXPECT_EQ(here.pppoe(0x65), 0);
  EXPECT_EQ(g_pppoe_binding_entries, 0U);

  // A table that cannot be reached lets discovery on, but no end of a session that it cannot vouch for.
  ASSERT_EQ(pal_sem_take(&g_sem_pppoe_binding_table, 0), 0);
  EXPECT_EQ(here.pppoe(0x09), 0);
  EXPECT_EQ(here.pppoe(0xA7), -1);
  ASSERT_EQ(pal_sem_give(&g_sem_pppoe_binding_table), 0);
  EXPECT_TRUE(g_alarms.empty());
}

TEST_F(binding_table, dhcp_alarms_always_and_drops_when_active) {
  frame_facts here(42), elsewhere(43);
  for (const int kind : {1, 3, 3}) EXPECT_EQ(here.dhcp(kind), 0);
  EXPECT_EQ(elsewhere.dhcp(1), 0) << "alarm only";
  ASSERT_EQ(line_id_set_dhcp_anti_spoofing_active_cfg(0, 1), 0);
  EXPECT_EQ(elsewhere.dhcp(3), -1);
  EXPECT_EQ(g_alarms, (std::vector<octets>{alarm_octets(43, 0), alarm_octets(43, 0)}));
}

TEST_F(binding_table, dhcp_without_a_message_kind_learns_nothing) {
  frame_facts here(42);
  for (const int kind : {0, 2, 4, 7}) EXPECT_EQ(here.dhcp(kind), 0);
  EXPECT_EQ(g_dhcp_binding_entries, 0U);
}

TEST_F(binding_table, spoofing_messages) {
  line_id_set_pppoe_valid_binding_count_cfg(0, 1);
  line_id_dbg_level_set(2);
  line_id_dbg_type_enable(LOG_PPPOE);
  frame_facts here(42), elsewhere(43);
  testing::internal::CaptureStdout();
  here.pppoe(0x09);
  elsewhere.pppoe(0x09);
  elsewhere.pppoe(0xA7);
  here.pppoe(0xA7);
  here.pppoe(0xA7);
  const std::string printed = testing::internal::GetCapturedStdout();
  line_id_dbg_level_set(0);
  line_id_dbg_type_disable(LOG_PPPOE);

  size_t at = 0;
  for (const char* message :
       {"PPPoE binding entry added : MAC 00005e005301\r\n", "Binded_onu:slotno = 3, ponno=5,onuno=42.\r\n",
        "MAC spoofing detected : Source MAC 00005e005301\r\n", "\r\n PPPOE packets dropped.\r\n",
        "Spoofed PADT detected. Frame dropped.\r\n", "PPPoE binding entry deleted : MAC 00005e005301\r\n",
        "Warnning: PADT received but Src MAC not found in Binding Table.\r\n"}) {
    at = printed.find(message, at);
    ASSERT_NE(at, std::string::npos) << message;
  }
}

} // namespace
