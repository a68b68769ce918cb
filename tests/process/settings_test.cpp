// Every setting from another process: it takes effect in the running agent; what a call refuses is never sent.
#include "tests/process/harness.h"

#include <array>
#include <cstring>
#include <memory>
#include <vector>

using namespace std::string_literals;

namespace {

constexpr uint8_t MAC[] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr uint8_t SUBSCRIBER[] = {0x00, 0x00, 0x5E, 0x00, 0x53, 0x01};
const std::string LONGEST(256, 'x');

agent_process* g_agent = nullptr; // of the running test

std::string num(int64_t value) { return std::to_string(value); }

// ---- what shows a setting

std::string stored(int32_t (*get)(uint8_t, char*), size_t size) {
  std::string buf(size + 1, '\0');
  EXPECT_EQ(get(3, buf.data()), 0);
  return buf.c_str();
}

// Every message before it has been carried out when it returns.
void barrier() { EXPECT_GE(line_id_get_rack_no(8), 0); }

// The rest of the report's line that begins so.
std::string report(int32_t (*show)(uint8_t), const std::string& line) {
  g_agent->output();
  EXPECT_EQ(show(3), 0);
  barrier();
  const std::string out = g_agent->output();
  const size_t at = out.find("\n" + line);
  if (at == std::string::npos) return "no line";
  const size_t rest = at + 1 + line.size();
  return out.substr(rest, out.find('\r', rest) - rest);
}

int32_t show_statistics(uint8_t) { return line_id_show_pkt_statistics(); }

std::string letters(const char* which) {
  std::string all;
  for (; *which != '\0'; ++which) all += report(line_id_show_lineid_status, *which + ": "s) + " ";
  return all;
}

octets solicit() { return eth().dhcp6(SOLICIT).option(1, {1}).done(); }
octets padi() { return eth().pppoe(PADI).option(0x0105, {0, 0, 0x0D, 0xE9, 1, 1, 'x'}).done(); }

// Whether the agent prints this while it handles the frame.
std::string traced(const octets& frame, const char* what) {
  g_agent->output();
  g_agent->feed(frame, test_line(3));
  return g_agent->output().find(what) != std::string::npos ? "yes" : "no";
}

std::string commands_are_traced() {
  g_agent->output();
  barrier();
  return g_agent->output().empty() ? "no" : "yes";
}

std::string profiles_are_traced() {
  lineid_vlan_profile_cfg_del(3, 0, 64);
  barrier();
  return g_agent->output().find("oltid:3, type:0, prof_id:64") != std::string::npos ? "yes" : "no";
}

std::string circuit_id(uint8_t cid = 0) {
  line_id_append_info line = test_line(3);
  line.ext[LINE_ID_EXT_CID] = cid;
  return g_agent->sub_option(line, 1);
}
std::string remote_id() { return g_agent->sub_option(test_line(3), 2); }

// The outer message type that a subscriber gets from a twice wrapped reply: 13 still wrapped, 7 the reply.
std::string unwrapped() {
  constexpr size_t MESSAGE = 14 + 40 + 8;
  const octets reply = dhcp6_message(REPLY);
  const octets inner = relay6_message(RELAY_REPL, 0, link_local(1), {tlv2(18, text("a")), tlv2(9, reply)});
  const octets frame = eth(SERVER_MAC, SUBSCRIBER_MAC)
                           .relay6(RELAY_REPL, 1, link_local(1))
                           .option(18, text("b"))
                           .option(9, inner)
                           .done();
  const octets sent = g_agent->feed(frame, test_line(3), LINE_ID_DOWNSTREAM);
  return sent.size() > MESSAGE ? num(sent[MESSAGE]) : "nothing";
}

std::string last_trap() {
  const std::string events = g_agent->events();
  const size_t at = events.rfind("trap ");
  return at == std::string::npos ? "" : events.substr(at + 5, events.find('\n', at) - at - 5);
}

std::string pppoe_entries() {
  g_agent->feed(padi(), test_line(3));
  return report(line_id_show_pppoe_binding, "Total ");
}

std::string config_block() {
  line_id_circuit_id_config block = {};
  EXPECT_EQ(line_id_get_circuit_id_config(3, &block), 0);
  return num(block.slot) + " " + num(block.enable & 7) + num(block.pppoe_plus_enable) + " " + block.ani_str + " " +
         num(block.rack_no) + " " + num(block.frame_no) + " " + block.uplink_type + " " + letters("OH");
}

std::string format_block() {
  line_id_circuit_id_format_mode block = {};
  EXPECT_EQ(line_id_get_circuit_id_format_mode(3, &block), 0);
  return num(block.line_id_format_type) + " " + block.custom_format;
}

std::string manage_ip() {
  uint32_t address = 0;
  EXPECT_EQ(line_id_get_manage_ip(3, &address), 0);
  return num(address);
}

int32_t set_config_block() {
  const line_id_circuit_id_config block = {9, 5, 1, "node", -2, 3, "up", 0x0A000102, "host"};
  return volt_line_id_set_circuit_id_config(3, &block);
}

int32_t set_format_block() {
  const line_id_circuit_id_format_mode block = {0, "%r %f", {}};
  return volt_line_id_set_circuit_id_format_mode(3, &block);
}

int32_t set_white_list() {
  const line_id_white_list list = {2, {258, 9}, {}, 0, 0, 0};
  return line_id_set_trans_white_list(3, &list);
}

// ---- the table

struct setting_row {
  int code;
  int32_t (*call)();
  std::string (*shows)(); // null: stored and not used, or nothing to delete; the agent's trace alone tells of it
  const char* before;
  const char* after;
};

#define GET(CALL) [] { return num(line_id_get_##CALL(3)); }
#define GET_AND_TRAP(CALL) [] { return num(line_id_get_##CALL(3)) + " " + last_trap(); }
#define SET(CALL, VALUE) [] { return line_id_set_##CALL(3, VALUE); }
#define SHOWS(EXPRESSION) []() -> std::string { return EXPRESSION; }

// In an order in which each row finds what it needs. Traces of commands and all of level 2 are on before each.
constexpr setting_row ROWS[] = {
    {48, [] { return lineid_vlan_profile_cfg_add(3, 0, 64, 0, "%m:%s", 5); },
     SHOWS(report(lineid_vlan_profile_cfg_show, "template[64]:0, cirt_fmt[64]:") + " " + circuit_id(64)),
     ", rmt_fmt[64]: ", "%m:%s, rmt_fmt[64]: ONU42:100"},
    {49, [] { return lineid_vlan_profile_cfg_del(3, 0, 64); }, SHOWS(circuit_id(64)), "ONU42:100", ""},
    {12, [] { return line_id_set_ani_str(3, "an8", 3); }, SHOWS(stored(line_id_get_ani_str, 50) + " " + circuit_id()),
     " 0 0/0/0:100.200 0/0/0/3/0/5/ONU42 GP", "an8 0 0/0/0:100.200 an8/0/0/3/0/5/ONU42 GP"},
    {13, SET(rack_no, 0xFFFE), GET(rack_no), "0", "-2"},
    {14, SET(frame_no, 258), GET(frame_no), "0", "258"},
    {11, [] { return line_id_set_ani_param(3, "an9", 3, 1, 2); }, SHOWS(letters("arf") + circuit_id()),
     "an8 -2 258 0 0/0/0:100.200 an8/-2/258/3/0/5/ONU42 GP", "an9 1 2 0 0/0/0:100.200 an9/1/2/3/0/5/ONU42 GP"},
    {32, [] { return line_id_override_param(3, 'a', "pinned", 6); }, SHOWS(circuit_id()),
     "0 0/0/0:100.200 an9/1/2/3/0/5/ONU42 GP", "0 0/0/0:100.200 pinned/1/2/3/0/5/ONU42 GP"},
    {33, [] { return line_id_unoverride_param(3, 'a'); }, SHOWS((line_id_set_ani_str(3, "an7", 3), circuit_id())),
     "0 0/0/0:100.200 pinned/1/2/3/0/5/ONU42 GP", "0 0/0/0:100.200 an7/1/2/3/0/5/ONU42 GP"},
    {6, [] { return line_id_set_circuit_id_custom_format(3, "%a %r", 5); },
     SHOWS(stored(line_id_get_circuit_id_custom_format, 256)), "", "%a %r"},
    {5, SET(line_id_format_type, 0), SHOWS(num(line_id_get_line_id_format_type(3)) + " " + circuit_id()),
     "1 0 0/0/0:100.200 an7/1/2/3/0/5/ONU42 GP", "0 an7 1"},
    {10, set_format_block, SHOWS(format_block() + " " + circuit_id()), "0 %a %r an7 1", "0 %r %f 1 2"},
    {7, [] { return line_id_set_remote_id_format(3, "%z", 2); },
     SHOWS(stored(line_id_get_remote_id_format, 256) + " " + remote_id()), "%m ONU42", "%z 0"},
    {17, [] { return line_id_set_remoteid_core_cardinnermac(3, MAC, 6); }, SHOWS(remote_id()), "0", "001122334455"},
    {4, SET(remote_id_enable, 0), SHOWS(num(line_id_get_remote_id_enable(3)) + " " + remote_id()), "1 001122334455",
     "0 none"},
    {36, [] { return line_id_set_remote_id_enable_and_params(3, 1, SUBSCRIBER, 6); },
     SHOWS(num(line_id_get_remote_id_enable(3)) + " " + remote_id()), "0 none", "1 00005e005301"},
    {8, [] { return line_id_set_option37_format(3, LONGEST.data(), 256); },
     SHOWS(num(static_cast<int64_t>(stored(line_id_get_option37_format, 256).size()))), "2", "256"},
    {15, [] { return line_id_set_uplink_type(3, "eth", 3); }, SHOWS(stored(line_id_get_uplink_type, 32)), "", "eth"},
    {16, SET(manage_ip, 0xC0A80001), SHOWS(manage_ip()), "0", "3232235521"},
    {35, set_white_list, SHOWS(report(line_id_show_pppoe_whitelist, "onu_type[1] = ")), "no line", "9"},
    {30, SET(option82_transparent, 1), SHOWS(num(line_id_get_option82_transparent(3)) + circuit_id()), "01 2", "1none"},
    {37, SET(pppoe_plus_transparent, 1), GET(pppoe_plus_transparent), "0", "1"},
    {34, SET(remoteid_trans_enable, 1), nullptr, nullptr, nullptr},
    {50, SET(gemport_enable, 1),
     SHOWS((line_id_set_option82_transparent(3, 0), line_id_set_dhcpv4_debug(0, 1),
            traced(discover(), "gemport_enable = 1"))),
     "no", "yes"},
    {31, [] { return line_id_reset_statistics(3); },
     SHOWS(report(show_statistics, "dhcpv4_pkt_processed:") == "0" ? "none" : "some"), "some", "none"},
    {18, SET(dhcpv4_debug, 0), SHOWS(traced(discover(), "dhcpv4 pkt rev")), "yes", "no"},
    {19, SET(dhcpv6_debug, 1), SHOWS(traced(solicit(), "dhcpv6 pkt rev")), "no", "yes"},
    {20, SET(pppoe_plus_debug, 1), SHOWS(traced(padi(), "PPPoE pkt rev")), "no", "yes"},
    {45, SET(device_debug, 1), SHOWS(traced(discover(), "onu_auth before=42")), "no", "yes"},
    {38, SET(lineid_debug, 1), SHOWS(profiles_are_traced()), "no", "yes"},
    {39, SET(comm_tx_debug, 1), nullptr, nullptr, nullptr},
    {40, SET(comm_rx_debug, 1), nullptr, nullptr, nullptr},
    {41, SET(cfg_debug, 0), SHOWS(commands_are_traced()), "yes", "no"},
    {42, SET(all_debug, 0), SHOWS(traced(discover(), "onu_auth before=42")), "yes", "no"},
    {43, SET(level_debug, 1), SHOWS(commands_are_traced()), "yes", "no"},
    {47, SET(dhcpv6_option18_relay_strip, 2), SHOWS(unwrapped()), "13", "7"},
    {46, SET(dhcpv6_option18, 1), SHOWS(unwrapped()), "7", "13"},
    {24, SET(dhcp_valid_binding_count, 0x80000001), GET(dhcp_valid_binding_count), "0", "2147483649"},
    {22, SET(dhcp_anti_spoofing_enable, 1),
     SHOWS(num(line_id_get_dhcp_anti_spoofing_enable(3)) +
           report(line_id_show_dhcp_binding, "DHCP MAC-ONU Binding Table - Status :")),
     "0 Disabled  ", "1 Enabled  "},
    {23, SET(dhcp_anti_spoofing_active, 1), GET(dhcp_anti_spoofing_active), "0", "1"},
    {26, [] { return line_id_del_dhcp_anti_spoofing_entry_by_mac(3, MAC, 6); }, nullptr, nullptr, nullptr},
    {28, [] { return line_id_del_dhcp_anti_spoofing_entry_by_onu(3, 5, 42); }, nullptr, nullptr, nullptr},
    {21, SET(pppoe_anti_spoofing_enable, 1),
     SHOWS((line_id_set_pppoe_plus_transparent(3, 0),
            num(line_id_get_pppoe_anti_spoofing_enable(3)) + " " + pppoe_entries())),
     "0 0 Entries", "1 1 Entries"},
    {29, [] { return line_id_del_pppoe_anti_spoofing_entry_by_onu(3, 5, 42); },
     SHOWS(report(line_id_show_pppoe_binding, "Total ")), "1 Entries", "0 Entries"},
    {25, SET(pppoe_valid_binding_count, 5),
     SHOWS(num(line_id_get_pppoe_valid_binding_count(3)) + " " + pppoe_entries()), "0 1 Entries", "5 1 Entries"},
    {27, [] { return line_id_del_pppoe_anti_spoofing_entry_by_mac(3, SUBSCRIBER, 6); },
     SHOWS(report(line_id_show_pppoe_binding, "Total ")), "1 Entries", "0 Entries"},
    {0, SET(option82_enable, 0), GET_AND_TRAP(option82_enable), "1 ", "0 3/1/0"},
    {2, SET(option37_enable, 0), GET(option37_enable), "1", "0"},
    {1, SET(option18_enable, 0), GET_AND_TRAP(option18_enable), "1 ", "0 3/2/0"},
    {3, SET(pppoe_plus_enable, 0), GET_AND_TRAP(pppoe_plus_enable), "1 ", "0 3/3/0"},
    {44, SET(dhcpv6_enable, 1),
     SHOWS(num(line_id_get_option37_enable(3)) + num(line_id_get_option18_enable(3)) + " " + last_trap()), "00 ",
     "11 3/2/1"},
    {9, set_config_block, SHOWS(config_block()), "0 60 an7 1 2 eth 192.168.0.1  ", "9 51 node -2 3 up 10.0.1.2 host "},
};

// A row of config/settings.def without a row here does not compile.
#define LINE_ID_SWITCH(name, call, code, ...) code,
#define LINE_ID_SWITCH_SET(name, call, code, lo, hi) code,
#define LINE_ID_GLOBAL_SET(name, code, lo, hi) code,
#define LINE_ID_DEBUG(name, code, category) code,
#define LINE_ID_WORD(name, code, ...) code,
#define LINE_ID_FORMAT(name, code, ...) code,
#define LINE_ID_TEXT(name, code, ...) code,
#define LINE_ID_BLOCK(name, code, record) code,
#define LINE_ID_DELETE_BY_MAC(table, code, null_result) code,
#define LINE_ID_DELETE_BY_ONU(table, code) code,
#define LINE_ID_ACTION(handler, code) code,
constexpr int SETTINGS[] = {
#include "config/settings.def"
};

consteval bool every_setting_has_one_row() {
  for (const int code : SETTINGS) {
    int rows = 0;
    for (const setting_row& row : ROWS) rows += row.code == code ? 1 : 0;
    if (rows != 1) return false;
  }
  return std::size(ROWS) == std::size(SETTINGS);
}
static_assert(every_setting_has_one_row());

// ---- what is refused

// Calls that one kind of row in config/settings.def makes alike are here once for each limit.
struct refused_row {
  const char* what;
  int32_t (*call)();
  int32_t result;
};

#define REFUSED(CALL, ARGUMENTS, RESULT)                                                                               \
  {                                                                                                                    \
#CALL, [] { return static_cast<int32_t>(CALL ARGUMENTS); }, RESULT                                                 \
  }
#define SWITCH(CALL, TOO_HIGH, RESULT) REFUSED(line_id_set_##CALL, (3, TOO_HIGH), RESULT), ABSENT(CALL, (9, 1))
#define ABSENT(CALL, ARGUMENTS) REFUSED(line_id_set_##CALL, ARGUMENTS, -22)
#define TEXT(CALL, LIMIT)                                                                                              \
  REFUSED(line_id_set_##CALL, (3, LONGEST.data(), (LIMIT) + 1), -1), REFUSED(line_id_set_##CALL, (3, nullptr, 1), -1), \
      ABSENT(CALL, (9, "x", 1)), REFUSED(line_id_get_##CALL, (3, nullptr), -9)
#define BY_MAC(CALL)                                                                                                   \
  REFUSED(CALL, (3, nullptr, 6), -1), REFUSED(CALL, (3, MAC, 5), -1), REFUSED(CALL, (3, MAC, 7), -1),                  \
      REFUSED(CALL, (9, MAC, 6), -22)

const refused_row REFUSALS[] = {
    SWITCH(option82_enable, 2, -10),
    SWITCH(option18_enable, 2, -10),
    SWITCH(option37_enable, 2, -10),
    SWITCH(pppoe_plus_enable, 2, -10),
    SWITCH(remote_id_enable, 2, -10),
    SWITCH(line_id_format_type, 3, -11),
    SWITCH(pppoe_anti_spoofing_enable, 2, -10),
    SWITCH(dhcp_anti_spoofing_enable, 2, -10),
    SWITCH(dhcp_anti_spoofing_active, 2, -10),
    SWITCH(option82_transparent, 2, -10),
    SWITCH(pppoe_plus_transparent, 2, -10),
    SWITCH(remoteid_trans_enable, 2, -10),
    SWITCH(dhcpv6_enable, 255, -10),
    SWITCH(gemport_enable, 2, -10),
    SWITCH(all_debug, 2, -10),
    SWITCH(level_debug, 3, -10),
    SWITCH(dhcpv6_option18, 2, -10),
    SWITCH(dhcpv6_option18_relay_strip, 3, -10),
    REFUSED(line_id_set_dhcpv6_option18_relay_strip, (3, 0), -10),
    SWITCH(dhcpv4_debug, 2, -10),
    ABSENT(rack_no, (9, 1)),
    ABSENT(frame_no, (255, 1)),
    ABSENT(manage_ip, (9, 1)),
    TEXT(circuit_id_custom_format, 256),
    TEXT(ani_str, 50),
    TEXT(uplink_type, 32),
    REFUSED(line_id_get_manage_ip, (3, nullptr), -9),
    REFUSED(line_id_set_ani_param, (3, nullptr, 0, 0, 0), -1),
    REFUSED(line_id_set_ani_param, (3, LONGEST.data(), 51, 0, 0), -1),
    REFUSED(line_id_set_ani_param, (9, "x", 1, 0, 0), -22),
    BY_MAC(line_id_set_remoteid_core_cardinnermac),
    BY_MAC(line_id_del_dhcp_anti_spoofing_entry_by_mac),
    REFUSED(line_id_del_dhcp_anti_spoofing_entry_by_onu, (9, 1, 1), -22),
    REFUSED(line_id_set_remote_id_enable_and_params, (3, 2, MAC, 6), -1),
    REFUSED(line_id_set_remote_id_enable_and_params, (3, 1, MAC, 7), -1),
    REFUSED(line_id_set_remote_id_enable_and_params, (3, 1, nullptr, 6), -1),
    REFUSED(line_id_set_remote_id_enable_and_params, (9, 1, MAC, 6), -22),
    REFUSED(line_id_override_param, (3, 'a', nullptr, 1), -1),
    REFUSED(line_id_override_param, (3, 'a', LONGEST.data(), 51), -1),
    REFUSED(line_id_override_param, (9, 'a', "x", 1), -22),
    REFUSED(line_id_unoverride_param, (9, 'a'), -22),
    REFUSED(line_id_reset_statistics, (9), -22),
    REFUSED(line_id_set_circuit_id_config, (nullptr), -9),
    REFUSED(volt_line_id_set_circuit_id_config, (3, nullptr), -9),
    REFUSED(line_id_get_circuit_id_config, (3, nullptr), -9),
    REFUSED(line_id_set_trans_white_list, (3, nullptr), -9),
    {"line_id_set_trans_white_list",
     [] {
       const line_id_white_list list = {33, {}, {}, 0, 0, 0};
       return line_id_set_trans_white_list(3, &list);
     },
     -31},
    REFUSED(lineid_vlan_profile_cfg_add, (3, 0, 1, 0, nullptr, 1), -1),
    REFUSED(lineid_vlan_profile_cfg_add, (3, 0, 1, 0, LONGEST.data(), 257), -1),
    REFUSED(lineid_vlan_profile_cfg_add, (9, 0, 1, 0, "x", 1), -22),
    REFUSED(lineid_vlan_profile_cfg_del, (9, 0, 1), -22),
};

// ---- the tests

class settings : public testing::Test {
protected:
  void SetUp() override {
    g_agent = &agent_;
    ASSERT_EQ(line_id_init_share_resource(nullptr), 0);
    ASSERT_EQ(line_id_is_service_running(), 1);
    trace_commands();
  }
  void TearDown() override { g_agent = nullptr; }

  static void trace_commands() {
    EXPECT_EQ(line_id_set_cfg_debug(0, 1), 0);
    EXPECT_EQ(line_id_set_level_debug(0, 2), 0);
    barrier();
  }
  // Traces of set commands that the agent has received, in its output.
  static size_t commands_in(const std::string& output, const std::string& code) {
    const std::string trace = "line_id_set_cfg_msg_proc,line_id_set_proc_func(" + code;
    size_t count = 0;
    for (size_t at = output.find(trace); at != std::string::npos; at = output.find(trace, at + 1)) ++count;
    return count;
  }

  agent_process agent_;
};

TEST_F(settings, every_row_of_the_table_takes_effect) {
  for (const setting_row& row : ROWS) {
    SCOPED_TRACE("command " + num(row.code));
    trace_commands();
    if (row.shows != nullptr) {
      EXPECT_EQ(row.shows(), row.before);
    }
    agent_.output();
    EXPECT_EQ(row.call(), 0);
    barrier();
    EXPECT_EQ(commands_in(agent_.output(), num(row.code) + ")"), 1U);
    if (row.shows != nullptr) {
      EXPECT_EQ(row.shows(), row.after);
    }
  }
  EXPECT_EQ(line_id_get_frame_no(4), 0) << "the other instances share the area, not the settings";
}

TEST_F(settings, refused_calls_send_nothing) {
  agent_.output();
  for (const refused_row& row : REFUSALS) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(row.call(), row.result) << row.what;
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_NE(said.find(row.what + " failed("s + num(row.result) + ").\r\n"), std::string::npos) << row.what;
  }
  EXPECT_EQ(commands_in(agent_.output(), ""), 0U);
  EXPECT_EQ(line_id_set_rack_no(3, 1), 0);
  barrier();
  EXPECT_EQ(commands_in(agent_.output(), "13)"), 1U) << "a command that is sent is seen";
}

// The Remote-ID has a profile of its own, and each instance has its own profiles.
TEST_F(settings, a_remote_id_profile_changes_matching_frames_at_once) {
  line_id_append_info member = test_line(2);
  member.ext[LINE_ID_EXT_CID] = 7;
  member.ext[LINE_ID_EXT_RID] = 7;
  EXPECT_EQ(lineid_vlan_profile_cfg_add(2, 1, 7, 0, "%m-%p", 5), 0);
  barrier();
  EXPECT_EQ(agent_.sub_option(member, 1), "");
  EXPECT_EQ(agent_.sub_option(member, 2), "ONU42-5");
  EXPECT_EQ(agent_.sub_option(test_line(2), 2), "ONU42") << "frames without the profile";
  member.ext[LINE_ID_EXT_OLTID] = 1;
  EXPECT_EQ(agent_.sub_option(member, 2), "") << "another instance has no such profile";
}

} // namespace
