// PPPoE Discovery frames through the agent: what comes out, octet for octet, and what is counted.
#include "antispoof/binding_table.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "tests/unit/agents/direct.h"

#include <functional>
#include <string>

namespace {

const std::string CTC = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 GP";
const std::string RECEIVED = "0 0/0/0:9.8 x/0/0/0/0/0/0 0/0/0:eth/1/2 EP";
const std::string RECEIVED_JOINED = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 0/0/0:eth/1/2 GP";
const octets VENDOR = {0, 0, 0x0D, 0xE9}; // 3561
const octets OTHER_VENDOR = {0, 0, 0x01, 0x02};

octets sub1(const std::string& circuit) { return tlv1(1, text(circuit)); }
octets sub2(const std::string& remote) { return tlv1(2, text(remote)); }
octets empty_circuit_ids(size_t number) {
  octets out;
  for (size_t i = 0; i < number; ++i) out.insert(out.end(), {1, 0});
  return out;
}
octets tag_value(std::initializer_list<octets> subs) { return join({VENDOR, join(subs)}); }

frame_builder discovery(pppoe_code code, frame_builder from = eth()) {
  return from.pppoe(code).option(0x0101, {}).option(0x0103, {9, 8, 7});
}

enum verdict { SENT, PASSED, DROPPED, REFUSED };

// Frames received, forwarded and dropped that a row counts.
struct counts {
  uint32_t received;
  uint32_t forwarded;
  uint32_t dropped;
  bool operator==(const counts&) const = default;
};

struct row {
  const char* name;
  std::function<void(agent_config&)> configure;
  octets in;
  uint8_t direct;
  verdict expected;
  octets out;
  counts counted;
};

// Sum over the types of the three tables for C-VLAN 200: behind 27 totals and 4097 markers, 5 x 4097 each.
counts counted() {
  counts sum = {};
  for (uint32_t type = 0; type < 5; ++type) {
    sum.received += g_line_id_statics[4124 + type * 4097 + 200].load();
    sum.forwarded += g_line_id_statics[4124 + (5 + type) * 4097 + 200].load();
    sum.dropped += g_line_id_statics[4124 + (10 + type) * 4097 + 200].load();
  }
  return sum;
}

void plain(agent_config&) {}
void strip_on(agent_config& config) { config.table.pppoe_tag_dn_strip = 1; }
void keep(agent_config& config) { config.table.pppoe_circuitid_up_policy = config.table.pppoe_remoteid_up_policy = 2; }
void anew(agent_config& config) { config.table.pppoe_circuitid_up_policy = config.table.pppoe_remoteid_up_policy = 1; }

// Cut anywhere, with payload lengths that fit the cut, so that the walk itself meets every one of them.
void ask_with_payload_cuts(octets frame, uint8_t direct) {
  uint32_t at = 12; // of the payload length, six octets behind the EtherType
  while (frame[at] != 0x88 || frame[at + 1] != 0x63) at += 4;
  at += 6;
  for (; frame.size() >= at + 2; frame.pop_back()) {
    frame[at] = static_cast<uint8_t>((frame.size() - at - 2) >> 8);
    frame[at + 1] = static_cast<uint8_t>(frame.size() - at - 2);
    agent_desk desk(frame, LINE_ID_PPPOE, direct);
    const int32_t verdict = desk.ask();
    ASSERT_TRUE(verdict == 0 || verdict == -1 || verdict == -2) << frame.size();
    ASSERT_LE(desk.info.new_pkt_len, 1536) << frame.size();
  }
}

class pppoe_test : public agent_test {
protected:
  void run(const std::vector<row>& rows) {
    for (const row& r : rows) {
      SCOPED_TRACE(r.name);
      agent_config config = agent_defaults();
      r.configure(config);
      ASSERT_EQ(agent_start(config), 0);
      const outcome out = agent_feed(r.in, r.direct);
      EXPECT_EQ(out.result, r.expected == REFUSED ? -44 : 0);
      const bool sent = r.expected == SENT || r.expected == PASSED;
      ASSERT_EQ(out.sent.size(), sent ? 1U : 0U);
      if (sent) {
        EXPECT_EQ(out.sent[0].frame, r.expected == PASSED ? r.in : r.out);
      }
      EXPECT_EQ(counted(), r.counted) << counted().received << counted().forwarded << counted().dropped;
      ask_with_cuts(r.in, LINE_ID_PPPOE, r.direct);
      ask_with_payload_cuts(r.in, r.direct);
    }
  }
};

TEST_F(pppoe_test, upstream_insertion) {
  const octets both = tag_value({sub1(CTC), sub2("ONU42")});
  const counts ok = {1, 1, 0};
  run({
      {"PADI", plain, discovery(PADI).done(), 1, SENT, discovery(PADI).option(0x0105, both).done(), ok},
      {"PADR", plain, discovery(PADR).done(), 1, SENT, discovery(PADR).option(0x0105, both).done(), ok},
      {"PADT", plain, discovery(PADT).done(), 1, SENT, discovery(PADT).option(0x0105, both).done(), ok},
      {"four tags", plain, discovery(PADI, eth().vlan(1).vlan(2).vlan(3).vlan(4)).done(), 1, SENT,
       discovery(PADI, eth().vlan(1).vlan(2).vlan(3).vlan(4)).option(0x0105, both).done(), ok},
      {"empty payload", plain, eth().pppoe(PADI).done(), 1, SENT, eth().pppoe(PADI).option(0x0105, both).done(), ok},
      {"padding goes behind the new tag", plain, discovery(PADI).padded(20), 1, SENT,
       discovery(PADI).option(0x0105, both).padded(20), ok},
      {"another tag overruns the payload", plain, eth().pppoe(PADI).raw({1, 3, 0, 9, 1}).done(), 1, SENT,
       eth().pppoe(PADI).raw({1, 3, 0, 9, 1}).option(0x0105, both).done(), ok},
      {"fewer than four octets left", plain, eth().pppoe(PADI).raw({1, 5, 0}).done(), 1, SENT,
       eth().pppoe(PADI).raw({1, 5, 0}).option(0x0105, both).done(), ok},
      {"both kept: a tag without sub-options", keep, discovery(PADI).done(), 1, SENT,
       discovery(PADI).option(0x0105, VENDOR).done(), ok},
  });
}

TEST_F(pppoe_test, upstream_rewriting) {
  const auto padr = [](const octets& value) {
    return discovery(PADR).option(0x0105, value).option(0x0104, {5}).done();
  };
  const octets joined = padr(tag_value({sub1(RECEIVED_JOINED), sub2("ONU42")}));
  const octets both = padr(tag_value({sub1(CTC), sub2("ONU42")}));
  const counts ok = {1, 1, 0};
  const counts lost = {1, 0, 1};
  run({
      {"both", plain, padr(tag_value({sub1(RECEIVED), sub2("old")})), 1, SENT, joined, ok},
      {"anew", anew, padr(tag_value({sub1(RECEIVED), sub2("old")})), 1, SENT, both, ok},
      {"keep", keep, padr(tag_value({sub1(RECEIVED), sub2("old")})), 1, SENT,
       padr(tag_value({sub1(RECEIVED), sub2("old")})), ok},
      {"another vendor's tag becomes ours", plain, padr(join({OTHER_VENDOR, sub1(RECEIVED), sub2("old")})), 1, SENT,
       joined, ok},
      {"other sub-options go", plain, padr(tag_value({tlv1(0x81, {1}), sub1(RECEIVED), tlv1(0x84, {0, 0}), sub2("o")})),
       1, SENT, joined, ok},
      {"Circuit-ID alone", plain, padr(tag_value({sub1(RECEIVED)})), 1, SENT, joined, ok},
      {"Remote-ID alone", plain, padr(tag_value({sub2("old")})), 1, SENT, both, ok},
      {"neither", plain, padr(tag_value({tlv1(7, {1})})), 1, SENT, both, ok},
      {"value of 4 octets", plain, padr(VENDOR), 1, SENT, both, ok},
      {"value of 3 octets", plain, padr({0, 0, 13}), 1, SENT, both, ok},
      {"value of 2 octets", plain, padr({0, 0}), 1, SENT, both, ok},
      {"value of 1 octet", plain, padr({0}), 1, SENT, both, ok},
      {"value of no octets", plain, padr({}), 1, SENT, both, ok},
      {"the first of several", plain,
       discovery(PADR).option(0x0105, tag_value({sub2("old")})).option(0x0105, tag_value({sub2("b")})).done(), 1, SENT,
       discovery(PADR)
           .option(0x0105, tag_value({sub1(CTC), sub2("ONU42")}))
           .option(0x0105, tag_value({sub2("b")}))
           .done(),
       ok},
      {"a long value: no limit of 255", keep,
       padr(tag_value({sub1(std::string(250, 'a')), sub2(std::string(250, 'b'))})), 1, SENT,
       padr(tag_value({sub1(std::string(250, 'a')), sub2(std::string(250, 'b'))})), ok},
      {"Remote-ID alone, kept", keep, padr(tag_value({sub2("old")})), 1, SENT, padr(tag_value({sub2("old")})), ok},
      {"two Remote-IDs alone, kept, of 256 octets",
       keep,
       padr(tag_value({sub2(std::string(126, 'a')), sub2(std::string(126, 'b'))})),
       1,
       DROPPED,
       {},
       lost},
      {"a tail that is too long",
       plain,
       padr(tag_value({sub1("0 0/0/0:9.8 x/0 " + std::string(230, 't'))})),
       1,
       DROPPED,
       {},
       lost},
      {"Circuit-IDs without end", plain, padr(tag_value({empty_circuit_ids(700)})), 1, DROPPED, {}, lost},
      {"one octet left over", plain, padr(join({VENDOR, sub1(RECEIVED), {2}})), 1, DROPPED, {}, lost},
      {"sub-option past the tag's end", plain, padr(join({VENDOR, {1, 9, 1}})), 1, DROPPED, {}, lost},
      {"the tag overruns the payload", plain, eth().pppoe(PADR).raw({1, 5, 0, 9, 0, 0}).done(), 1, DROPPED, {}, lost},
  });
}

TEST_F(pppoe_test, downstream) {
  const octets tag = tag_value({sub1(CTC), sub2("ONU42")});
  const octets pado = discovery(PADO).option(0x0105, tag).option(0x0104, {5}).done();
  run({
      {"strip off", plain, pado, 2, PASSED, {}, {1, 0, 0}},
      {"strip on", strip_on, pado, 2, SENT, discovery(PADO).option(0x0104, {5}).done(), {1, 1, 0}},
      {"PADS", strip_on, discovery(PADS).option(0x0105, tag).padded(7), 2, SENT, discovery(PADS).padded(7), {1, 1, 0}},
      {"another vendor's tag goes too",
       strip_on,
       discovery(PADS).option(0x0105, OTHER_VENDOR).done(),
       2,
       SENT,
       discovery(PADS).done(),
       {1, 1, 0}},
      {"only the first goes",
       strip_on,
       discovery(PADO).option(0x0105, tag).option(0x0105, VENDOR).done(),
       2,
       SENT,
       discovery(PADO).option(0x0105, VENDOR).done(),
       {1, 1, 0}},
      {"no tag", strip_on, discovery(PADO).done(), 2, PASSED, {}, {1, 0, 0}},
      {"the tag overruns", strip_on, eth().pppoe(PADO).raw({1, 5, 0, 9, 0}).done(), 2, PASSED, {}, {1, 0, 0}},
      {"PADI is refused", strip_on, discovery(PADI).done(), 2, REFUSED, {}, {0, 0, 0}},
      {"PADT is refused", strip_on, discovery(PADT).done(), 2, REFUSED, {}, {0, 0, 0}},
      {"payload length too large", plain, discovery(PADO).payload_len(900).done(), 2, REFUSED, {}, {0, 0, 0}},
  });
}

// Frames that ingress refuses are put before the agent itself.
TEST_F(pppoe_test, the_agent_refuses_by_itself) {
  struct refusal {
    const char* name;
    octets frame;
    uint8_t direct;
    int32_t verdict;
    counts counted;
  };
  const octets unknown = eth().pppoe(static_cast<pppoe_code>(0x42)).done();
  for (const refusal& r : std::initializer_list<refusal>{
           {"PADI down", discovery(PADI).done(), 2, -2, {0, 0, 1}},
           {"PADR down", discovery(PADR).done(), 2, -2, {0, 0, 1}},
           {"PADT down", discovery(PADT).done(), 2, -2, {0, 0, 1}},
           {"PADO up: passed on, yet counted as dropped", discovery(PADO).done(), 1, -1, {0, 0, 1}},
           {"PADS up", discovery(PADS).done(), 1, -1, {0, 0, 1}},
           {"unknown code up", unknown, 1, -1, {0, 0, 0}},
           {"unknown code down", unknown, 2, -1, {0, 0, 0}},
           {"payload too long up", discovery(PADI).payload_len(12).done(), 1, -2, {1, 0, 1}},
           {"payload too long down", discovery(PADS).payload_len(12).done(), 2, -2, {1, 0, 1}},
           {"neither way", discovery(PADI).done(), 3, -2, {0, 0, 1}},
       }) {
    SCOPED_TRACE(r.name);
    ASSERT_EQ(agent_start(agent_defaults()), 0);
    EXPECT_EQ(agent_desk(r.frame, LINE_ID_PPPOE, r.direct).ask(), r.verdict);
    EXPECT_EQ(counted(), r.counted);
  }
  EXPECT_EQ(line_id_pppoe_event_proc(nullptr, nullptr, nullptr), -2);
}

TEST_F(pppoe_test, growth_ends_at_1500_octets) {
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  const size_t grown = 8 + sub1(CTC).size() + sub2("ONU42").size();
  const auto filled = [](size_t total) {
    frame_builder b = discovery(PADI);
    return b.option(0x0103, octets(total - b.frame.size() - 4, 7));
  };
  outcome out = agent_feed(filled(1500 - grown).done(), 1);
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame.size(), 1500U);
  const octets too_long = filled(1501 - grown).done();
  out = agent_feed(too_long, 1);
  ASSERT_EQ(out.sent.size(), 1U);
  EXPECT_EQ(out.sent[0].frame, too_long) << "an insertion that does not fit passes the frame";
  out = agent_feed(filled(1480).option(0x0105, VENDOR).done(), 1);
  EXPECT_TRUE(out.sent.empty()) << "a rewrite that does not fit drops it";
}

