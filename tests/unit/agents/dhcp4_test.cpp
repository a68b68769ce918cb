// DHCPv4 frames through the agent: what comes out, octet for octet.
#include "config/store.h"
#include "config/white_list.h"
#include "tests/unit/agents/direct.h"

#include <functional>
#include <string>

namespace {

const std::string CTC = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP";
const std::string CTC_HEAD = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 ";
const std::string RECEIVED = "0 0/0/0:9.8 x/0/0/0/0/0/0 0/0/0:eth/1/2 EP"; // from an ONU; 43 characters
const std::string RECEIVED_JOINED = CTC_HEAD + "0/0/0:eth/1/2 GP";

octets sub1(const std::string& circuit) { return tlv1(1, text(circuit)); }
octets sub2(const std::string& remote) { return tlv1(2, text(remote)); }
octets ids(const std::string& circuit, const std::string& remote) { return join({sub1(circuit), sub2(remote)}); }

frame_builder request(frame_builder from = eth()) { return from.dhcp4(REQUEST).option(53, {3}); }

// A rebuilt frame: its UDP checksum is switched off.
octets rebuilt(frame_builder builder) {
  octets frame = builder.end();
  frame[builder.udp_at + 6] = frame[builder.udp_at + 7] = 0;
  return frame;
}

enum verdict { SENT, PASSED, DROPPED };

struct row {
  const char* name;
  std::function<void(agent_config&)> configure;
  octets in;
  uint8_t direct;
  verdict expected;
  octets out; // of a rebuilt frame
};

void plain(agent_config&) {}
void custom(agent_config& config) {
  config.table.line_id_format_type = 0;
  std::strcpy(config.formats.circuit_id, "%a/%s.%c");
  std::strcpy(config.formats.remote_id, "%h");
}
void policies(agent_config& config, uint8_t circuit, uint8_t remote) {
  config.table.dhcp_circuitid_up_policy = circuit;
  config.table.dhcp_remoteid_up_policy = remote;
}

// Templates of nothing but letters.
std::function<void(agent_config&)> literal(size_t circuit, size_t remote) {
  return [=](agent_config& config) {
    config.table.line_id_format_type = 0;
    std::memset(config.formats.circuit_id, 'c', circuit);
    std::memset(config.formats.remote_id, 'r', remote);
  };
}

void check_row(const row& r) {
  SCOPED_TRACE(r.name);
  const outcome out = agent_feed(r.in, r.direct);
  EXPECT_EQ(out.result, 0);
  ASSERT_EQ(g_agent.hook_calls, 1U);
  if (r.expected == DROPPED) {
    EXPECT_TRUE(out.sent.empty());
    return;
  }
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame, r.expected == PASSED ? r.in : r.out);
  EXPECT_EQ(out.sent[0].direct, r.direct);
  EXPECT_EQ(out.sent[0].port, 11);
}

class dhcp4_test : public agent_test {
protected:
  void run(const std::vector<row>& rows) {
    for (const row& r : rows) {
      agent_config config = agent_defaults();
      r.configure(config);
      ASSERT_EQ(agent_start(config), 0);
      check_row(r);
      ask_with_cuts(r.in, LINE_ID_DHCPV4, r.direct);
    }
  }
};

octets with82(const octets& value) { return request().option(82, value).option(55, {1, 3}).end(); }
octets rebuilt82(const octets& value) { return rebuilt(request().option(82, value).option(55, {1, 3})); }

