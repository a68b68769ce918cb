// The configuration calls that are like no other; their prototypes are in include/line_id.h.
#include <cstddef>

#include "client/exchange.h"
#include "core/log.h"
#include "platform/pal.h"

namespace {

// Command codes, from the rows that leave the call to this file.
#define LINE_ID_ACTION(handler, code) constexpr uint16_t CODE_##handler = code;
#define LINE_ID_ACTION_GET(handler, code) constexpr uint16_t CODE_##handler = code;
#define LINE_ID_SHOW_ACTION(report, code) constexpr uint16_t CODE_show_##report = code;
#include "config/settings.def"

constexpr uint32_t MAC_LEN = 6;
constexpr uint32_t MAX_TEXT_LEN = LINE_ID_TEXT_SIZE - 1;

} // namespace

int32_t line_id_is_service_running(void) { return pal_service_is_claimed(); }

// ---- identity

int32_t line_id_set_ani_param(uint8_t oltid, const char* text, uint32_t len, uint16_t rack, uint16_t frame) {
  if (text == nullptr || len > LINE_ID_ANI_LEN) return client_fail(__func__, LINE_ID_ERR);
  return client_set(__func__, oltid, CODE_set_ani_param, {{text, len}, {&rack, sizeof(rack)}, {&frame, sizeof(frame)}});
}

int32_t line_id_set_manage_ip(uint8_t oltid, uint32_t address) {
  return client_set(__func__, oltid, CODE_set_manage_ip, {{&address, sizeof(address)}});
}

int32_t line_id_get_manage_ip(uint8_t oltid, uint32_t* address) {
  return client_get(__func__, oltid, CODE_get_manage_ip, address, sizeof(*address));
}

int32_t line_id_set_remoteid_core_cardinnermac(uint8_t oltid, const uint8_t* mac, uint32_t len) {
  return client_set_mac(__func__, oltid, CODE_set_remoteid_core_cardinnermac, mac, len);
}

int32_t line_id_set_remote_id_enable_and_params(uint8_t oltid, uint8_t enable, const uint8_t* mac, uint32_t len) {
  if (mac == nullptr || len != MAC_LEN || enable > 1) return client_fail(__func__, LINE_ID_ERR);
  return client_set(__func__, oltid, CODE_set_remote_id_enable_and_params, {{&enable, sizeof(enable)}, {mac, len}});
}

int32_t line_id_override_param(uint8_t oltid, uint8_t letter, const char* text, uint32_t len) {
  if (text == nullptr || len > MAX_TEXT_LEN) return client_fail(__func__, LINE_ID_ERR);
  return client_set(__func__, oltid, CODE_override_param, {{&letter, sizeof(letter)}, {text, len}});
}

int32_t line_id_unoverride_param(uint8_t oltid, uint8_t letter) {
  return client_set(__func__, oltid, CODE_unoverride_param, {{&letter, sizeof(letter)}});
}

// ---- of the whole agent

int32_t line_id_reset_statistics(uint8_t oltid) { return client_set(__func__, oltid, CODE_reset_statistics, {}); }

int32_t line_id_set_trans_white_list(uint8_t oltid, const line_id_white_list* list) {
  if (list == nullptr) return client_fail(__func__, LINE_ID_ERR_NULL);
  if (list->num > LINE_ID_WHITE_LIST_TYPES) return client_fail(__func__, LINE_ID_ERR_LEVEL);
  // Count, types and reserved octets: the policy and the enables are not carried.
  return client_set(__func__, oltid, CODE_set_trans_white_list, {{list, offsetof(line_id_white_list, trans_policy)}});
}

int32_t line_id_show_pkt_statistics(void) { return client_show(__func__, 0, CODE_show_pkt_statistics); }

// ---- VLAN profiles

int32_t lineid_vlan_profile_cfg_add(uint8_t oltid, uint8_t type, uint32_t prof_id, uint32_t cirt_template,
                                    const char* text, uint32_t len) {
  if (text == nullptr || len > LINE_ID_FORMAT_LEN) return client_fail(__func__, LINE_ID_ERR);
  LINE_ID_INFO(LOG_CFG, "cbb type:%d, prof_id:%d, cirt_template:%d, fmt_str:%.*s, len:%d\r\n", type,
               static_cast<int>(prof_id), static_cast<int>(cirt_template), static_cast<int>(len), text,
               static_cast<int>(len));
  return client_set(
      __func__, oltid, CODE_set_lineid_vlan_prof,
      {{&type, sizeof(type)}, {&prof_id, sizeof(prof_id)}, {&cirt_template, sizeof(cirt_template)}, {text, len}});
}

int32_t lineid_vlan_profile_cfg_del(uint8_t oltid, uint8_t type, uint32_t prof_id) {
  LINE_ID_INFO(LOG_CFG, "cbb type:%d, prof_id:%d\r\n", type, static_cast<int>(prof_id));
  return client_set(__func__, oltid, CODE_del_lineid_vlan_prof, {{&type, sizeof(type)}, {&prof_id, sizeof(prof_id)}});
}

int32_t lineid_vlan_profile_cfg_show(uint8_t oltid) {
  return client_show(__func__, oltid, CODE_show_circuit_id_vlan_format);
}