TEST_F(pppoe_test, switches_let_frames_pass) {
  ASSERT_EQ(agent_start(agent_defaults()), 0);
  const octets padi = discovery(PADI).done();
  line_id_append_info line = test_line();
  line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 0;
  EXPECT_EQ(agent_feed(padi, 1, line).sent.at(0).frame, padi);
  EXPECT_EQ(counted(), (counts{0, 0, 0}));
  line = test_line();
  line.ext[LINE_ID_EXT_CIRCUIT_BY_VLAN] = 1;
  const octets tagged = discovery(PADI).option(0x0105, tag_value({sub2("old")})).done();
  EXPECT_EQ(agent_feed(tagged, 1, line).sent.at(0).frame, padi) << "the tag is taken out";
  g_agent.olt_slot = 0;
  EXPECT_EQ(agent_feed(padi, 1).sent.at(0).frame, padi) << "no line facts";
  EXPECT_EQ(agent_feed(tagged, 1).sent.at(0).frame, tagged);
}

// The learnt place of SUBSCRIBER_MAC, or none.
bool bound_at(uint16_t onu) {
  line_id_binding_place place = {};
  return line_id_search_pppoe_binding_table(SUBSCRIBER_MAC.at, &place) == 0 && place.onu == onu;
}

class pppoe_spoofing_test : public agent_test {
protected:
  void SetUp() override {
    agent_config config = agent_defaults();
    config.table.pppoe_anti_spoofing_enable = 1;
    ASSERT_EQ(agent_start(config), 0);
    line_id_set_pppoe_valid_binding_count_cfg(0, 2);
  }
  // A frame from an ONU, which says so itself; with the vendor tag unless told otherwise.
  static size_t send_from(uint16_t onu, pppoe_code code, bool onu_tag, bool vendor_tag) {
    line_id_append_info line = test_line();
    frame_builder frame = discovery(code);
    if (onu_tag) frame.option(0x5516, {static_cast<uint8_t>(onu >> 8), static_cast<uint8_t>(onu), 0, 7});
    if (!onu_tag) line.onu_authno = onu;
    if (vendor_tag) frame.option(0x0105, tag_value({sub2("old")}));
    return agent_feed(frame.done(), 1, line).sent.size();
  }
};

