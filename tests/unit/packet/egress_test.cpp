// What becomes of a frame after its agent, and the worker's entries around it.
#include "packet/egress.h"

#include "packet/pkt_proc.h"
#include "packet/protocol_table.h"
#include "tests/unit/packet/packet_fixture.h"

#include <cstring>

namespace {

const octets RECEIVED = {1, 2, 3};
const octets REBUILT = {9, 8, 7, 6};

line_id_pkt_property g_seen_property;
uint32_t g_hook_calls;
int watching_hook(uint8_t direct, uint32_t a, uint32_t b, uint32_t c, line_id_pkt_property* property) {
  EXPECT_EQ(direct, property->direct);
  EXPECT_EQ(a + b + c, 0U);
  g_seen_property = *property;
  ++g_hook_calls;
  property->direct = 77; // observing only: nobody reads this
  return -1;
}

line_id_inf_info g_seen_info;
int32_t g_agent_answer;
octets g_seen_scratch;
int32_t watching_agent(line_id_unit*, uint8_t* new_pkt, line_id_inf_info* info) {
  g_seen_info = *info;
  g_seen_scratch.assign(new_pkt, new_pkt + 1536);
  std::memset(new_pkt, 0xAA, 1536);
  info->new_pkt_len = 2;
  return g_agent_answer;
}

} // namespace

class egress_test : public packet_test {
protected:
  void SetUp() override {
    packet_test::SetUp();
    g_hook_calls = 0;
    ASSERT_EQ(line_id_reg_custom_pkt_proc_if(watching_hook), 0);
  }

  // A unit as the worker finds it.
  static line_id_unit* unit_of(const octets& frame, uint8_t packet_type) {
    line_id_unit* unit = line_id_buf_pool_alloc(&g_line_id_pkt_sem);
    std::memset(unit->data, 0xDB, sizeof(unit->data)); // the unit's previous frame
    if (!frame.empty()) std::memcpy(unit->data, frame.data(), frame.size());
    unit->length = static_cast<uint32_t>(frame.size());
    line_id_pkt_info info = {};
    info.packet_type = packet_type;
    info.direct = 1;
    info.reserved[LINE_ID_EXT_PROFILE_FLAG] = 1;
    info.reserved[LINE_ID_EXT_CID] = 64;
    info.reserved[LINE_ID_EXT_RID] = 65;
    *unit->pkt_info_ptr = info;
    return unit;
  }
};

