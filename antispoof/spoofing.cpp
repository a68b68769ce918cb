// The spoofing checks: what a frame says about its MAC address against what its table has learnt.
#include <cstring>

#include "antispoof/binding_table.h"
#include "config/store.h"
#include "core/device_if.h"
#include "core/log.h"

#define MAC_FORMAT "%02x%02x%02x%02x%02x%02x"
#define MAC_ARGS(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]

namespace {

constexpr uint8_t PADI = 0x09; // RFC 2516, section 5
constexpr uint8_t PADR = 0x19;
constexpr uint8_t PADT = 0xA7;
constexpr uint8_t DHCP_DISCOVER = 1; // RFC 2132, section 9.6
constexpr uint8_t DHCP_REQUEST = 3;
constexpr uint8_t ALARM_SPOOFING = 0;
constexpr uint8_t ALARM_BINDING_REMOVED = 1;

// Raise an alarm; its place is that of the frame.
void raise_alarm(const line_id_inf_info* info, uint8_t kind) {
  const line_id_pkt_info* pkt = info->pkt_info_ptr;
  line_id_alarm alarm = {};
  alarm.onu_ponno = pkt->onu_ponno;
  alarm.onu_no = pkt->onu_authno;
  alarm.cvlan = pkt->cvlan;
  alarm.kind = kind;
  std::memcpy(alarm.mac, info->client_mac, sizeof(alarm.mac));
  line_id_mac_spoof_alarm_proc(&alarm);
}

line_id_binding_place frame_place(const line_id_inf_info* info) {
  return {info->olt_slot, info->pkt_info_ptr->onu_ponno, info->pkt_info_ptr->onu_authno};
}

void report_spoofing(uint8_t category, const line_id_inf_info* info, const line_id_binding_place& bound,
                     const char* outcome) {
  LINE_ID_WARN(category, "Binded_onu:slotno = %d, ponno=%d,onuno=%d.\r\n", bound.slot, bound.pon, bound.onu);
  LINE_ID_WARN(category, "MAC spoofing detected : Source MAC " MAC_FORMAT "\r\n", MAC_ARGS(info->client_mac));
  LINE_ID_WARN(category, "%s\r\n", outcome);
  raise_alarm(info, ALARM_SPOOFING);
}

// A PADT ends a session: only the bound ONU may send it.
int32_t check_padt(const line_id_inf_info* info) {
  line_id_binding_place bound = {};
  if (line_id_search_pppoe_binding_table(info->client_mac, &bound) != LINE_ID_OK) {
    LINE_ID_WARN(LOG_PPPOE, "Warnning: PADT received but Src MAC not found in Binding Table.\r\n");
    return LINE_ID_ERR;
  }
  if (bound != frame_place(info)) {
    LINE_ID_WARN(LOG_PPPOE, "Spoofed PADT detected. Frame dropped.\r\n");
    return LINE_ID_ERR;
  }
  if (line_id_del_pppoe_binding_entry(info->client_mac) == LINE_ID_OK) {
    raise_alarm(info, ALARM_BINDING_REMOVED);
    LINE_ID_INFO(LOG_PPPOE, "PPPoE binding entry deleted : MAC " MAC_FORMAT "\r\n", MAC_ARGS(info->client_mac));
  }
  return LINE_ID_OK;
}

} // namespace

int32_t line_id_process_dhcp_anti_mac_spoofing(int32_t, int32_t, line_id_inf_info* info) {
  // ODD: nothing records a DHCP message kind, so the check lets every DHCP frame through and learns nothing.
  if (info->msg_kind != DHCP_DISCOVER && info->msg_kind != DHCP_REQUEST) return LINE_ID_OK;
  const line_id_binding_place place = frame_place(info);
  line_id_binding_place bound = {};
  if (line_id_add_dhcp_binding_entry(0, info->client_mac, place.slot, place.pon, place.onu, &bound) !=
      BINDING_SPOOFED) {
    return LINE_ID_OK;
  }
  report_spoofing(LOG_DHCPV4, info, bound, "\r\nDHCP packets dropped.");
  return line_id_get_dhcp_anti_spoofing_active_cfg(0) != 0 ? LINE_ID_ERR : LINE_ID_OK;
}

int32_t line_id_process_pppoe_anti_mac_spoofing(int32_t, int32_t, line_id_inf_info* info) {
  if (info->olt_slot == 0) {
    LINE_ID_WARN(LOG_PPPOE, "\r\n PPPOE packets need drop.\r\n");
    return LINE_ID_ERR;
  }
  if (info->pppoe_code == PADT) return check_padt(info);
  if (info->pppoe_code != PADI && info->pppoe_code != PADR) return LINE_ID_OK;

  const line_id_binding_place place = frame_place(info);
  line_id_binding_place bound = {};
  switch (line_id_add_pppoe_binding_entry(0, info->client_mac, place.slot, place.pon, place.onu, &bound)) {
  case BINDING_NEW:
    LINE_ID_INFO(LOG_PPPOE, "PPPoE binding entry added : MAC " MAC_FORMAT "\r\n", MAC_ARGS(info->client_mac));
    return LINE_ID_OK;
  case BINDING_SPOOFED:
    report_spoofing(LOG_PPPOE, info, bound, "\r\n PPPOE packets dropped.");
    return LINE_ID_ERR; // ODD: always, there is no alarm-only mode for PPPoE.
  default: return LINE_ID_OK;
  }
}
