// The DHCPv6 agent downstream, its entry, and frames cut short both ways.
#include "tests/unit/agents/dhcp6_test.h"

namespace {

// ---- downstream

// `reply` unwrapped to `inner` for `peer`.
octets unwrapped(const octets& reply, const octets& inner, const octets& peer, uint16_t dst_port, uint32_t tags = 0) {
  octets headers = reply;
  std::copy(peer.begin(), peer.end(), headers.begin() + 14 + tags * 4 + 24);
  return rebuilt(headers, tags, 547, dst_port, inner);
}

TEST_F(dhcp6, server_messages_are_unwrapped_under_any_tags) {
  for (const dhcp6_type type : {ADVERTISE, REPLY, RECONFIGURE}) {
    for (uint32_t tags = 0; tags <= 4; ++tags) {
      SCOPED_TRACE("type " + std::to_string(type) + " tags " + std::to_string(tags));
      const octets inner = dhcp6_message(type, {tlv2(1, {1, 2, 3}), tlv2(2, {4, 5})});
      const octets received =
          relay_reply(join({option18("any text"), option9(inner), {0, 37, 0, 1}}), link_local(0x77), tags);
      const octets sent = down(received);
      EXPECT_EQ(sent, unwrapped(received, inner, link_local(0x77), 546, tags));
      EXPECT_TRUE(udp6_checksum_good(sent, 14 + tags * 4, 54 + tags * 4));
    }
  }
}

TEST_F(dhcp6, nested_relay_replies_by_strip_setting) {
  const octets reply = reply_message();
  const octets rogue = relay6_message(RELAY_REPL, 0, link_local(3), {option9(dhcp6_message(SOLICIT))});
  const octets once = relay6_message(RELAY_REPL, 0, link_local(3), {option9(reply)});
  const octets twice = relay6_message(RELAY_REPL, 0, link_local(2), {option9(once)});
  struct row {
    const char* name;
    uint8_t strip;
    octets carried; // by a Relay-Reply to fe80::77
    octets expected;
    octets peer;
    uint16_t dst_port;
  };
  const row rows[] = {
      {"single, strip 1", 1, reply, reply, link_local(0x77), 546},
      {"single, strip 2", 2, reply, reply, link_local(0x77), 546},
      {"double, strip 1", 1, once, once, link_local(0x77), 547},
      {"double, strip 2", 2, once, reply, link_local(3), 546},
      {"triple, strip 2", 2, twice, once, link_local(2), 547},
      {"second level fails", 2, rogue, rogue, link_local(0x77), 547},
      {"second level cut", 2, {13, 0, 1}, {13, 0, 1}, link_local(0x77), 547},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    ASSERT_EQ(line_id_set_dhcpv6_tag_dn_strip_cfg(r.strip), 0);
    const octets received = relay_reply(option9(r.carried));
    EXPECT_EQ(down(received), unwrapped(received, r.expected, r.peer, r.dst_port));
  }
}

TEST_F(dhcp6, refused_downstream) {
  struct row {
    const char* name;
    octets frame;
    int32_t code;
  };
  const row rows[] = {
      {"REPLY by itself", eth(SERVER_MAC).dhcp6(REPLY).done(), -117},
      {"Relay-Forward", eth(SERVER_MAC).relay6(RELAY_FORW, 0, link_local(1)).option(9, reply_message()).done(), -117},
      {"SOLICIT inside", relay_reply(option9(dhcp6_message(SOLICIT))), -118},
      {"Relay-Forward inside", relay_reply(option9(dhcp6_message(RELAY_FORW))), -118},
      {"option code 0", relay_reply(join({tlv2(0, {}), option9(reply_message())})), -159},
      {"no Relay Message", relay_reply(option18("text")), -159},
      {"no options", relay_reply({}), -159},
      {"empty Relay Message", relay_reply(option9({})), -159},
      {"Relay Message overruns", relay_reply({0, 9, 0, 5, 7, 1, 1, 1}), -159},
      {"option in front overruns", relay_reply(join({{0, 18, 0, 99}, option9(reply_message())})), -159},
      {"short relay header", eth(SERVER_MAC).ip6_udp({}, 17, 547, 547).raw(octets(33, 13)).done(), -159},
      {"no message", eth(SERVER_MAC).ip6_udp({}, 17, 547, 547).done(), -159},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(direct_call().reply(r.frame), r.code);
    EXPECT_EQ(down(r.frame), octets{});
  }
}

// ---- entry

TEST_F(dhcp6, passes_as_received) {
  const octets received = solicit(1);
  line_id_append_info line = test_line();
  line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 0;
  outcome out = agent_feed(received, LINE_ID_UPSTREAM, line);
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame, received) << "the ONU inserts the identity itself";

