// Frames from the host: what is refused, passed through, or queued, and how it is queued.
#include "packet/ingress.h"

#include "tests/unit/packet/packet_fixture.h"

#include <cstring>

namespace {

octets discover() { return eth().vlan(100).dhcp4(DISCOVER).option(53, {DISCOVER}).end(); }
octets solicit() { return eth().vlan(100).vlan(200).dhcp6(SOLICIT).done(); }
octets padi() { return eth().pppoe(PADI).option(0x0101, {}).done(); }

line_id_append_info line_of(uint8_t oltid = 0) {
  line_id_append_info line = {};
  line.svlan = 0x0102;
  line.cvlan = 0x0304;
  line.onu_ponno = 5;
  line.onu_portid = 6;
  line.onu_gemid = 7;
  line.onu_authno = 8;
  std::memcpy(line.onu_mac, "\1\2\3\4\5\6", 6);
  for (uint8_t i = 0; i < 9; ++i) line.ext[i] = static_cast<uint8_t>(0xE0 + i);
  line.ext[LINE_ID_EXT_OLTID] = oltid;
  return line;
}

using receive_func = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint8_t, const line_id_append_info*);

constexpr uint32_t SRC_PORT = 0x1000B; // only the low 16 bits come back

int32_t hand_in(receive_func receive, const octets& frame, uint8_t direct, const line_id_append_info& line) {
  return receive(frame.data(), static_cast<uint32_t>(frame.size()), SRC_PORT, direct, &line);
}

struct protocol_case {
  const char* name;
  receive_func receive;
  octets (*frame)();
  uint8_t line_id_common_cfg::*enable;
  uint8_t kind, packet_type, vlan_count;
  uint32_t up_drop_counter; // upstream DHCPv6 and PPPoE drops are counted crosswise
};
const protocol_case PROTOCOLS[] = {
    {"dhcpv4", line_id_dhcp_receive, discover, &line_id_common_cfg::option82_enable, 3, 1, 1, 10},
    {"dhcpv6", line_id_dhcp_receive, solicit, &line_id_common_cfg::option18_enable, 4, 2, 2, 16},
    {"pppoe", line_id_pppoe_receive, padi, &line_id_common_cfg::pppoe_plus_enable, 5, 3, 0, 13},
};

} // namespace

class ingress_test : public packet_test {};

TEST_F(ingress_test, refusals_in_order) {
  const octets frame(1600, 0);
  const line_id_append_info line = line_of();
  struct {
    const uint8_t* frame;
    const line_id_append_info* line;
    uint32_t len;
    uint8_t direct;
    int32_t result;
  } const rows[] = {
      {nullptr, nullptr, 0, 0, -9},        {frame.data(), nullptr, 0, 0, -9},   {frame.data(), &line, 0, 0, -40},
      {frame.data(), &line, 1535, 0, -40}, {frame.data(), &line, 1534, 0, -41}, {frame.data(), &line, 1, 3, -41},
      {frame.data(), &line, 1534, 1, -42}, {frame.data(), &line, 1534, 2, -42},
  };
  line_id_set_data_init_done_cfg(0);
  for (const auto& row : rows) {
    for (const receive_func receive : {line_id_dhcp_receive, line_id_pppoe_receive}) {
      EXPECT_EQ(receive(row.frame, row.len, SRC_PORT, row.direct, row.line), row.result) << row.len;
    }
  }
  EXPECT_TRUE(g_recorded_sends.empty());
  EXPECT_TRUE(counters().empty());
}

TEST_F(ingress_test, only_dhcp_says_at_level_0_that_data_is_missing) {
  line_id_set_data_init_done_cfg(0);
  const std::string dhcp = printed([] { EXPECT_EQ(hand_in(line_id_dhcp_receive, discover(), 1, line_of()), -42); });
  EXPECT_TRUE(dhcp.starts_with("[LNID_ERR]line_id_dhcp_receive_if(")) << dhcp;
  EXPECT_TRUE(dhcp.ends_with("): lineid data is not initialized.!\r\n\r\n")) << dhcp;
  EXPECT_EQ(log_lines, std::vector<std::string>{"lineid data is not initialized.!\r\n"});

  EXPECT_EQ(printed([] { EXPECT_EQ(hand_in(line_id_pppoe_receive, padi(), 1, line_of()), -42); }), "");
  EXPECT_EQ(log_lines.size(), 1U);
}