TEST_F(dhcp4_test, upstream_insertion) {
  const octets plain_request = request().end();
  run({
      {"CTC", plain, plain_request, 1, SENT, rebuilt(request().option(82, ids(CTC, "ONU42")))},
      {"custom", custom, plain_request, 1, SENT, rebuilt(request().option(82, ids("an1/100.200", "00005e005301")))},
      {"CNC, standard type 1",
       [](agent_config& config) {
         config.table.line_id_format_type = 2;
         config.table.def_std_fmt_type = 1;
       },
       plain_request, 1, SENT,
       rebuilt(request().option(82, ids("0 0/0/0:100.200 ACC/an1/1/2/3/CARD/0/5 ONU42/N1/1/2/7 GP", "ONU42")))},
      {"one tag", plain, request(eth().vlan(7)).end(), 1, SENT,
       rebuilt(request(eth().vlan(7)).option(82, ids(CTC, "ONU42")))},
      {"four tags", plain, request(eth().vlan(7, 0x88A8).vlan(8).vlan(9).vlan(10)).end(), 1, SENT,
       rebuilt(request(eth().vlan(7, 0x88A8).vlan(8).vlan(9).vlan(10)).option(82, ids(CTC, "ONU42")))},
      {"octets behind the End option move with it", plain, request().raw({0xFF, 1, 2, 3}).done(), 1, SENT,
       [] {
         frame_builder b = request().option(82, ids(CTC, "ONU42")).raw({0xFF, 1, 2, 3});
         octets frame = b.done();
         frame[b.udp_at + 6] = frame[b.udp_at + 7] = 0;
         return frame;
       }()},
      {"Circuit-ID kept on insertion is absent", [](agent_config& c) { policies(c, 2, 0); }, plain_request, 1, SENT,
       rebuilt(request().option(82, sub2("ONU42")))},
      {"Remote-ID off", [](agent_config& c) { c.table.remoteid_enable = 0; }, plain_request, 1, SENT,
       rebuilt(request().option(82, sub1(CTC)))},
      {"both off: an option of length 0",
       [](agent_config& c) { c.table.remoteid_enable = c.table.circuitid_enable = 0; }, plain_request, 1, SENT,
       rebuilt(request().option(82, {}))},
      {"no message type", plain, eth().dhcp4(REQUEST).end(), 1, SENT,
       rebuilt(eth().dhcp4(REQUEST).option(82, ids(CTC, "ONU42")))},
      {"255 octets", literal(151, 100), plain_request, 1, SENT,
       rebuilt(request().option(82, ids(std::string(151, 'c'), std::string(100, 'r'))))},
      {"256 octets", literal(152, 100), plain_request, 1, PASSED, {}},
      {"off, but the policy says anew",
       [](agent_config& c) {
         c.table.circuitid_enable = 0;
         policies(c, 1, 0);
       },
       plain_request, 1, SENT, rebuilt(request().option(82, ids(CTC, "ONU42")))},
  });
}

TEST_F(dhcp4_test, upstream_rewriting) {
  const octets received = with82(ids(RECEIVED, "old"));
  const octets anew = rebuilt82(ids(CTC, "ONU42"));
  const octets joined = rebuilt82(ids(RECEIVED_JOINED, "ONU42"));
  run({
      {"both identifiers", plain, received, 1, SENT, joined},
      {"replace", [](agent_config& c) { policies(c, 1, 1); }, received, 1, SENT, anew},
      {"keep", [](agent_config& c) { policies(c, 2, 2); }, received, 1, SENT, rebuilt82(ids(RECEIVED, "old"))},
      {"keep 255 octets", [](agent_config& c) { policies(c, 2, 2); },
       with82(ids(std::string(150, 'c'), std::string(101, 'r'))), 1, SENT,
       rebuilt82(ids(std::string(150, 'c'), std::string(101, 'r')))},
      {"custom", custom, with82(ids("zz/9.8", "old")), 1, SENT, rebuilt82(ids("an1/100.200", "00005e005301"))},
      {"CNC", [](agent_config& c) { c.table.line_id_format_type = 2; },
       with82(ids("0 0/0/0:9.8 x/0/0/0/0/0/0/0/N1/1/2 EP", "old")), 1, SENT,
       rebuilt82(ids("0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5/ONU42/ N1/1/2 EP", "ONU42"))},
      {"keep what is off", [](agent_config& c) { c.table.remoteid_enable = 0; }, received, 1, SENT,
       rebuilt82(ids(RECEIVED_JOINED, "old"))},
      {"other sub-options go", plain, with82(join({sub1(RECEIVED), tlv1(9, {1, 2}), sub2("old"), tlv1(0x81, {})})), 1,
       SENT, joined},
      {"Remote-ID in front stays in front", plain, with82(join({sub2("old"), sub1(RECEIVED)})), 1, SENT,
       rebuilt82(join({sub2("ONU42"), sub1(RECEIVED_JOINED)}))},
      {"Remote-ID alone", plain, with82(sub2("old")), 1, SENT, anew},
      {"Remote-ID alone, kept", [](agent_config& c) { policies(c, 2, 2); }, with82(sub2("old")), 1, SENT,
       rebuilt82(sub2("old"))},
      {"Circuit-ID alone", plain, with82(sub1(RECEIVED)), 1, SENT, joined},
      {"no known sub-option", plain, with82(tlv1(9, {1, 2, 3})), 1, SENT, anew},
      {"empty option", plain, with82({}), 1, SENT, anew},
      {"the last of several is rewritten", plain,
       request().option(82, sub1("first")).option(82, ids(RECEIVED, "old")).end(), 1, SENT,
       rebuilt(request().option(82, sub1("first")).option(82, ids(RECEIVED_JOINED, "ONU42")))},
      {"repeated sub-options", [](agent_config& c) { policies(c, 2, 2); },
       with82(join({sub1("a"), sub1("b"), sub2("c")})), 1, SENT, rebuilt82(join({sub1("a"), sub1("b"), sub2("c")}))},
      {"repeats that pass 255 octets",
       plain,
       with82(join({sub1(""), sub1(""), sub1(""), sub1(""), sub1(""), sub1(""), sub1(""), sub1("")})),
       1,
       DROPPED,
       {}},
      {"one octet left over", plain, with82(join({sub1(RECEIVED), {2}})), 1, DROPPED, {}},
      {"a tail that is too long", plain, with82(sub1("0 0/0/0:9.8 x/0 " + std::string(230, 't'))), 1, DROPPED, {}},
      {"sub-option past the option's end", plain, with82(join({sub1(RECEIVED), {2, 9, 1}})), 1, DROPPED, {}},
  });
}

