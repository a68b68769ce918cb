// The agent's callbacks in the long run, and its start and stop.
#include "tests/soak/soak_agent.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>
#include <thread>

soak_account g_soak;

namespace {

using steady = std::chrono::steady_clock;

enum slot_state : uint8_t { SLOT_IDLE, SLOT_UNDER_WAY, SLOT_HOOKED };

// Frames under way by the low 16 bits of their number: far more than the pool has units, so that none is used twice.
struct frame_slot {
  std::atomic<uint8_t> state{SLOT_IDLE};
  std::atomic<int64_t> start{0};
};
std::array<frame_slot, 65536> g_slots;
std::atomic<uint32_t> g_next_number{0};
std::atomic<bool> g_gate_closed{false}; // the worker waits in the hook
std::thread g_worker;
std::atomic<int32_t> g_worker_result{1};
thread_local bool t_receiving = false;
thread_local bool t_sent_at_once = false;

int64_t now_ns() { return steady::now().time_since_epoch() / std::chrono::nanoseconds(1); }

int set_drv_enable(uint8_t, uint8_t, uint8_t) { return 0; }

int send_eth_frame(uint8_t, uint8_t, uint16_t port, const uint8_t*, uint32_t) {
  if (t_receiving) {
    t_sent_at_once = true;
    return 0;
  }
  frame_slot& slot = g_slots[port];
  const int64_t start = slot.start;
  if (slot.state.exchange(SLOT_IDLE) != SLOT_HOOKED) {
    ++g_soak.strays;
    return 0;
  }
  ++g_soak.sent;
  g_soak.latency.add(static_cast<uint64_t>(now_ns() - start));
  return 0;
}

int packet_hook(uint8_t, uint32_t, uint32_t, uint32_t, line_id_pkt_property* property) {
  if (g_slots[property->src_port & 0xFFFF].state.exchange(SLOT_HOOKED) != SLOT_UNDER_WAY) ++g_soak.strays;
  while (g_gate_closed) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ++g_soak.hooked;
  return 0;
}

int mac_spoof_alarm(const line_id_alarm*) {
  ++g_soak.alarms;
  return 0;
}

int type_name(char* buf, uint32_t size) {
  std::strncpy(buf, "OLT1", size);
  return 0;
}

int slot_info(uint16_t* slot) {
  *slot = 3;
  return 0;
}

int tech_form(uint16_t, uint16_t, uint8_t* form) {
  *form = LINE_ID_FORM_GP;
  return 0;
}

int reg_info(line_id_onu_reg_info* info) {
  std::strcpy(info->onu_id, "ONU");
  info->onu_type_id = 9;
  return 0;
}

int32_t load_instance(uint8_t oltid, const line_id_hal_func_table& hal) {
  line_id_ex_cfg_table table = {};
  line_id_fmt_list formats = {};
  table.fmt_list = &formats;
  if (const int32_t ret = line_id_obtain_cust_cfg_table_content(LINE_ID_MODE_OLT, 0, &table); ret < 0) return ret;
  table.dhcp_reg = table.dhcpv6_reg = table.pppoe_reg = table.dhcp_spoof_reg = table.pppoe_spoof_reg = 1;
  table.option82_enable = table.option18_enable = table.option37_enable = table.pppoe_plus_enable = 1;
  table.circuitid_enable = table.remoteid_enable = 1;
  table.pppoe_anti_spoofing_enable = table.dhcp_anti_spoofing_enable = table.dhcp_anti_spoofing_active = 1;
  table.pkt_exception_policy = 0;
  table.cross_process_shared_mem = 1;
  return line_id_data_init(oltid, LINE_ID_MODE_OLT, &table, &hal);
}

template <typename condition> bool within(std::chrono::seconds limit, condition until) {
  for (const auto end = steady::now() + limit; !until();) {
    if (steady::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

} // namespace

void latency_histogram::add(uint64_t ns) {
  const auto octave = static_cast<uint32_t>(std::bit_width(ns | STEPS) - 1);
  const uint32_t step = static_cast<uint32_t>(ns >> (octave - 3)) & (STEPS - 1);
  ++counts[std::min<size_t>((octave - 3) * STEPS + step, counts.size() - 1)];
}

uint64_t latency_histogram::upper_bound(uint32_t bucket) {
  return (uint64_t{STEPS} + bucket % STEPS + 1) << (bucket / STEPS);
}

bool soak_agent_start() {
  line_id_hal_func_table hal = {};
  hal.set_drv_enable = set_drv_enable;
  hal.send_eth_frame = send_eth_frame;
  hal.mac_spoof_alarm = mac_spoof_alarm;
  hal.get_access_typename = type_name;
  hal.get_card_typename = type_name;
  hal.get_olt_card_slot_info = slot_info;
  hal.get_access_device_tech_form = tech_form;
  hal.get_onu_reg_info_by_optional_elem = reg_info;
  for (uint8_t oltid = 0; oltid < 4; ++oltid) {
    if (load_instance(oltid, hal) < 0) return false;
  }
  line_id_reg_custom_pkt_proc_if(packet_hook);
  line_id_set_line_id_buf_pool_num(SOAK_POOL_UNITS);
  g_worker = std::thread([] { g_worker_result = line_id_proc_entry(nullptr); });
  uint32_t address = 0;
  return within(std::chrono::seconds(10),
                [&] { return line_id_is_service_running() == 1 && line_id_get_manage_ip(0, &address) == 0; });
}

int32_t soak_agent_stop() {
  line_id_stop();
  g_worker.join();
  return g_worker_result;
}

int32_t soak_hand_in(bool pppoe, const uint8_t* frame, uint32_t len, uint8_t direct, const line_id_append_info& line) {
  const uint32_t number = g_next_number++;
  frame_slot& slot = g_slots[number & 0xFFFF];
  slot.start = now_ns();
  slot.state = SLOT_UNDER_WAY;
  t_receiving = true;
  t_sent_at_once = false;
  const int32_t ret = (pppoe ? line_id_pppoe_receive : line_id_dhcp_receive)(frame, len, number, direct, &line);
  t_receiving = false;
  ++g_soak.in;
  if (ret < 0) {
    ++(t_sent_at_once ? g_soak.strays : g_soak.refused);
  } else {
    ++(t_sent_at_once ? g_soak.passed : g_soak.queued);
  }
  return ret;
}

bool soak_wait_drained() {
  return within(std::chrono::seconds(10), [] { return g_soak.hooked == g_soak.queued; });
}

uint32_t soak_count_units(const uint8_t* frame, uint32_t len, const line_id_append_info& line) {
  g_gate_closed = true;
  uint32_t taken = 0;
  while (taken <= SOAK_POOL_UNITS && soak_hand_in(false, frame, len, LINE_ID_UPSTREAM, line) >= 0) ++taken;
  g_gate_closed = false;
  return soak_wait_drained() ? taken : 0;
}
