// The agent's callbacks.
#include "host/hal.h"

#include "host/console.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint8_t PROTOCOLS = LINE_ID_PPPOE + 1;

// What the callbacks, which carry no argument of ours, work on. The pointers are set before the agent starts; the trap
// rules are switched by the agent and read by the thread that hands frames in.
struct hal_state {
  const line_map* map = nullptr;
  frame_events* events = nullptr;
  std::atomic<bool> trapped[LINE_ID_INSTANCES][PROTOCOLS];
};
hal_state g_hal;

constexpr int FOUND = 0;
constexpr int UNKNOWN = -1;

int set_drv_enable(uint8_t oltid, uint8_t protocol, uint8_t enable) {
  if (oltid >= LINE_ID_INSTANCES || protocol >= PROTOCOLS) return UNKNOWN;
  g_hal.trapped[oltid][protocol].store(enable != 0);
  return FOUND;
}

int send_eth_frame(uint8_t, uint8_t direct, uint16_t port, const uint8_t* frame, uint32_t len) {
  g_hal.events->frame_sent(direct, port, {frame, len});
  return FOUND;
}

int mac_spoof_alarm(const line_id_alarm* alarm) {
  console_note("alarm: " + alarm_text(*alarm));
  g_hal.events->alarm_raised(*alarm);
  return FOUND;
}

int log_output(const char* text, int32_t, const char*) {
  std::string line = text;
  while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
  console_note("log: " + line);
  return FOUND;
}

int get_access_typename(char* buf, uint32_t size) {
  std::snprintf(buf, size, "%s", g_hal.map->device.access_type.c_str());
  return FOUND;
}

int get_card_typename(char* buf, uint32_t size) {
  std::snprintf(buf, size, "%s", g_hal.map->device.card_type.c_str());
  return FOUND;
}

int get_olt_card_slot_info(uint16_t* slot) {
  *slot = g_hal.map->device.olt_slot.value_or(0);
  return FOUND;
}

int get_onu_card_slot_info(uint16_t* slot, uint16_t* sub_slot) {
  *slot = g_hal.map->device.onu_slot.value_or(0);
  *sub_slot = g_hal.map->device.onu_sub_slot.value_or(0);
  return FOUND;
}

int get_access_device_tech_form(uint16_t onu_ponno, uint16_t onu_authno, uint8_t* form) {
  const subscriber_line* line = line_map_by_onu(*g_hal.map, onu_ponno, onu_authno);
  if (line == nullptr) return UNKNOWN;
  *form = line->form;
  return FOUND;
}

int get_onu_reg_info_by_optional_elem(line_id_onu_reg_info* info) {
  const subscriber_line* line = line_map_by_onu(*g_hal.map, info->onu_ponno, info->onu_auth);
  if (line == nullptr) return UNKNOWN;
  *info = line->onu;
  return FOUND;
}

int get_onu_port_info_by_logic_port(uint16_t onu_portid, line_id_onu_port_info* info) {
  const subscriber_line* line = line_map_by_port(*g_hal.map, onu_portid);
  if (line == nullptr) return UNKNOWN;
  *info = line->port;
  return FOUND;
}

int packet_hook(uint8_t, uint32_t, uint32_t, uint32_t, line_id_pkt_property* property) {
  g_hal.events->frame_processed(property->src_port);
  return FOUND;
}

} // namespace

line_id_hal_func_table hal_install(const line_map& map, frame_events& events) {
  g_hal.map = &map;
  g_hal.events = &events;
  for (auto& instance : g_hal.trapped) {
    for (std::atomic<bool>& rule : instance) rule.store(false);
  }
  line_id_reg_custom_pkt_proc_if(packet_hook);
  line_id_hal_func_table table = {};
  table.set_drv_enable = set_drv_enable;
  table.send_eth_frame = send_eth_frame;
  table.mac_spoof_alarm = mac_spoof_alarm;
  table.log_output = log_output;
  table.get_access_typename = get_access_typename;
  table.get_card_typename = get_card_typename;
  if (map.device.olt_slot) table.get_olt_card_slot_info = get_olt_card_slot_info;
  if (map.device.onu_slot) table.get_onu_card_slot_info = get_onu_card_slot_info;
  table.get_access_device_tech_form = get_access_device_tech_form;
  table.get_onu_reg_info_by_optional_elem = get_onu_reg_info_by_optional_elem;
  if (map.has_port_facts) table.get_onu_port_info_by_logic_port = get_onu_port_info_by_logic_port;
  return table;
}

bool hal_is_trapped(uint8_t oltid, uint8_t protocol) {
  return oltid < LINE_ID_INSTANCES && protocol < PROTOCOLS && g_hal.trapped[oltid][protocol].load();
}

std::string alarm_text(const line_id_alarm& alarm) {
  mac_address mac = {};
  std::memcpy(mac.data(), alarm.mac, mac.size());
  const std::string what = alarm.kind == 0 ? "spoofing detected" : "binding removed by a PADT";
  return what + ": MAC " + mac_text(mac) + " at PON " + std::to_string(uint16_t{alarm.onu_ponno}) + ", ONU " +
         std::to_string(uint16_t{alarm.onu_no}) + ", C-VLAN " + std::to_string(uint16_t{alarm.cvlan});
}
