// The DHCPv6 agent upstream: wrapping, and what is refused on the way.
#include "tests/unit/agents/dhcp6_test.h"

namespace {

TEST_F(dhcp6, client_messages_are_wrapped_under_any_tags) {
  for (const dhcp6_type type : {SOLICIT, REQUEST6, CONFIRM, RENEW, REBIND, RELEASE6, DECLINE6, INFORMATION_REQUEST}) {
    for (uint32_t tags = 0; tags <= 4; ++tags) {
      SCOPED_TRACE("type " + std::to_string(type) + " tags " + std::to_string(tags));
      const octets received = tagged(tags).dhcp6(type).option(1, {0, 3, 0, 1, 0, 0, 0x5E, 0, 0x53, 1}).done();
      const octets expected =
          relay_forward(received, tags, 0, join({option9(message_of(received, tags)), option18(CIRCUIT), option37()}));
      const octets sent = up(received);
      EXPECT_EQ(sent, expected);
      EXPECT_TRUE(udp6_checksum_good(sent, 14 + tags * 4, 54 + tags * 4));
    }
  }
}

// The whole of one wrapped SOLICIT, octet for octet, worked out apart from the builders.
TEST_F(dhcp6, wrapped_solicit_octets) {
  const octets expected = {
      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x5E, 0x00, 0x53, 0x01, 0x86, 0xDD,             // Ethernet
      0x60, 0x00, 0x00, 0x00, 0x00, 0x6B, 0x11, 0x01,                                                 // IPv6
      0xFE, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, // fe80::1
      0xFF, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x02, // ff02::1:2
      0x02, 0x23, 0x02, 0x23, 0x00, 0x6B, 0x00, 0x00,                                                 // UDP 547, 547
      0x0C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0xFE, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, // peer
      0x00, 0x09, 0x00, 0x08, 0x01, 0x12, 0x34, 0x56, 0x00, 0x0E, 0x00, 0x00,                        // Relay Message
      0x00, 0x12, 0x00, 0x24, '0',  ' ',  '0',  '/',  '0',  '/',  '0',  ':',  '1',  '0',  '0',  '.', // Interface-ID
      '2',  '0',  '0',  ' ',  'a',  'n',  '1',  '/',  '1',  '/',  '2',  '/',  '3',  '/',  '0',  '/',  '5',
      '/',  'O',  'N',  'U',  '4',  '2',  ' ',                                     //
      0x00, 0x25, 0x00, 0x09, 0x00, 0x00, 0x0E, 0xDF, 'O',  'N',  'U',  '4',  '2', // Remote-ID
  };
  octets sent = up(eth().dhcp6(SOLICIT).option(14, {}).done());
  ASSERT_EQ(sent.size(), expected.size());
  EXPECT_TRUE(udp6_checksum_good(sent, 14, 54));
  sent[60] = sent[61] = 0;
  EXPECT_EQ(sent, expected);
}

TEST_F(dhcp6, level_0_wraps_a_relay_forward_again) {
  line_id_set_dhcpv6_option18_cfg(0);
  for (const auto& [hops, expected_hops] : {std::pair<uint8_t, uint8_t>{0, 1}, {31, 32}, {255, 0}}) {
    const octets received = eth()
                                .relay6(RELAY_FORW, hops, link_local(0x11))
                                .option(18, text("a b c tail"))
                                .option(9, dhcp6_message(SOLICIT))
                                .done();
    EXPECT_EQ(up(received), relay_forward(received, 0, expected_hops,
                                          join({option9(message_of(received)), option18(CIRCUIT), option37()})));
  }
}

TEST_F(dhcp6, level_1_flattens_a_relay_forward) {
  const octets inner = dhcp6_message(REQUEST6, {tlv2(1, {1, 2})});
  const octets inner_18 = dhcp6_message(REQUEST6, {tlv2(1, {1, 2}), tlv2(18, text("a b c inner"))});
  const octets relay_18 = relay6_message(RELAY_FORW, 1, link_local(9), {tlv2(18, text("a b c deep")), option9(inner)});
  const octets broken_18 = join({inner_18, {0, 1, 0}});
  struct row {
    const char* name;
    octets options;
    octets content;
    std::string circuit;
  };
  const row rows[] = {
      {"no old Circuit-ID", option9(inner), inner, CIRCUIT},
      {"old one in front", join({tlv2(18, text("a b c front")), option9(inner)}), inner,
       CIRCUIT + std::string("front")},
      {"old one behind", join({option9(inner), tlv2(18, text("a b c back"))}), inner, CIRCUIT + std::string("back")},
      {"old one inside", option9(inner_18), inner_18, CIRCUIT + std::string("inner")},
      {"outer before inner", join({option9(inner_18), tlv2(18, text("a b c outer"))}), inner_18,
       CIRCUIT + std::string("outer")},
      {"an empty one is none", join({tlv2(18, {}), option9(inner_18)}), inner_18, CIRCUIT + std::string("inner")},
      {"inside a Relay-Forward", option9(relay_18), relay_18, CIRCUIT + std::string("deep")},
      {"malformed inside", option9(broken_18), broken_18, CIRCUIT},
      {"one octet inside", option9({12}), {12}, CIRCUIT},
      {"first Relay Message counts", join({option9(inner), option9(inner_18)}), inner, CIRCUIT},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    const octets received = tagged(1).relay6(RELAY_FORW, 7, link_local(0x11)).raw(r.options).done();
    EXPECT_EQ(up(received), relay_forward(received, 1, 7, join({option9(r.content), option18(r.circuit), option37()})));
  }

  // Without a Relay Message it is wrapped, its Interface-ID left alone.
  const octets bare = eth().relay6(RELAY_FORW, 7, link_local(0x11)).option(18, text("a b c lone")).done();
  EXPECT_EQ(up(bare), relay_forward(bare, 0, 7, join({option9(message_of(bare)), option18(CIRCUIT), option37()})));
}

TEST_F(dhcp6, old_circuit_id_is_cut_and_marked_by_format) {
  struct row {
    uint8_t format; // 0 custom, 1 CTC, 2 CNC
    uint8_t identity;
    uint8_t form;
    const char* old;
    std::string expected; // empty: dropped
  };
  const uint8_t gp = LINE_ID_FORM_GP, xg = LINE_ID_FORM_XG, xgs = LINE_ID_FORM_XGS, ep = LINE_ID_FORM_EP;
  const std::string ctc = CIRCUIT, ctc_no = CIRCUIT_NO_IDENTITY, cnc = CIRCUIT_CNC, cnc_no = CIRCUIT_CNC_NO_IDENTITY;
  const row rows[] = {
      {1, 1, gp, "a b c d EP e", ctc + "d EP e"},
      {1, 1, xg, "a b c d EP e", ctc + "d XG e"},
      {1, 1, xgs, "a b c d EP e", ctc + "d GP e"},
      {1, 1, ep, "a b c d XG e", ctc + "d GP e"},
      {1, 1, xg, "a b c d E", ctc + "d X"},
      {1, 1, xg, "a b c d ", ctc + "d "},
      {1, 1, xg, "a b c d", ctc + "d"},
      {1, 1, gp, "a b c ", ctc},
      {1, 1, gp, "a b c", ""},
      {1, 0, gp, "1/2/3/4/5/6/7/8/9 T", ctc_no + "9 T"},
      {1, 0, gp, "1/2/3/4/5/6/7/8 a b c", ""},
      {2, 1, gp, "1/2/3/4/5/6/7/8/9/10/11 T", cnc + "11 T"},
      {2, 1, gp, "1/2/3/4/5/6/7/8/9/10 T", ""},
      {2, 1, gp, "0 1 2 3 //a/b/c/d/e/f/g/h/i/j", cnc + "i/j"},
      {2, 1, xg, "0 1 2 3 //a/b/c/d/e/f/g/h/i/j", ""}, // the marker overwrites two separators
      {2, 0, xg, "a b c d EP e", cnc_no + "d XG e"},
      {0, 1, gp, "a b c d EP e", "an1-5"},
      {0, 1, gp, "nothing to cut", "an1-5"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(std::to_string(r.format) + " " + std::to_string(r.identity) + " " + r.old);
    start([&](agent_config& config) {
      config.table.line_id_format_type = r.format;
      std::strcpy(config.formats.circuit_id, "%a-%p");
    });
    g_agent.onu.onu_losn_valid_or_invalid = r.identity;
    g_agent.form = r.form;
    const octets inner = dhcp6_message(SOLICIT);
    const octets received =
        eth().relay6(RELAY_FORW, 3, link_local(0x11)).option(18, text(r.old)).option(9, inner).done();
    const octets expected =
        r.expected.empty() ? octets{}
                           : relay_forward(received, 0, 3, join({option9(inner), option18(r.expected), option37()}));
    EXPECT_EQ(up(received), expected);
  }
}

TEST_F(dhcp6, joined_circuit_id_ends_at_256_octets) {
  const octets inner = dhcp6_message(SOLICIT);
  for (const auto& [tail, code] : {std::pair<size_t, int32_t>{220, 0}, {221, -114}}) {
    // The part in front of the cut may be of any length.
    const std::string old = std::string(600, 'x') + " b c " + std::string(tail, 't');
    const octets received = eth().relay6(RELAY_FORW, 3, link_local(0x11)).option(18, text(old)).option(9, inner).done();
    EXPECT_EQ(direct_call().forward(received), code);
    const octets expected =
        code != 0 ? octets{}
                  : relay_forward(received, 0, 3,
                                  join({option9(inner), option18(CIRCUIT + std::string(tail, 't')), option37()}));
    EXPECT_EQ(up(received), expected);
  }
}

TEST_F(dhcp6, refused_upstream) {
  struct row {
    const char* name;
    octets frame;
    int32_t code;
  };
  const auto relayed = [](const octets& options) {
    return eth().relay6(RELAY_FORW, 0, link_local(0x11)).raw(options).done();
  };
  const octets good9 = option9(dhcp6_message(SOLICIT));
  const row rows[] = {
      {"ADVERTISE", eth().dhcp6(ADVERTISE).done(), -117},
      {"REPLY", eth().dhcp6(REPLY).done(), -117},
      {"RECONFIGURE", eth().dhcp6(RECONFIGURE).done(), -117},
      {"Relay-Reply", eth().relay6(RELAY_REPL, 0, link_local(1)).option(9, reply_message()).done(), -117},
      {"short message", eth().ip6_udp({}, 17, 546, 547).raw({1, 2, 3}).done(), -159},
      {"no message", eth().ip6_udp({}, 17, 546, 547).done(), -159},
      {"short relay header", eth().ip6_udp({}, 17, 547, 547).raw(octets(33, 12)).done(), -159},
      {"empty Relay Message", relayed(option9({})), -159},
      {"Relay Message overruns", relayed({0, 9, 0, 5, 1, 2, 3, 4}), -159},
      {"option behind it overruns", relayed(join({good9, {0, 1, 0, 1}})), -159},
      {"three octets behind it", relayed(join({good9, {0, 0, 0}})), -159},
      {"chain of headers without UDP", eth().ip6_udp(octets(8, 0), 0, 546, 547).raw(dhcp6_message(SOLICIT)).done(),
       -159},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(direct_call().forward(r.frame), r.code);
    EXPECT_EQ(up(r.frame), octets{});
  }
  // At level 0 nobody looks into a received Relay-Forward.
  line_id_set_dhcpv6_option18_cfg(0);
  EXPECT_EQ(direct_call().forward(relayed({0, 9, 0, 5, 1, 2, 3, 4})), 0);
  EXPECT_EQ(direct_call().forward(eth().ip6_udp({}, 17, 547, 547).raw(octets(33, 12)).done()), -159);
}

TEST_F(dhcp6, relay_forward_ends_at_1536_octets) {
  const auto frame_of = [](size_t len) {
    return eth().dhcp6(SOLICIT).raw(octets(len - udp_offset(0) - 8 - 4, 0)).done();
  };
  EXPECT_EQ(up(frame_of(1445)).size(), 1536U);
  EXPECT_EQ(direct_call().forward(frame_of(1446)), -157);
  EXPECT_EQ(direct_call().forward(frame_of(1503)), -157);
  EXPECT_EQ(up(frame_of(1446)), octets{});
  EXPECT_EQ(up(frame_of(1534)), octets{});

  // With both options off, the headers and the message alone count.
  ASSERT_EQ(line_id_set_option18_cfg(0, 0), 0);
  ASSERT_EQ(line_id_set_option37_cfg(0, 0), 0);
  direct_call bare;
  EXPECT_EQ(bare.forward(frame_of(1498)), 0);
  EXPECT_EQ(bare.out_len, 1536);
  EXPECT_EQ(bare.forward(frame_of(1499)), -157);
}

TEST_F(dhcp6, options_18_and_37_by_their_switches) {
  const octets received = solicit();
  const octets content = option9(message_of(received));
  struct row {
    uint8_t option18_on, option37_on;
    octets options;
  };
  const row rows[] = {{0, 0, content},
                      {1, 0, join({content, option18(CIRCUIT)})},
                      {0, 1, join({content, option37()})},
                      {1, 1, join({content, option18(CIRCUIT), option37()})},
                      {2, 255, join({content, option18(CIRCUIT), option37()})}};
  for (const row& r : rows) {
    SCOPED_TRACE(std::to_string(r.option18_on) + " " + std::to_string(r.option37_on));
    g_line_id_common_cfg[0].option18_enable = r.option18_on;
    g_line_id_common_cfg[0].option37_enable = r.option37_on;
    direct_call call;
    ASSERT_EQ(call.forward(received), 0);
    EXPECT_EQ(octets(call.out, call.out + call.out_len), relay_forward(received, 0, 0, r.options));
  }
}

// The walk starts at the IPv6 header: 0x60 as type, its second octet as length, then the source address.
TEST_F(dhcp6, extension_headers_are_walked_from_the_ipv6_header) {
  octets received = eth().ip6_udp(octets(16, 0xAA), 0, 546, 547).raw(dhcp6_message(SOLICIT)).done();
  received[22] = 17; // 1100::1: the walk finds UDP at octet 8 and adds (0 + 1) x 8
  received[23] = 0;
  const octets content = {received.begin() + 78, received.end()};
  octets peer = link_local(1);
  peer[0] = 0x11;
  peer[1] = 0;
  const octets expected = rebuilt(
      received, 0, 547, 547, join({{12, 0}, octets(16, 0), peer, option9(content), option18(CIRCUIT), option37()}), 16);
  EXPECT_EQ(up(received), expected);

  octets reply = eth(SERVER_MAC)
                     .ip6_udp(octets(16, 0xAA), 0, 547, 547)
                     .raw(relay6_message(RELAY_REPL, 0, link_local(0x77), {option9(reply_message())}))
                     .done();
  reply[22] = 17;
  reply[23] = 0;
  octets unwrapped = rebuilt(reply, 0, 547, 546, reply_message(), 16);
  const octets to = link_local(0x77);
  std::copy(to.begin(), to.end(), unwrapped.begin() + 38);
  frame_builder again;
  again.frame = unwrapped;
  again.ip_at = 14;
  again.udp_at = 70;
  again.ip6 = true;
  EXPECT_EQ(down(reply), again.done());

  received[23] = 0x7F; // 1032 octets: the UDP header would lie past the frame
  EXPECT_EQ(up(received), octets{});
}

TEST_F(dhcp6, extension_header_chain) {
  const auto walk = [](const octets& chain) {
    const auto copy = direct_call::exact(chain);
    return line_id_dhcpv6_ext_header_proc(copy.get(), static_cast<uint32_t>(chain.size()));
  };
  octets two(16, 0);
  two[8] = 17;
  two[9] = 1;
  octets far(1002, 0); // type 17 stands at octet 1000, where nobody looks any more
  far[1] = 124;
  far[1000] = 17;
  octets near(994, 0);
  near[1] = 123;
  near[992] = 17;
  EXPECT_EQ(walk({17, 0}), 8);
  EXPECT_EQ(walk({17, 255}), 2048);
  EXPECT_EQ(walk(two), 24);
  EXPECT_EQ(walk(near), 1000);
  EXPECT_EQ(walk(far), -159);
  EXPECT_EQ(walk({17}), -159);
  EXPECT_EQ(walk({0, 0}), -159);
  EXPECT_EQ(walk({}), -159);
  EXPECT_EQ(line_id_dhcpv6_ext_header_proc(nullptr, 8), -9);
}

TEST_F(dhcp6, ethernet_padding_enters_the_relay_message) {
  const octets received = eth().dhcp6(SOLICIT).padded(10);
  EXPECT_EQ(up(received),
            relay_forward(received, 0, 0, join({option9(message_of(received)), option18(CIRCUIT), option37()})));
}

} // namespace