TEST_F(ingress_test, invalid_headers) {
  const line_id_append_info line = line_of();
  EXPECT_EQ(hand_in(line_id_dhcp_receive, eth().dhcp4(DISCOVER).padded(1), 1, line), -1);
  EXPECT_EQ(hand_in(line_id_dhcp_receive, discover(), 2, line), -1);
  EXPECT_EQ(hand_in(line_id_dhcp_receive, octets(12, 0), 1, line), -1);
  EXPECT_EQ(hand_in(line_id_pppoe_receive, padi(), 2, line), -44);
  EXPECT_EQ(hand_in(line_id_pppoe_receive, eth().pppoe(PADT).done(), 2, line), -44);
  EXPECT_EQ(hand_in(line_id_pppoe_receive, octets(1, 0), 1, line), -44);
  EXPECT_TRUE(counters().empty());
}

TEST_F(ingress_test, passes_through_unchanged_without_a_unit) {
  std::vector<line_id_unit*> taken;
  while (line_id_unit* unit = line_id_buf_pool_alloc(&g_line_id_pkt_sem)) taken.push_back(unit);
  g_send_answer = -5;
  for (const protocol_case& row : PROTOCOLS) {
    SCOPED_TRACE(row.name);
    const octets frame = row.frame();
    auto passes = [&](uint8_t oltid) {
      g_recorded_sends.clear();
      EXPECT_EQ(hand_in(row.receive, frame, 1, line_of(oltid)), -5);
      EXPECT_EQ(g_recorded_sends, (std::vector<recorded_send>{{oltid, 1, 11, frame}}));
    };
    passes(1); // off
    passes(9); // no such instance
    passes(255);
    g_line_id_common_cfg[0].*row.enable = 0;
    passes(0);
  }
  for (line_id_unit* unit : taken) line_id_buf_pool_free(unit, &g_line_id_pkt_sem);
  EXPECT_TRUE(counters().empty());
}

TEST_F(ingress_test, transparent_mode_comes_before_the_header_check_and_spares_dhcpv6) {
  const octets broken = octets(20, 0);
  g_line_id_common_cfg[0].option82_transparent = 1;
  EXPECT_EQ(hand_in(line_id_dhcp_receive, broken, 2, line_of()), 0);
  EXPECT_EQ(hand_in(line_id_pppoe_receive, broken, 2, line_of()), -44) << "the switch is DHCP's";
  g_line_id_common_cfg[0].option82_transparent = 0;
  g_line_id_common_cfg[0].pppoe_plus_transparent = 1;
  EXPECT_EQ(hand_in(line_id_pppoe_receive, broken, 2, line_of()), 0);
  EXPECT_EQ(g_recorded_sends, (std::vector<recorded_send>{{0, 2, 11, broken}, {0, 2, 11, broken}}));
  g_line_id_common_cfg[0].option82_transparent = 1;
  EXPECT_EQ(hand_in(line_id_dhcp_receive, solicit(), 1, line_of()), 0);
  EXPECT_EQ(line_id_buf_pool_reclaim(), 1U);
}

TEST_F(ingress_test, queued_frames_carry_their_facts) {
  for (const protocol_case& row : PROTOCOLS) {
    SCOPED_TRACE(row.name);
    line_id_unit* next = line_id_buf_pool_alloc(&g_line_id_pkt_sem); // the unit that the frame will get
    std::memset(next->pkt_info_ptr, 0x55, sizeof(*next->pkt_info_ptr));
    line_id_buf_pool_free(next, &g_line_id_pkt_sem);

    const octets frame = row.frame();
    ASSERT_EQ(hand_in(row.receive, frame, 1, line_of()), 0);
    octets message;
    ASSERT_TRUE(receive_message(message));
    uint16_t kind = 0;
    uint32_t handle = 0;
    std::memcpy(&kind, &message[0], 2);
    std::memcpy(&handle, &message[5], 4);
    EXPECT_EQ(kind, row.kind);
    EXPECT_EQ(octets(message.begin() + 2, message.begin() + 5), octets(3, 0)); // command code and instance
    ASSERT_EQ(line_id_buf_pool_take_queued(handle, kind), next);

    EXPECT_EQ(octets(next->data, next->data + next->length), frame);
    const line_id_pkt_info& info = *next->pkt_info_ptr;
    EXPECT_EQ(uint32_t{info.src_port}, 0x1000BU);
    EXPECT_EQ((std::vector<int>{info.svlan, info.cvlan, info.onu_ponno, info.onu_portid, info.onu_gemid,
                                info.onu_authno, info.vlan_count, info.packet_type, info.direct}),
              (std::vector<int>{0x0102, 0x0304, 5, 6, 7, 8, row.vlan_count, row.packet_type, 1}));
    EXPECT_EQ(octets(info.onu_mac, info.onu_mac + 6), (octets{1, 2, 3, 4, 5, 6}));
    EXPECT_NEAR(uint32_t{info.recv_time}, pal_tickget(), 100);
    const octets all = {0xE0, 0xE1, 0xE2, 0, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0x55};
    const octets two = {0x55, 0x55, 0x55, 0, 0x55, 0x55, 0xE6, 0x55, 0x55, 0x55};
    EXPECT_EQ(octets(info.reserved, info.reserved + 10), row.packet_type == 2 ? two : all);
    line_id_buf_pool_free(next, &g_line_id_pkt_sem);
  }
}