TEST_F(pppoe_spoofing_test, a_bound_address_is_caught_behind_another_onu) {
  EXPECT_EQ(send_from(42, PADI, true, false), 1U);
  EXPECT_TRUE(bound_at(42));
  EXPECT_EQ(send_from(42, PADR, true, false), 1U);
  EXPECT_EQ(send_from(43, PADI, true, false), 0U) << "caught by the ONU's tag";
  EXPECT_EQ(send_from(43, PADI, false, true), 0U) << "caught before the vendor tag is rewritten";
  EXPECT_EQ(send_from(43, PADI, false, false), 1U) << "neither tag: not looked at";
  ASSERT_EQ(g_agent.alarms.size(), 2U);
  EXPECT_EQ(g_agent.alarms[0].onu_no, 43) << "the offender's place";
  EXPECT_EQ(g_agent.alarms[0].cvlan, 200);
  EXPECT_EQ(g_agent.alarms[0].kind, 0);
  EXPECT_TRUE(bound_at(42));
}

TEST_F(pppoe_spoofing_test, padt_is_judged_once) {
  EXPECT_EQ(send_from(42, PADT, true, false), 0U) << "an unknown address";
  EXPECT_EQ(send_from(42, PADI, true, true), 1U);
  EXPECT_EQ(send_from(43, PADT, true, true), 0U) << "from another ONU";
  EXPECT_TRUE(bound_at(42));
  EXPECT_EQ(send_from(42, PADT, true, true), 1U) << "both tags: the first check's removal does not fail the second";
  EXPECT_FALSE(bound_at(42));
  ASSERT_EQ(g_agent.alarms.size(), 1U);
  EXPECT_EQ(g_agent.alarms[0].kind, 1);
}