  g_agent.olt_slot = 0; // the line's facts cannot be had
  EXPECT_EQ(up(received), received);
}

TEST_F(dhcp6, missing_arguments) {
  direct_call call;
  uint8_t new_pkt[1536] = {};
  line_id_unit unit = {};
  EXPECT_EQ(line_id_dhcpv6_event_proc(nullptr, new_pkt, &call.info), -1);
  EXPECT_EQ(line_id_dhcpv6_event_proc(&unit, nullptr, &call.info), -1);
  EXPECT_EQ(line_id_dhcpv6_relay_reply_proc(nullptr, 10, new_pkt, &call.out_len, &call.info), -9);
  EXPECT_EQ(line_id_dhcpv6_relay_reply_proc(new_pkt, 10, new_pkt, nullptr, &call.info), -9);
  EXPECT_EQ(line_id_dhcpv6_relay_forward_proc(0, nullptr, 10, new_pkt, &call.out_len, &call.info), -9);
  EXPECT_EQ(line_id_dhcpv6_relay_forward_proc(0, new_pkt, 10, nullptr, &call.out_len, &call.info), -9);
  EXPECT_EQ(line_id_dhcpv6_relay_forward_proc(0, new_pkt, 10, new_pkt, &call.out_len, nullptr), -9);
}

TEST_F(dhcp6, udp_checksum_is_never_zero) {
  const octets frame = solicit();
  EXPECT_EQ(line_id_dhcpv6_udp_check_sum_proc(&frame[14], &frame[54]), line_id_get_u16(&frame[60]));
  EXPECT_EQ(line_id_dhcpv6_udp_check_sum_proc(nullptr, &frame[54]), 0xFFFF);
  // Pseudo-header 8 + 17 + length field 8, ports make up the rest of 0xFFFF.
  const octets zeroes(40, 0);
  const octets udp = {0xFF, 0xDE, 0, 0, 0, 8, 0, 0};
  EXPECT_EQ(line_id_dhcpv6_udp_check_sum_proc(zeroes.data(), udp.data()), 0xFFFF);
}

// Every prefix of a good frame ends in a code of its own or in a frame within bounds.
TEST_F(dhcp6, every_prefix_is_harmless) {
  const octets inner = dhcp6_message(SOLICIT, {tlv2(18, text("a b c d EP"))});
  const octets upstream[] = {
      solicit(), solicit(4),
      tagged(2).relay6(RELAY_FORW, 0, link_local(5)).option(9, inner).option(18, text("a b c d")).done()};
  const octets downstream[] = {
      relay_reply(join({option18("text"), option9(reply_message())})),
      relay_reply(option9(relay6_message(RELAY_REPL, 0, link_local(3), {option9(reply_message())})), link_local(1), 4)};
  const uint8_t upstream_tags[] = {0, 4, 2};
  ASSERT_EQ(line_id_set_dhcpv6_tag_dn_strip_cfg(2), 0);
  for (size_t i = 0; i < std::size(upstream); ++i) {
    direct_call call(upstream_tags[i]);
    for (size_t len = 0; len < upstream[i].size(); ++len) {
      const int32_t code = call.forward({upstream[i].begin(), upstream[i].begin() + static_cast<std::ptrdiff_t>(len)});
      ASSERT_TRUE(code == 0 || code == -159) << i << " cut at " << len << ": " << code;
      if (len < udp_offset(upstream_tags[i]) + 12) {
        ASSERT_EQ(code, -159) << i << " cut at " << len;
      }
    }
    agent_feed_truncated(upstream[i], LINE_ID_UPSTREAM);
  }
  for (const octets& frame : downstream) {
    direct_call call;
    for (size_t len = 0; len < frame.size(); ++len) {
      ASSERT_EQ(call.reply({frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(len)}), -159) << len;
    }
    agent_feed_truncated(frame, LINE_ID_DOWNSTREAM);
  }
}

} // namespace
