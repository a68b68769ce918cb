// The ONU types whose frames are passed transparently.
//
// Set by the host before frames flow and by the message server on the worker; read on the worker.
#pragma once

#include "include/line_id.h"

#include <cstdint>

constexpr uint32_t LINE_ID_WHITE_LIST_BODY_LEN = 69; // count and ONU types: what the set command carries

extern line_id_white_list g_trans_white_list_obj;

// The whole list: 0; -9 null, -32 policy, -147 an enable, -31 more than 32 types. A refused list changes nothing.
int32_t line_id_set_trans_white_list_obj(const line_id_white_list* list);
int32_t line_id_get_trans_white_list_obj(line_id_white_list* list); // 0 or -9

// Count and ONU types alone, unchecked, as LINE_ID_WHITE_LIST_BODY_LEN octets. 0 or -9.
int32_t line_id_set_trans_white_list_cfg(const uint8_t* body);
int32_t line_id_get_trans_white_list_cfg(uint8_t* body);

inline int32_t line_id_get_trans_white_list_policy() { return g_trans_white_list_obj.trans_policy; }
inline int32_t line_id_get_trans_white_list_dhcp_enable() { return g_trans_white_list_obj.dhcp_enable; }
inline int32_t line_id_get_trans_white_list_pppoe_enable() { return g_trans_white_list_obj.pppoe_enable; }

// 0 when the type is listed, else -1.
int32_t line_id_is_onutype_match(uint16_t onu_type);
