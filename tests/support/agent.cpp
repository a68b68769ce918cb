// The agent of the tests.
#include "tests/support/agent.h"

#include "antispoof/binding_table.h"
#include "config/policy.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/log.h"
#include "core/service.h"
#include "core/worker.h"
#include "packet/check.h"
#include "packet/egress.h"
#include "packet/pool.h"
#include "platform/lib_comm.h"

#include <cstdio>
#include <cstring>
#include <memory>

test_agent g_agent;

namespace {

constexpr uint32_t TEST_POOL_UNITS = 8;

lib_comm_lib* g_inline_worker = nullptr;

int set_drv_enable(uint8_t oltid, uint8_t protocol, uint8_t enable) {
  g_agent.traps.push_back({oltid, protocol, enable});
  return 0;
}

int send_eth_frame(uint8_t oltid, uint8_t direct, uint16_t port, const uint8_t* frame, uint32_t len) {
  g_agent.sent.push_back({oltid, direct, port, octets(frame, frame + len)});
  return g_agent.send_result;
}

int mac_spoof_alarm(const line_id_alarm* alarm) {
  g_agent.alarms.push_back(*alarm);
  return 0;
}

int log_output(const char* line, int32_t, const char*) {
  g_agent.logs.emplace_back(line);
  return 0;
}

int get_access_typename(char* buf, uint32_t size) {
  std::snprintf(buf, size, "ACC");
  return 0;
}

int get_card_typename(char* buf, uint32_t size) {
  std::snprintf(buf, size, "CARD");
  return 0;
}

int get_olt_card_slot_info(uint16_t* slot) {
  *slot = g_agent.olt_slot;
  return 0;
}

int get_onu_card_slot_info(uint16_t* slot, uint16_t* sub_slot) {
  *slot = g_agent.onu_slot;
  *sub_slot = g_agent.onu_sub_slot;
  return 0;
}

int get_access_device_tech_form(uint16_t, uint16_t, uint8_t* form) {
  *form = g_agent.form;
  return 0;
}

int get_onu_reg_info_by_optional_elem(line_id_onu_reg_info* info) {
  const uint16_t auth = info->onu_auth;
  const uint16_t pon = info->onu_ponno;
  *info = g_agent.onu;
  info->onu_auth = auth;
  info->onu_ponno = pon;
  return g_agent.facts_result;
}

int get_onu_port_info_by_logic_port(uint16_t, line_id_onu_port_info* info) {
  *info = g_agent.port;
  return 0;
}

int count_hook(uint8_t, uint32_t, uint32_t, uint32_t, line_id_pkt_property*) {
  ++g_agent.hook_calls;
  return 0;
}

void empty_stores() {
  for (auto& cfg : g_line_id_common_cfg) cfg = {};
  const line_id_white_list nothing = {};
  line_id_set_trans_white_list_obj(&nothing);
  line_id_set_dhcpv6_option18_level(1);
  line_id_dbg_level_set(0);
  g_line_id_debug_bits = 0;
  line_id_reg_param_custom_if(nullptr);
  line_id_reg_custom_pkt_proc_if(count_hook);
}

// Fetches until nothing comes, then asks the loop to end.
int32_t fetch_or_end(void* arg, int32_t) {
  const int32_t ret = line_id_msg_func(arg, 0);
  if (ret == LINE_ID_ERR) static_cast<lib_comm_lib*>(arg)->stop_flags |= 1U;
  return ret;
}

} // namespace

void agent_reset_record() {
  g_agent = {};
  g_agent.olt_slot = 3;
  g_agent.onu_slot = 1;
  g_agent.onu_sub_slot = 2;
  g_agent.form = LINE_ID_FORM_GP;
  std::strcpy(g_agent.onu.onu_id, "ONU42");
  std::strcpy(g_agent.onu.onu_text_n, "N1");
  std::strcpy(g_agent.onu.onu_text_c, "C1");
  g_agent.onu.onu_rpc_ponno = 5;
  g_agent.onu.onu_losn_valid_or_invalid = 1;
  g_agent.onu.onu_type_id = 9;
  g_agent.port.port_type = LINE_ID_PORT_ETH;
  g_agent.port.number[1] = 7;
  g_agent.hal = {set_drv_enable,
                 send_eth_frame,
                 mac_spoof_alarm,
                 log_output,
                 get_access_typename,
                 get_card_typename,
                 get_olt_card_slot_info,
                 get_onu_card_slot_info,
                 get_access_device_tech_form,
                 get_onu_reg_info_by_optional_elem,
                 get_onu_port_info_by_logic_port};
}