TEST_F(dhcp4_test, circuit_id_based_on_vlan_takes_the_option_out) {
  line_id_append_info line = test_line();
  line.ext[LINE_ID_EXT_CIRCUIT_BY_VLAN] = 1;
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  outcome out = agent_feed(with82(ids(RECEIVED, "old")), 1, line);
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame, rebuilt(request().option(55, {1, 3})));
  out = agent_feed(request().end(), 1, line);
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame, rebuilt(request()));
}

TEST_F(dhcp4_test, frames_that_may_not_travel) {
  run({
      {"Pad first", plain, eth().dhcp4(REQUEST).raw({0}).option(53, {3}).end(), 1, DROPPED, {}},
      {"Pad later", plain, request().raw({0}).end(), 1, DROPPED, {}},
      {"OFFER upstream", plain, eth().dhcp4(1, 68, 67).option(53, {2}).end(), 1, DROPPED, {}},
      {"ACK upstream", plain, eth().dhcp4(1, 68, 67).option(53, {5}).end(), 1, DROPPED, {}},
      {"NAK upstream", plain, eth().dhcp4(1, 68, 67).option(53, {6}).end(), 1, DROPPED, {}},
      {"the type is the octet behind the length",
       plain,
       eth().dhcp4(REQUEST).raw({53, 0, 2, 1, 0}).end(),
       1,
       DROPPED,
       {}},
      {"BOOTREPLY upstream", plain, eth().dhcp4(2, 68, 67).option(53, {1}).end(), 1, DROPPED, {}},
      {"BOOTREPLY upstream behind two tags",
       plain,
       eth().vlan(1).vlan(2).dhcp4(2, 68, 67).option(53, {1}).end(),
       1,
       DROPPED,
       {}},
      {"BOOTREQUEST downstream", plain, eth().dhcp4(1, 67, 68).option(53, {2}).end(), 2, DROPPED, {}},
      {"DISCOVER downstream", plain, eth().dhcp4(2, 67, 68).option(53, {1}).end(), 2, DROPPED, {}},
      {"option past the end", plain, eth().dhcp4(REQUEST).raw({12, 200, 1}).done(), 1, DROPPED, {}},
      {"no End option", plain, request().done(), 1, DROPPED, {}},
      {"no options at all", plain, eth().dhcp4(REQUEST).done(), 1, DROPPED, {}},
  });
}

TEST_F(dhcp4_test, downstream_passes_as_received) {
  const octets offer = eth(SERVER_MAC).dhcp4(OFFER).option(53, {2}).option(82, ids(CTC, "ONU42")).end();
  run({
      {"with Option 82", plain, offer, 2, SENT, offer},
      {"strip on", [](agent_config& c) { c.table.dhcp_tag_dn_strip = 1; }, offer, 2, SENT, offer},
      {"ACK", plain, eth().dhcp4(ACK).option(53, {5}).end(), 2, SENT, eth().dhcp4(ACK).option(53, {5}).end()},
      {"Pad is a code with a length", plain, eth().dhcp4(NAK).raw({0, 1, 99}).option(53, {6}).end(), 2, SENT,
       eth().dhcp4(NAK).raw({0, 1, 99}).option(53, {6}).end()},
  });
}

