// No subscriber's octets in another's frame: mixed frames through one pool unit come out octet for octet as each does
// alone from an agent that has never seen another.
#include "packet/pool.h"
#include "tests/process/children.h"
#include "tests/support/agent.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

namespace {

// A frame with everything that the agent is told about it.
struct visit {
  std::string name;
  octets frame;
  uint8_t direct;
  line_id_append_info line;
  std::string onu_id;
};

// Instance 0 CTC, 1 custom, 2 CNC with both identifiers always built anew.
int32_t start_three() {
  agent_config config = agent_defaults();
  config.table.pppoe_tag_dn_strip = 1;
  int32_t ret = agent_start(config, 0);
  config.table.line_id_format_type = 0;
  std::strcpy(config.formats.circuit_id, "%a/%s.%c/%m/%u-%n:%C %F");
  std::strcpy(config.formats.remote_id, "%H.%h");
  if (ret == 0) ret = agent_add_instance(config, 1);
  config.table.line_id_format_type = 2;
  if (ret == 0) ret = agent_add_instance(config, 2);
  return ret;
}

octets old_ids(const std::string& circuit, const std::string& remote) {
  return join({tlv1(1, text(circuit)), tlv1(2, text(remote))});
}

std::vector<visit> mixed_visits() {
  std::vector<visit> visits;
  std::mt19937 random(7);
  const std::string marks[] = {"alpha", "bravo", "charlie", "delta"};
  for (uint32_t i = 0; i < 48; ++i) {
    const std::string& mark = marks[i % 4];
    std::string long_mark;
    for (uint32_t n = 0; n < 1 + random() % 9; ++n) long_mark += mark;
    visit v = {"", {}, LINE_ID_UPSTREAM, test_line(), mark};
    v.line.ext[LINE_ID_EXT_OLTID] = static_cast<uint8_t>(i % 3);
    v.line.svlan = static_cast<uint16_t>(100 + i);
    v.line.onu_authno = static_cast<uint16_t>(1 + i % 5);
    v.line.ext[LINE_ID_EXT_CIRCUIT_BY_VLAN] = i % 11 == 10 ? 1 : 0;
    mac_octets mac = SUBSCRIBER_MAC;
    mac.at[5] = static_cast<uint8_t>(i);
    const std::string tail = "an9/1.2/x/" + mark + "-" + long_mark + ":q EP";
    frame_builder frame = eth(mac);
    for (uint32_t tag = 0; tag < i % 5; ++tag) frame.vlan(static_cast<uint16_t>(10 + tag));
    switch (random() % 7) {
    case 0: v.frame = frame.dhcp4(DISCOVER).option(53, {1}).option(12, text(long_mark)).end(); break;
    case 1: v.frame = frame.dhcp4(REQUEST).option(53, {3}).option(82, old_ids(tail, long_mark)).end(); break;
    case 2: v.frame = frame.pppoe(PADI).option(0x0103, text(long_mark)).done(); break;
    case 3:
      v.frame = frame.pppoe(PADR).option(0x0105, join({{0, 0, 0x0D, 0xE9}, old_ids(tail, mark)})).padded(9);
      break;
    case 4: v.frame = frame.dhcp6(SOLICIT).option(1, text(long_mark)).done(); break;
    case 5:
      v.frame = frame.relay6(RELAY_FORW, 1, link_local(7))
                    .option(9, dhcp6_message(REQUEST6, {tlv2(1, text(mark))}))
                    .option(18, text(tail))
                    .done();
      break;
    default:
      v.direct = LINE_ID_DOWNSTREAM;
      v.frame =
          frame.relay6(RELAY_REPL, 0, link_local(7)).option(9, dhcp6_message(REPLY, {tlv2(2, text(mark))})).done();
      break;
    }
    v.name = "visit " + std::to_string(i);
    visits.push_back(v);
  }
  return visits;
}

octets run(const visit& v) {
  std::snprintf(g_agent.onu.onu_id, sizeof(g_agent.onu.onu_id), "%s", v.onu_id.c_str());
  const outcome out = agent_feed(v.frame, v.direct, v.line);
  return out.sent.empty() ? octets{} : out.sent[0].frame;
}

// The frame through an agent of its own, in a process of its own.
octets run_alone(const visit& v) {
  SCOPED_TRACE(v.name);
  return text(text_of_child([&] {
    const octets out = start_three() == 0 ? run(v) : octets{};
    return std::string(out.begin(), out.end());
  }));
}

TEST(privacy, frames_through_one_unit_are_as_each_alone) {
  const std::vector<visit> visits = mixed_visits();
  std::vector<octets> alone;
  for (const visit& v : visits) alone.push_back(run_alone(v));

  ASSERT_EQ(start_three(), 0);
  std::vector<line_id_unit*> taken;
  while (agent_free_units() > 1) taken.push_back(line_id_buf_pool_alloc(&g_line_id_pkt_sem));
  std::mt19937 random(11);
  uint32_t rebuilt = 0;
  for (uint32_t round = 0; round < 400; ++round) {
    const size_t i = round < visits.size() ? round : random() % visits.size();
    const octets out = run(visits[i]);
    ASSERT_EQ(out, alone[i]) << visits[i].name << ", round " << round;
    if (out != visits[i].frame && !out.empty()) ++rebuilt;
    ASSERT_EQ(agent_free_units(), 1U);
  }
  EXPECT_GT(rebuilt, 200U) << "most frames were to be rebuilt";
  for (line_id_unit* unit : taken) line_id_buf_pool_free(unit, &g_line_id_pkt_sem);
}

} // namespace
