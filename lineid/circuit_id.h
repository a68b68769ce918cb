// The Circuit-ID: its text, and the operations on its sub-option.
//
// A sub-option is its type, the low 8 bits of the text length, and the text; `out` holds at least 258 octets. `old` is
// the received sub-option with its two octets in front and need not be terminated. The frame's set must have been
// filled (line_id_param_proc). The worker.
#pragma once

#include "core/records.h"
#include "lineid/sub_option.h"

#include <string_view>

constexpr uint8_t LINE_ID_SUB_CIRCUIT_ID = 1; // RFC 3046

// The text by the instance's format type and the frame's VLAN profile. `splice` 1: for CTC and CNC the head alone, in
// front of what an ONU wrote. Length, or -9 without `out`, -1.
int32_t line_id_print_circuit_id(uint8_t oltid, uint8_t* out, uint8_t splice, const line_id_inf_info* info);
// The same of a frame without a VLAN profile for it, while nothing is traced.
int32_t line_id_print_circuit_id_untraced(const line_id_text_source& from, uint8_t* out, uint8_t splice,
                                          const line_id_inf_info* info);

// Where a received text of format type `mode` (1 CTC, 2 CNC) is cut: the index of the separator in front of what is
// kept, or -1.
int32_t line_id_circuit_id_cut_pos(int32_t mode, const uint8_t* text, uint32_t len, const line_id_inf_info* info);

// Rebuild a received Circuit-ID: by the custom template anew, or a fresh head joined with the tail of the received
// text. 0; -9 null, -157 too long, -1.
int32_t line_id_circuit_id_modify(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                  line_id_inf_info* info);
// Build it anew; `old` is not used. 0, -9 null, -1.
int32_t line_id_circuit_id_replace(uint8_t oltid, const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                   line_id_inf_info* info);
// Length 0. 0, or -9 null.
int32_t line_id_circuit_id_remove(const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len,
                                  line_id_inf_info* info);
// As received. 0, -9 null, -157 above 258 octets.
int32_t line_id_circuit_id_none(const uint8_t* old, uint16_t old_len, uint8_t* out, uint16_t* opt_len);

// ---- the VLAN profile of a frame

// The template type of its Circuit-ID profile (0 own, 1 CTC, 2 CNC), or -1 without a profile.
int32_t line_id_check_vlan_based_circuit_fmt(const line_id_inf_info* info, uint8_t oltid);
// Its template, the whole field; empty without an instance.
std::string_view line_id_get_vlan_based_circuit_fmt(const line_id_inf_info* info, uint8_t oltid);