TEST_F(dhcp4_test, growth_ends_at_1500_octets) {
  const size_t bare = request().end().size();
  const size_t grown = rebuilt(request().option(82, ids(CTC, "ONU42"))).size() - bare;
  const auto filled = [&](size_t total, const octets& option82) {
    frame_builder b = request();
    if (!option82.empty()) b.option(82, option82);
    size_t missing = total - (b.frame.size() + 1);
    while (missing >= 2) {
      const size_t value = std::min<size_t>(missing - 2, 200);
      const size_t take = missing - 2 - value == 1 ? value - 1 : value;
      b.option(43, octets(take, 7));
      missing -= take + 2;
    }
    return b;
  };
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  outcome out = agent_feed(filled(1500 - grown, {}).end(), 1);
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame.size(), 1500U);
  const octets too_long = filled(1501 - grown, {}).end();
  out = agent_feed(too_long, 1);
  ASSERT_EQ(out.sent.size(), 1U) << "an insertion that does not fit passes the frame";
  EXPECT_EQ(out.sent[0].frame, too_long);
  out = agent_feed(filled(1499, sub2("x")).end(), 1);
  EXPECT_TRUE(out.sent.empty()) << "a rewrite that does not fit drops it";
}

TEST_F(dhcp4_test, onu_information_option_moves_the_line) {
  agent_config config = agent_defaults();
  config.table.line_id_format_type = 0;
  std::strcpy(config.formats.circuit_id, "%o/%P");
  ASSERT_EQ(agent_start(config), 0);
  const auto circuit = [](const octets& value) {
    const octets in = eth().dhcp4(REQUEST).option(53, {3}).option(230, value).end();
    const outcome out = agent_feed(in, 1);
    return out.sent.size() == 1 ? out.sent[0].frame : octets{};
  };
  const auto expected = [](const octets& value, const std::string& id) {
    return rebuilt(eth().dhcp4(REQUEST).option(53, {3}).option(230, value).option(82, ids(id, "ONU42")));
  };
  EXPECT_EQ(circuit({1, 2, 0, 9}), expected({1, 2, 0, 9}, "258/9"));
  EXPECT_EQ(circuit({1, 2, 0}), expected({1, 2, 0}, "42/7")) << "too short: not the ONU's";
}

TEST_F(dhcp4_test, line_facts_that_fail_do_not_stop_the_agent) {
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  g_agent.olt_slot = 0;
  const outcome out = agent_feed(request().end(), 1);
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame, rebuilt(request().option(82, ids("0 0/0/0:0.0 an1/1/2/3/0/0/0 0", "0"))));
}

int move_to_instance_1(uint8_t mode, line_id_param_write_func, line_id_pkt_property* property) {
  if (mode == 2) property->reserved[LINE_ID_EXT_OLTID] = 1;
  return 0;
}

TEST_F(dhcp4_test, a_hook_may_move_the_frame_to_another_instance) {
  agent_config config = agent_defaults();
  ASSERT_EQ(agent_start(config), 0);
  custom(config);
  ASSERT_EQ(agent_add_instance(config, 1), 0);
  line_id_reg_param_custom_if(move_to_instance_1);
  const outcome out = agent_feed(request().end(), 1);
  EXPECT_EQ(out.sent.at(0).frame, rebuilt(request().option(82, ids("an1/100.200", "00005e005301"))));
  EXPECT_EQ(out.sent.at(0).oltid, 1);
}

TEST_F(dhcp4_test, line_id_switch_and_tags_let_frames_pass) {
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  line_id_append_info line = test_line();
  line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 0;
  outcome out = agent_feed(eth().dhcp4(1, 68, 67).option(53, {2}).end(), 1, line);
  EXPECT_EQ(out.sent.size(), 1U) << "the ONU inserts: nothing is looked at";
  out = agent_feed(eth().dhcp4(1, 67, 68).option(53, {2}).end(), 2, line);
  EXPECT_TRUE(out.sent.empty()) << "downstream the switch does not count";

  agent_desk desk(request().end(), LINE_ID_DHCPV4, 3);
  EXPECT_EQ(desk.ask(), 0) << "neither way: a copy goes on";
  EXPECT_EQ(desk.sent(), request().end());
  desk.pkt.direct = 1;
  desk.pkt.vlan_count = 5;
  EXPECT_EQ(desk.ask(), -1);
  EXPECT_EQ(line_id_dhcp_event_proc(nullptr, desk.out.get(), &desk.info), -2);
  EXPECT_EQ(line_id_dhcp_event_proc(desk.unit.get(), nullptr, &desk.info), -2);
}