TEST_F(pppoe_spoofing_test, a_short_onu_tag_says_nothing) {
  const octets frame = discovery(PADI).option(0x5516, {0, 43, 0}).done();
  EXPECT_EQ(agent_feed(frame, 1).sent.size(), 1U);
  EXPECT_FALSE(bound_at(42));
  EXPECT_FALSE(bound_at(43));
}

// The registration facts name the PON port; the technology that is asked for after them is unknown.
int name_pon_5(line_id_onu_reg_info* info) {
  info->onu_ponno = 5;
  return 0;
}

TEST_F(pppoe_spoofing_test, missing_facts_drop_only_without_a_pon_number) {
  g_agent.facts_result = -1;
  EXPECT_EQ(send_from(42, PADI, true, false), 1U);
  line_id_append_info line = test_line();
  line.onu_ponno = 0;
  const octets frame = discovery(PADI).option(0x5516, {0, 42, 0, 7}).done();
  EXPECT_TRUE(agent_feed(frame, 1, line).sent.empty());
  g_agent.hal.get_onu_reg_info_by_optional_elem = name_pon_5;
  g_agent.form = 9;
  ASSERT_EQ(line_id_reg_hal_func(LINE_ID_MODE_OLT, &g_agent.hal), 0);
  EXPECT_TRUE(agent_feed(frame, 1, line).sent.empty()) << "the number that the host gave counts";
}

