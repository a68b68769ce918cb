// The Remote-ID: its text, and the operations on its sub-option. Rules as in lineid/circuit_id.h.
#pragma once

#include "core/records.h"
#include "lineid/sub_option.h"

#include <string_view>

constexpr uint8_t LINE_ID_SUB_REMOTE_ID = 2; // RFC 3046

// The text of packet type `kind0` + 1, by the instance's template. Length, or -9 without `out`, -31 a bad set.
int32_t line_id_print_remote_id(uint8_t oltid, uint8_t* out, uint8_t kind0);
// The same by the frame's VLAN profile; DHCPv6 takes the instance's template all the same.
int32_t line_id_print_vlan_based_remote_fmt(uint8_t oltid, uint8_t* out, uint8_t kind0, const line_id_inf_info* info);
// Of a frame: by its VLAN profile, or by the instance's template when it has none.
int32_t line_id_print_frame_remote_id(uint8_t oltid, uint8_t* out, const line_id_inf_info* info);
// The same of a frame without a VLAN profile for it, while nothing is traced.
int32_t line_id_print_remote_id_untraced(const line_id_text_source& from, uint8_t* out, const line_id_inf_info* info);

// Modify is replace.
int32_t line_id_remote_id_modify(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                 line_id_inf_info* info);
int32_t line_id_remote_id_replace(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                  line_id_inf_info* info);
int32_t line_id_remote_id_remove(const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                 line_id_inf_info* info);
int32_t line_id_remote_id_none(const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len);

// 0 when the frame has a Remote-ID profile, else -1.
int32_t line_id_check_vlan_based_remote_fmt(const line_id_inf_info* info, uint8_t oltid);
// Its template, the whole field; empty without an instance.
std::string_view line_id_get_vlan_based_remote_fmt(const line_id_inf_info* info, uint8_t oltid);