TEST_F(dhcp4_test, white_list_passes_by_policy) {
  line_id_white_list list = {};
  list.num = 2;
  list.onu_type[1] = 9;
  list.dhcp_enable = 1;
  list.trans_policy = 1;
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  ASSERT_EQ(line_id_init_def_white_list_func(&list), 0);
  EXPECT_EQ(agent_feed(request().end(), 1).sent.at(0).frame, request().end());
  list.dhcp_enable = 0;
  line_id_init_def_white_list_func(&list);
  EXPECT_NE(agent_feed(request().end(), 1).sent.at(0).frame, request().end());

  // Policy 0: only a Circuit-ID that does not fit the custom template passes.
  agent_config config = agent_defaults();
  config.table.line_id_format_type = 0;
  std::strcpy(config.formats.circuit_id, "%Y-%X");
  ASSERT_EQ(agent_start(config), 0);
  list.dhcp_enable = 1;
  list.trans_policy = 0;
  line_id_init_def_white_list_func(&list);
  const octets unfit = with82(ids("none", "old"));
  EXPECT_EQ(agent_feed(unfit, 1).sent.at(0).frame, unfit);
  const octets fit = with82(ids("a-b", "old"));
  EXPECT_NE(agent_feed(fit, 1).sent.at(0).frame, fit);
  list.onu_type[1] = 8;
  line_id_init_def_white_list_func(&list);
  EXPECT_NE(agent_feed(unfit, 1).sent.at(0).frame, unfit) << "another ONU type";
}

int32_t g_spoof_answer;
uint32_t g_spoof_calls;
int32_t answer_spoofing(int32_t, int32_t, line_id_inf_info*) {
  ++g_spoof_calls;
  return g_spoof_answer;
}

TEST_F(dhcp4_test, spoofing_check_decides) {
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  g_line_id_ptl_reg_func.dhcp_spoof_proc = answer_spoofing;
  g_spoof_calls = 0;
  g_spoof_answer = -1;
  EXPECT_EQ(agent_feed(request().end(), 1).sent.size(), 1U);
  EXPECT_EQ(g_spoof_calls, 0U) << "off";
  line_id_set_dhcp_anti_spoofing_enable_cfg(0, 1);
  EXPECT_TRUE(agent_feed(request().end(), 1).sent.empty());
  line_id_append_info line = test_line();
  line.onu_authno = 0;
  EXPECT_EQ(agent_feed(request().end(), 1, line).sent.size(), 1U) << "no ONU number";
  g_spoof_answer = 0;
  EXPECT_EQ(agent_feed(request().end(), 1).sent.size(), 1U);
  EXPECT_EQ(g_spoof_calls, 2U);
}

TEST_F(dhcp4_test, frames_cut_anywhere_do_no_harm) {
  agent_config config = agent_defaults();
  config.table.dhcp_tag_dn_strip = 1;
  ASSERT_EQ(agent_start(config), 0);
  agent_feed_truncated(request().end(), 1);
  agent_feed_truncated(with82(ids(RECEIVED, "old")), 1);
  agent_feed_truncated(request(eth().vlan(1).vlan(2).vlan(3).vlan(4)).option(82, sub2("x")).end(), 1);
  agent_feed_truncated(eth().dhcp4(OFFER).option(53, {2}).option(82, ids(CTC, "ONU42")).end(), 2);
  // The same with lengths that fit the cut: without an End option nothing goes on.
  const octets whole = with82(ids(RECEIVED, "old"));
  for (size_t len = 42; len <= whole.size(); ++len) {
    frame_builder cut = request();
    cut.frame.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(len));
    const outcome out = agent_feed(cut.done(), 1);
    EXPECT_EQ(out.sent.size(), len == whole.size() ? 1U : 0U) << len;
  }
}

} // namespace