TEST_F(ingress_test, no_unit) {
  std::vector<line_id_unit*> taken;
  while (line_id_unit* unit = line_id_buf_pool_alloc(&g_line_id_pkt_sem)) taken.push_back(unit);
  for (const protocol_case& row : PROTOCOLS) {
    EXPECT_EQ(hand_in(row.receive, row.frame(), 1, line_of()), -45) << row.name;
  }
  EXPECT_EQ(counters(), (counted{{9, 1}, {10, 1}, {12, 1}, {13, 1}, {15, 1}, {16, 1}}));

  // A unit without its record goes back.
  line_id_pkt_info* record = taken.back()->pkt_info_ptr;
  taken.back()->pkt_info_ptr = nullptr;
  line_id_buf_pool_free(taken.back(), &g_line_id_pkt_sem);
  EXPECT_EQ(hand_in(line_id_pppoe_receive, padi(), 1, line_of()), -45);
  EXPECT_EQ(line_id_buf_pool_free_count(), 1U);
  taken.back()->pkt_info_ptr = record;
  taken.pop_back();
  for (line_id_unit* unit : taken) line_id_buf_pool_free(unit, &g_line_id_pkt_sem);
}

TEST_F(ingress_test, before_the_pool_exists) {
  line_id_buf_pool* pool = g_line_id_pkt_pool.exchange(nullptr);
  for (const protocol_case& row : PROTOCOLS) {
    EXPECT_EQ(hand_in(row.receive, row.frame(), 1, line_of()), -45) << row.name;
  }
  g_line_id_pkt_pool.store(pool);
}

TEST_F(ingress_test, a_full_queue_gives_the_unit_back) {
  const octets junk(9, 0xFF);
  while (pal_msgQ_send_own(g_line_id_msg_id, junk.data(), 9) == 0) {
  }
  for (const protocol_case& row : PROTOCOLS) {
    line_id_reset_statistics_cfg();
    EXPECT_EQ(hand_in(row.receive, row.frame(), 1, line_of()), -21) << row.name;
    EXPECT_EQ(line_id_buf_pool_free_count(), units);
    EXPECT_EQ(counters(), (counted{{row.up_drop_counter - 1, 1}, {row.up_drop_counter, 1}})) << row.name;
  }
}

TEST_F(ingress_test, traces_show_the_frame_and_no_more) {
  set_traces(2, 1U << LOG_PPPOE);
  line_id_unit* unit = line_id_buf_pool_alloc(&g_line_id_pkt_sem);
  std::memset(unit->data, 0xDB, sizeof(unit->data)); // another subscriber's
  line_id_buf_pool_free(unit, &g_line_id_pkt_sem);
  const std::string text = printed([] { EXPECT_EQ(hand_in(line_id_pppoe_receive, padi(), 1, line_of()), 0); });
  for (const char* part :
       {"(svlan,cvlan,onu_authno,onu_gemid,onu_ponno,onu_portid)=(258,772,8,7,5,6).\r\n",
        "received packet len = 24\r\n", "ff ff ff ff ff ff 00 00 5e 00 53 01 88 63 11 09 00 \n00 00 04 01 01 00 00 "}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "in: " << text;
  }
  EXPECT_EQ(text.find("db"), std::string::npos) << text;
  line_id_buf_pool_reclaim();
}
