// The operations on Option 82 and on the vendor tag, called one by one.
#include "agents/line_id_option.h"
#include "config/store.h"
#include "tests/unit/agents/direct.h"

#include <string>

namespace {

const octets IDS = join({tlv1(1, text("old circuit")), tlv1(2, text("old"))});
const octets VENDOR_IDS = join({{0, 0, 0x0D, 0xE9}, IDS});
constexpr uint32_t OPTION_AT = 285; // behind the message type
constexpr uint32_t TAG_AT = 20;

octets request(const octets& option82, const octets& rest = {255}) {
  return eth().dhcp4(REQUEST).option(53, {3}).option(82, option82).raw(rest).done();
}
octets padi(const octets& tag, const octets& rest = {}) {
  return eth().pppoe(PADI).option(0x0105, tag).raw(rest).done();
}
octets without_udp_checksum(octets frame) {
  frame[40] = frame[41] = 0;
  return frame;
}

class option_test : public agent_test {
protected:
  void SetUp() override { start(0); }
  static void start(uint8_t strip) {
    agent_config config = agent_defaults();
    config.table.dhcp_tag_dn_strip = config.table.pppoe_tag_dn_strip = strip;
    ASSERT_EQ(agent_start(config), 0);
  }
};

TEST_F(option_test, removal_needs_the_strip_setting) {
  const octets in = request(IDS);
  agent_desk dhcp(in, LINE_ID_DHCPV4, 1);
  const auto option_len = static_cast<uint32_t>(IDS.size() + 2);
  EXPECT_EQ(line_id_dhcp_option82_proc(0, dhcp.at(OPTION_AT), option_len, 4, &dhcp.info), -1);
  EXPECT_EQ(dhcp.sent(), in) << "the headers too";
  const octets tagged = padi(VENDOR_IDS);
  agent_desk pppoe(tagged, LINE_ID_PPPOE, 2);
  const auto tag_len = static_cast<uint32_t>(VENDOR_IDS.size() + 4);
  EXPECT_EQ(line_id_pppoe_plus_proc(0, pppoe.at(TAG_AT), tag_len, 4, &pppoe.info), -1);
  EXPECT_EQ(pppoe.sent(), tagged);

  start(1);
  EXPECT_EQ(line_id_dhcp_option82_proc(0, dhcp.at(OPTION_AT), option_len, 4, &dhcp.info), 0);
  EXPECT_EQ(dhcp.sent(), without_udp_checksum(eth().dhcp4(REQUEST).option(53, {3}).end()));
  EXPECT_EQ(line_id_pppoe_plus_proc(0, pppoe.at(TAG_AT), tag_len, 4, &pppoe.info), 0);
  EXPECT_EQ(pppoe.sent(), eth().pppoe(PADI).done());
}

TEST_F(option_test, keep_and_unknown_operations_only_close_the_headers) {
  for (const uint8_t op : octets{0, 5, 255}) {
    const octets in = request(IDS);
    agent_desk dhcp(in, LINE_ID_DHCPV4, 1);
    EXPECT_EQ(line_id_dhcp_option82_proc(0, dhcp.at(OPTION_AT), 18, op, &dhcp.info), 0);
    EXPECT_EQ(dhcp.sent(), without_udp_checksum(in));
    const octets tagged = padi(VENDOR_IDS);
    agent_desk pppoe(tagged, LINE_ID_PPPOE, 1);
    EXPECT_EQ(line_id_pppoe_plus_proc(0, pppoe.at(TAG_AT), 24, op, &pppoe.info), 0);
    EXPECT_EQ(pppoe.sent(), tagged);
  }
}

TEST_F(option_test, replacing_discards_what_was_there) {
  const octets anew = join({tlv1(1, text("0 0/0/0:0.0 an1/1/2/3/0/0/0 0")), tlv1(2, text("0"))});
  agent_desk dhcp(request(IDS), LINE_ID_DHCPV4, 1);
  EXPECT_EQ(line_id_dhcp_option82_proc(0, dhcp.at(OPTION_AT), static_cast<uint32_t>(IDS.size() + 2), 3, &dhcp.info), 0);
  EXPECT_EQ(dhcp.sent(), without_udp_checksum(request(anew)));
  agent_desk pppoe(padi(VENDOR_IDS, {1, 3, 0, 0}), LINE_ID_PPPOE, 1);
  EXPECT_EQ(line_id_pppoe_plus_proc(0, pppoe.at(TAG_AT), static_cast<uint32_t>(VENDOR_IDS.size() + 4), 3, &pppoe.info),
            0);
  EXPECT_EQ(pppoe.sent(), padi(join({{0, 0, 0x0D, 0xE9}, anew}), {1, 3, 0, 0}));
}

TEST_F(option_test, failures_have_their_codes) {
  agent_desk last(request(IDS, {}), LINE_ID_DHCPV4, 1);
  EXPECT_EQ(line_id_dhcp_option82_replace(0, last.at(OPTION_AT), static_cast<uint32_t>(IDS.size() + 2), &last.info),
            -40)
      << "not even an End option follows";
  EXPECT_EQ(line_id_dhcp_option82_replace(0, nullptr, 0, &last.info), -9);
  EXPECT_EQ(line_id_dhcp_option82_modify(0, last.at(OPTION_AT), 2, nullptr), -9);
  EXPECT_EQ(line_id_pppoe_plus_replace(0, nullptr, 0, &last.info), -9);
  EXPECT_EQ(line_id_pppoe_plus_modify(0, nullptr, 0, &last.info), -9);

  const auto dhcp_modify = [](const octets& value, size_t more) {
    agent_desk desk(request(value, join({octets(more, 255)})), LINE_ID_DHCPV4, 1);
    const octets before = desk.sent();
    const auto len = static_cast<uint32_t>(value.size() + 2);
    const int32_t ret = line_id_dhcp_option82_modify(0, desk.at(OPTION_AT), len, &desk.info);
    EXPECT_TRUE(ret == 0 || desk.sent() == before) << "a failure leaves the output frame as it was";
    return ret;
  };
  const auto pppoe_modify = [](const octets& value, size_t more) {
    agent_desk desk(padi(value, octets(more, 0)), LINE_ID_PPPOE, 1);
    const octets before = desk.sent();
    const auto len = static_cast<uint32_t>(value.size() + 4);
    const int32_t ret = line_id_pppoe_plus_modify(0, desk.at(TAG_AT), len, &desk.info);
    EXPECT_TRUE(ret == 0 || desk.sent() == before);
    return ret;
  };
  const octets long_tail = tlv1(1, text("////////" + std::string(239, 't')));
  const octets vendor = {0, 0, 0x0D, 0xE9};
  EXPECT_EQ(dhcp_modify(IDS, 1), 0);
  EXPECT_EQ(dhcp_modify({}, 1210), -123) << "an empty option that cannot grow";
  EXPECT_EQ(dhcp_modify(IDS, 1210), -39);
  EXPECT_EQ(dhcp_modify(long_tail, 1), -107) << "the new Circuit-ID is longer than 256 octets";
  EXPECT_EQ(dhcp_modify({1, 1}, 1), -109);
  EXPECT_EQ(dhcp_modify({1}, 1), -109);
  EXPECT_EQ(pppoe_modify(VENDOR_IDS, 1), 0);
  EXPECT_EQ(pppoe_modify(vendor, 1470), -102);
  EXPECT_EQ(pppoe_modify(VENDOR_IDS, 1450), -39);
  EXPECT_EQ(pppoe_modify(join({vendor, long_tail}), 0), -107);
  EXPECT_EQ(pppoe_modify(join({vendor, {1, 1}}), 0), -109);
}

TEST_F(option_test, a_lone_remote_id_above_255_octets_finds_no_room_behind_a_new_circuit_id) {
  agent_config config = agent_defaults();
  config.table.pppoe_remoteid_up_policy = 2;
  ASSERT_EQ(agent_start(config), 0);
  const auto modify = [](size_t remote_len) {
    const octets value = join({{0, 0, 0x0D, 0xE9}, tlv1(2, octets(remote_len, 'r'))});
    agent_desk desk(padi(value), LINE_ID_PPPOE, 1);
    return line_id_pppoe_plus_modify(0, desk.at(TAG_AT), static_cast<uint32_t>(value.size() + 4), &desk.info);
  };
  EXPECT_EQ(modify(253), 0);
  EXPECT_EQ(modify(254), -1);
}

TEST_F(option_test, policy_and_enable_come_before_the_operation) {
  struct policy_row {
    uint8_t policy, enable, op;
    const char* text; // null: absent
  };
  const octets old = tlv1(2, text("old"));
  for (const policy_row& row : std::initializer_list<policy_row>{{0, 1, 0, "old"},
                                                                 {0, 1, 1, "0"},
                                                                 {0, 1, 2, "0"},
                                                                 {0, 1, 3, "0"},
                                                                 {0, 1, 4, nullptr},
                                                                 {0, 1, 5, nullptr},
                                                                 {0, 0, 3, "old"},
                                                                 {0, 0, 4, "old"},
                                                                 {1, 0, 0, "0"},
                                                                 {1, 1, 4, "0"},
                                                                 {2, 1, 3, "old"}}) {
    agent_config config = agent_defaults();
    config.table.remoteid_enable = row.enable;
    config.table.dhcp_remoteid_up_policy = row.policy;
    ASSERT_EQ(agent_start(config), 0);
    agent_desk desk(request(IDS), LINE_ID_DHCPV4, 1);
    octets dest(258);
    uint16_t len = 99;
    EXPECT_EQ(line_id_dhcp_option82_remote_id_proc(0, old.data(), static_cast<uint16_t>(old.size()), dest.data(), &len,
                                                   row.op, &desk.info),
              0);
    dest.resize(len);
    EXPECT_EQ(dest, row.text != nullptr ? tlv1(2, text(row.text)) : octets{}) << int{row.policy} << int{row.op};
  }
}

} // namespace