TEST_F(egress_test, result_policy_and_direction_decide) {
  struct {
    int8_t result;
    uint8_t policy, direct;
    int sent_direct; // 0: nothing is sent
    const octets& frame;
    counted counters; // of DHCPv4
  } const rows[] = {
      {0, 0, 1, 1, REBUILT, {{0, 1}, {1, 1}}},    {0, 0, 2, 2, REBUILT, {{0, 1}, {2, 1}}},
      {-1, 0, 1, 1, RECEIVED, {{0, 1}, {19, 1}}}, {-1, 0, 2, 2, RECEIVED, {{0, 1}, {20, 1}}},
      {-2, 0, 1, 0, RECEIVED, {{9, 1}, {10, 1}}}, {-2, 0, 2, 0, RECEIVED, {{9, 1}, {11, 1}}},
      {-3, 0, 1, 2, REBUILT, {{0, 1}, {20, 1}}},  {-3, 0, 2, 1, REBUILT, {{0, 1}, {19, 1}}},
      {-4, 0, 1, 1, RECEIVED, {{0, 1}, {19, 1}}}, {5, 0, 2, 2, RECEIVED, {{0, 1}, {20, 1}}},
      {0, 1, 1, 1, RECEIVED, {{0, 1}, {19, 1}}},  {-2, 1, 1, 1, RECEIVED, {{0, 1}, {19, 1}}},
      {-3, 1, 1, 1, RECEIVED, {{0, 1}, {19, 1}}}, {0, 2, 1, 0, RECEIVED, {{9, 1}, {10, 1}}},
      {-1, 2, 2, 0, RECEIVED, {{9, 1}, {11, 1}}}, {0, 3, 1, 1, REBUILT, {{0, 1}, {1, 1}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "result " << int{row.result} << " policy " << int{row.policy} << " direct "
                                    << int{row.direct});
    g_policy_cfg_table[13] = row.policy;
    line_id_pkt_info pkt = {};
    pkt.packet_type = LINE_ID_DHCPV4;
    pkt.direct = row.direct;
    pkt.src_port = 0x1000B;
    pkt.reserved[LINE_ID_EXT_OLTID] = 4;
    octets received = RECEIVED;
    octets rebuilt = REBUILT;
    line_id_inf_info info = {};
    info.pkt_info_ptr = &pkt;
    info.origin_pkt_ptr = received.data();
    info.origin_pkt_len = 3;
    info.new_pkt = rebuilt.data();
    info.new_pkt_len = 4;
    for (const bool send_fails : {false, true}) {
      g_recorded_sends.clear();
      line_id_reset_statistics_cfg();
      g_send_answer = send_fails ? -1 : 0;
      EXPECT_EQ(line_id_send_pkt_by_policy(row.result, &info), 0);
      const auto direct = static_cast<uint8_t>(row.sent_direct);
      std::vector<recorded_send> sends;
      if (direct != 0) sends.push_back({4, direct, 11, row.frame});
      EXPECT_EQ(g_recorded_sends, sends);
      // A failed send is a drop in the direction that was tried.
      const counted failed = {{9, 1}, {direct == 1 ? 10U : 11U, 1}};
      EXPECT_EQ(counters(), send_fails && direct != 0 ? failed : row.counters);
    }
  }
  EXPECT_EQ(g_hook_calls, 32U);
  EXPECT_EQ(uint32_t{g_seen_property.src_port}, 0x1000BU);
}

TEST_F(egress_test, missing_records_and_callbacks) {
  line_id_inf_info info = {};
  EXPECT_EQ(line_id_send_pkt_by_policy(0, nullptr), -9);
  EXPECT_EQ(line_id_send_pkt_by_policy(0, &info), -9);
  EXPECT_EQ(g_hook_calls, 0U);

  EXPECT_EQ(line_id_reg_custom_pkt_proc_if(nullptr), -9);
  g_device_if = {};
  line_id_pkt_info pkt = {};
  pkt.packet_type = LINE_ID_PPPOE;
  pkt.direct = 2;
  info.pkt_info_ptr = &pkt;
  EXPECT_EQ(line_id_send_pkt_by_policy(0, &info), 0);
  EXPECT_EQ(counters(), (counted{{6, 1}, {8, 1}})); // nobody to send it: counted as sent
  EXPECT_EQ(g_hook_calls, 1U);                      // the refused registration left the hook in place
}

TEST_F(egress_test, worker_entries_fill_the_record_for_the_agent) {
  g_line_id_ptl_reg_func.dhcp4_agent = watching_agent;
  g_line_id_ptl_reg_func.dhcp6_agent = watching_agent;
  g_line_id_ptl_reg_func.pppoe_agent = watching_agent;
  struct {
    int32_t (*entry)(lib_comm_task*);
    uint8_t packet_type;
    size_t len;
    octets client_mac;
    octets profiles; // flag, Circuit-ID's, Remote-ID's: 65 is none
  } const rows[] = {
      {line_id_dhcp4_pkt_proc, 1, 12, {7, 8, 9, 10, 11, 12}, {1, 64, 0}},
      {line_id_dhcp6_pkt_proc, 2, 14, {7, 8, 9, 10, 11, 12}, {0, 0, 0}},
      {line_id_pppoe_pkt_proc, 3, 11, {0, 0, 0, 0, 0, 0}, {1, 64, 0}}, // no whole source MAC: none, and nobody else's
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(int{row.packet_type});
    octets frame = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
    frame.resize(row.len);
    line_id_unit* unit = unit_of(frame, row.packet_type);
    g_recorded_sends.clear();
    g_agent_answer = 0;
    lib_comm_task task = {row.entry, unit};
    EXPECT_EQ(row.entry(&task), 0);
    EXPECT_EQ(g_seen_info.pkt_info_ptr, unit->pkt_info_ptr);
    EXPECT_EQ(g_seen_info.origin_pkt_ptr, unit->data);
    EXPECT_EQ(g_seen_info.origin_pkt_len, row.len);
    EXPECT_EQ(octets(g_seen_info.client_mac, g_seen_info.client_mac + 6), row.client_mac);
    EXPECT_EQ((octets{g_seen_info.profile_flag, g_seen_info.cid, g_seen_info.rid}), row.profiles);
    EXPECT_EQ(g_seen_scratch, octets(1536, 0));
    EXPECT_EQ(g_recorded_sends, (std::vector<recorded_send>{{0, 1, 0, {0xAA, 0xAA}}}));
    EXPECT_EQ(line_id_buf_pool_free_count(), units);
  }
}

TEST_F(egress_test, a_missing_agent_passes_and_an_agents_refusal_drops) {
  const octets frame(60, 3);
  lib_comm_task task = {line_id_dhcp4_pkt_proc, unit_of(frame, 1)};
  EXPECT_EQ(line_id_dhcp4_pkt_proc(&task), 0);
  EXPECT_EQ(g_recorded_sends, (std::vector<recorded_send>{{0, 1, 0, frame}}));
  EXPECT_EQ(counters(), (counted{{0, 1}, {19, 1}}));

  g_line_id_ptl_reg_func.dhcp4_agent = watching_agent;
  g_agent_answer = -2;
  task.argument = unit_of(frame, 1);
  EXPECT_EQ(line_id_dhcp4_pkt_proc(&task), 0);
  EXPECT_EQ(g_recorded_sends.size(), 1U);
  EXPECT_EQ(counters(), (counted{{0, 1}, {19, 1}, {9, 1}, {10, 1}}));

  EXPECT_EQ(line_id_dhcp4_pkt_proc(nullptr), -9);
  task.argument = nullptr;
  EXPECT_EQ(line_id_pppoe_pkt_proc(&task), -9);
}

namespace {

std::vector<std::string> g_calls;
int32_t init_dhcp() { return g_calls.emplace_back("dhcp"), 0; }
int32_t init_pppoe() { return g_calls.emplace_back("pppoe"), 0; }
int32_t spoof(int32_t a, int32_t b, line_id_inf_info*) { return a == 0 && b == 0 ? -7 : 1; }
int32_t oper(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t*) {
  return oltid * 1000 + op * 100 + pon * 10 + onu;
}

} // namespace

TEST_F(egress_test, registration_table) {
  EXPECT_EQ(line_id_dhcp4_pkt_proc_if(nullptr, nullptr, nullptr), -2);
  EXPECT_EQ(line_id_dhcp6_pkt_proc_if(nullptr, nullptr, nullptr), -2);
  EXPECT_EQ(line_id_pppoe_pkt_proc_if(nullptr, nullptr, nullptr), -2);
  EXPECT_EQ(line_id_dhcp_spoof_proc_if(0, 0, nullptr), -2);
  EXPECT_EQ(line_id_pppoe_spoof_proc_if(0, 0, nullptr), -2);
  EXPECT_EQ(line_id_dhcp_spoof_oper_if(0, 1, 0, 0, nullptr), -2);
  EXPECT_EQ(line_id_pppoe_spoof_oper_if(0, 1, 0, 0, nullptr), -2);

  g_line_id_ptl_reg_func.dhcp_table_init = init_dhcp;
  g_line_id_ptl_reg_func.pppoe_table_init = init_pppoe;
  g_line_id_ptl_reg_func.dhcp_spoof_proc = spoof;
  g_line_id_ptl_reg_func.dhcp_spoof_oper = oper;
  EXPECT_EQ(line_id_dhcp_spoof_proc_if(3, 4, nullptr), -7);
  EXPECT_EQ(line_id_dhcp_spoof_oper_if(1, 2, 3, 4, nullptr), 1234);
  g_calls.clear();
  EXPECT_EQ(line_id_int_protocol_func_data(), 0);
  EXPECT_EQ(g_calls, std::vector<std::string>{"dhcp"}); // the PPPoE table waits for the PPPoE operation
  g_line_id_ptl_reg_func.pppoe_spoof_oper = oper;
  EXPECT_EQ(line_id_int_protocol_func_data(), 0);
  EXPECT_EQ(g_calls, (std::vector<std::string>{"dhcp", "dhcp", "pppoe"}));
}