TEST_F(pppoe_test, onu_information_tag_moves_the_line) {
  agent_config config = agent_defaults();
  config.table.line_id_format_type = 0;
  std::strcpy(config.formats.circuit_id, "%o/%P");
  ASSERT_EQ(agent_start(config), 0);
  const auto check = [](const octets& tags, const std::string& circuit) {
    const octets in = eth().pppoe(PADI).raw(tags).done();
    const octets expected =
        eth().pppoe(PADI).raw(tags).option(0x0105, tag_value({sub1(circuit), sub2("ONU42")})).done();
    EXPECT_EQ(agent_feed(in, 1).sent.at(0).frame, expected) << circuit;
  };
  check(tlv2(0x5516, {1, 2, 0, 9}), "258/9");
  check(tlv2(0x5516, {1, 2, 0, 9, 7, 7}), "258/9");
  check(tlv2(0x5516, {1, 2, 0}), "42/7");
  check(tlv2(0x5516, {}), "42/7");
  check(join({tlv2(0x5516, {1, 2, 0, 9}), tlv2(0x5516, {0, 3, 0, 4})}), "3/4");
}

int move_to_instance_1(uint8_t mode, line_id_param_write_func, line_id_pkt_property* property) {
  if (mode == 2) property->reserved[LINE_ID_EXT_OLTID] = 1;
  return 0;
}

