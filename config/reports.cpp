// The console reports of the show commands.
#include "config/reports.h"

#include <cstdio>

#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/records.h"
#include "lineid/params.h"
#include "packet/protocol_table.h"

namespace {

constexpr uint8_t SHOW_TABLE = 1; // operation on a binding table
constexpr char STATUS_LETTERS[] = "arfuOBLH";
constexpr const char* PPPOE_TYPE_NAMES[LINE_ID_PPPOE_TYPES] = {"PADI", "PADR", "PADT", "PADO", "PADS"};

int32_t signed_value(uint32_t index) { return static_cast<int32_t>(line_id_statics_value(index)); }

const char* state_text(int32_t enable) { return enable != 0 ? "Enabled" : "Disabled"; }

void show_vlan(uint32_t vlan) {
  std::printf("\n  vlan : %d\r\n", signed_value(line_id_vlan_marker_index(vlan)));
  std::puts("\tPPPoE Discovery Packet    Received    Forwarded    Dropped\r");
  std::puts("\t----------------------    --------    ---------    -------\r");
  for (uint32_t type = 0; type < LINE_ID_PPPOE_TYPES; ++type) {
    std::printf("\t%22s    %8d    %9d    %7d\r\n", PPPOE_TYPE_NAMES[type],
                signed_value(line_id_pppoe_count_index(PPPOE_RECEIVED, type, vlan)),
                signed_value(line_id_pppoe_count_index(PPPOE_FORWARDED, type, vlan)),
                signed_value(line_id_pppoe_count_index(PPPOE_DROPPED, type, vlan)));
  }
}

} // namespace

int32_t line_id_show_pkt_statistics_cfg(uint8_t) {
  std::puts("\r\npacket statistics is:\r");
  for (uint32_t i = 0; i < LINE_ID_STATICS_TOTALS; ++i) {
    std::printf("%s:%d\r\n", line_id_statics_label(i), signed_value(i));
  }
  for (uint32_t vlan = 0; vlan < LINE_ID_STATICS_VLANS; ++vlan) {
    if (line_id_statics_value(line_id_vlan_marker_index(vlan)) != 0) show_vlan(vlan);
  }
  return LINE_ID_OK;
}

int32_t line_id_show_lineid_status_cfg(uint8_t oltid) {
  std::puts("\r\nLine ID Configurations\r");
  std::puts("====================================================\r");
  std::printf("Option82: %s          Option18: %s\r\n", state_text(line_id_get_option82_enable_cfg(oltid)),
              state_text(line_id_get_option18_enable_cfg(oltid)));
  std::printf("Option37: %s          PPPoE+  : %s\r\n", state_text(line_id_get_option37_enable_cfg(oltid)),
              state_text(line_id_get_pppoe_plus_enable_cfg(oltid)));
  std::puts("PARAMETERS LIST ====================================\r");
  const int32_t set = line_id_param_set_of(oltid, LINE_ID_DHCPV4);
  for (const char* letter = STATUS_LETTERS; *letter != '\0'; ++letter) {
    std::printf("%c: %.*s\r\n", *letter, LINE_ID_TEXT_SIZE - 1, line_id_get_param_text(set, *letter));
  }
  std::puts("FORMAT =============================================\r");
  return LINE_ID_OK;
}

int32_t line_id_show_pppoe_whitelist_cfg(uint8_t) {
  const line_id_white_list& list = g_trans_white_list_obj;
  std::printf("\r\nPppoe white list trans_policy is:%d\r\n", list.trans_policy);
  std::printf("\r\nPppoe white list dhcp_white_list_enbale is:%d\r\n", list.dhcp_enable);
  std::printf("\r\nPppoe white list pppoe_white_list_enbale is:%d\r\n", list.pppoe_enable);
  // ODD: every slot with a type is listed, also those beyond the count.
  for (uint32_t i = 0; i < LINE_ID_WHITE_LIST_TYPES; ++i) {
    const uint16_t onu_type = list.onu_type[i];
    if (onu_type != 0) std::printf("onu_type[%d] = %d\r\n", i, onu_type);
  }
  std::printf("\r\nPppoe white list num is:%d\r\n", list.num);
  std::puts("");
  return LINE_ID_OK;
}

int32_t line_id_show_dhcp_binding_table_cfg(uint8_t oltid) {
  return line_id_dhcp_spoof_oper_if(oltid, SHOW_TABLE, 0, 0, nullptr);
}

int32_t line_id_show_pppoe_binding_table_cfg(uint8_t oltid) {
  return line_id_pppoe_spoof_oper_if(oltid, SHOW_TABLE, 0, 0, nullptr);
}