agent_config agent_defaults() {
  agent_config config = {};
  config.cust_mode = LINE_ID_MODE_OLT;
  line_id_ex_cfg_table& table = config.table;
  table.dhcp_reg = table.dhcpv6_reg = table.pppoe_reg = table.dhcp_spoof_reg = table.pppoe_spoof_reg = 1;
  table.option82_enable = table.option18_enable = table.option37_enable = table.pppoe_plus_enable = 1;
  table.circuitid_enable = table.remoteid_enable = 1;
  table.line_id_format_type = 1;
  table.dhcpv6_tag_dn_strip = 1;
  std::strcpy(config.formats.remote_id, "%m");
  std::strcpy(config.formats.option37, "%m");
  return config;
}

line_id_append_info test_line() {
  line_id_append_info line = {};
  line.svlan = 100;
  line.cvlan = 200;
  line.onu_ponno = 5;
  line.onu_portid = 7;
  line.onu_gemid = 1001;
  line.onu_authno = 42;
  std::memcpy(line.onu_mac, "\x00\x00\x5E\x00\x53\x42", 6);
  line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 1;
  return line;
}

int32_t agent_start(agent_config config, uint8_t oltid) {
  agent_reset_record();
  empty_stores();
  if (const int32_t ret = agent_add_instance(config, oltid); ret < 0) return ret;
  if (g_inline_worker == nullptr) {
    line_id_set_line_id_buf_pool_num(TEST_POOL_UNITS);
    g_inline_worker = lib_comm_lib_create("inline");
  }
  const int32_t ret = line_id_init_sys_resource(nullptr);
  line_id_clear_dhcp_binding_table();
  line_id_clear_pppoe_binding_table();
  return ret;
}

int32_t agent_add_instance(agent_config config, uint8_t oltid) {
  config.table.fmt_list = &config.formats;
  const int32_t ret = line_id_data_init(oltid, config.cust_mode, &config.table, &g_agent.hal);
  if (ret < 0) return ret;
  return line_id_set_ani_param_cfg(oltid, "an1", 3, 1, 2);
}

void agent_run() {
  lib_comm_task task = {};
  while (lib_comm_thread_fetch_with_func(g_inline_worker, &task, fetch_or_end, 0) != nullptr) {
    lib_comm_thread_call(&task);
  }
  g_inline_worker->stop_flags &= ~1U;
}

outcome agent_feed(const octets& frame, uint8_t direct, const line_id_append_info& line, uint32_t src_port) {
  g_agent.sent.clear();
  const auto len = static_cast<uint32_t>(frame.size());
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[len]); // exact size: a read past the frame is caught
  if (len > 0) std::memcpy(copy.get(), frame.data(), len);
  const int32_t tags = line_id_check_vlan_tag_num(copy.get(), len);
  const size_t type_at = 12 + static_cast<size_t>(tags) * 4;
  const bool pppoe = frame.size() >= type_at + 2 && frame[type_at] == 0x88 && frame[type_at + 1] == 0x63;
  const auto receive = pppoe ? line_id_pppoe_receive : line_id_dhcp_receive;
  outcome out = {};
  out.result = receive(copy.get(), len, src_port, direct, &line);
  agent_run();
  out.sent = g_agent.sent;
  return out;
}

uint32_t agent_free_units() { return line_id_buf_pool_free_count(); }
uint32_t agent_units() { return g_inline_worker != nullptr ? TEST_POOL_UNITS : 0; }

void agent_feed_truncated(const octets& frame, uint8_t direct, const line_id_append_info& line) {
  for (size_t len = 0; len <= frame.size(); ++len) {
    const octets cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(len));
    const outcome out = agent_feed(cut, direct, line);
    EXPECT_LE(out.sent.size(), 1U) << "cut at " << len;
    for (const sent_frame& sent : out.sent) EXPECT_LE(sent.frame.size(), 1536U) << "cut at " << len;
    ASSERT_EQ(agent_free_units(), agent_units()) << "cut at " << len;
  }
}