int move_to_vlan_300(uint8_t mode, line_id_param_write_func, line_id_pkt_property* property) {
  if (mode == 2) property->cvlan = 300;
  return 0;
}

TEST_F(pppoe_test, a_hook_may_move_the_frame) {
  agent_config config = agent_defaults();
  config.table.pppoe_anti_spoofing_enable = 1;
  ASSERT_EQ(agent_start(config), 0);
  config.table.remoteid_enable = 0;
  ASSERT_EQ(agent_add_instance(config, 1), 0);
  line_id_set_pppoe_plus_cfg(1, 0);
  line_id_reg_param_custom_if(move_to_instance_1);
  const auto moved = [](const octets& tags) {
    const octets expected = discovery(PADI).raw(tags).option(0x0105, tag_value({sub1(CTC)})).done();
    EXPECT_EQ(agent_feed(discovery(PADI).raw(tags).done(), 1).sent.at(0).frame, expected);
  };
  moved({});
  moved(tlv2(0x5516, {0, 42, 0, 7}));
  EXPECT_EQ(counted(), (counts{2, 0, 0})) << "the other instance counts nothing";
  line_id_reg_param_custom_if(move_to_vlan_300);
  agent_feed(discovery(PADI).done(), 1);
  EXPECT_EQ(counted(), (counts{3, 0, 0}));
  EXPECT_EQ(g_line_id_statics[4124 + 5 * 4097 + 300].load(), 1U) << "forwarded in the other VLAN";
}

TEST_F(pppoe_test, white_list_passes_by_policy) {
  agent_config config = agent_defaults();
  config.table.line_id_format_type = 0;
  std::strcpy(config.formats.circuit_id, "%Y-%X");
  ASSERT_EQ(agent_start(config), 0);
  line_id_white_list list = {};
  list.num = 1;
  list.onu_type[0] = 9;
  list.pppoe_enable = 1;
  list.trans_policy = 1;
  line_id_set_trans_white_list_obj(&list);
  const octets fit = discovery(PADR).option(0x0105, tag_value({sub1("a-b"), sub2("old")})).done();
  const octets unfit = discovery(PADR).option(0x0105, tag_value({sub1("none"), sub2("old")})).done();
  EXPECT_EQ(agent_feed(fit, 1).sent.at(0).frame, fit);
  EXPECT_NE(agent_feed(discovery(PADR).done(), 1).sent.at(0).frame, discovery(PADR).done()) << "insertion never asks";
  list.trans_policy = 0;
  line_id_set_trans_white_list_obj(&list);
  EXPECT_NE(agent_feed(fit, 1).sent.at(0).frame, fit);
  EXPECT_EQ(agent_feed(unfit, 1).sent.at(0).frame, unfit) << "a Circuit-ID that does not fit the template";
  EXPECT_EQ(counted(), (counts{4, 2, 0}));
  list.pppoe_enable = 0;
  line_id_set_trans_white_list_obj(&list);
  EXPECT_NE(agent_feed(unfit, 1).sent.at(0).frame, unfit);
}

TEST_F(pppoe_test, frames_cut_anywhere_do_no_harm) {
  agent_config config = agent_defaults();
  strip_on(config);
  config.table.pppoe_anti_spoofing_enable = 1;
  ASSERT_EQ(agent_start(config), 0);
  const octets tag = tag_value({sub1(RECEIVED), sub2("old")});
  const auto both = [&](pppoe_code code) {
    return discovery(code, eth().vlan(1).vlan(2)).option(0x5516, {0, 42, 0, 7}).option(0x0105, tag).done();
  };
  agent_feed_truncated(both(PADI), 1);
  agent_feed_truncated(both(PADO), 2);
  agent_feed_truncated(discovery(PADR).done(), 1);
}

} // namespace
