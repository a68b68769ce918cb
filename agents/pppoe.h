// The PPPoE intermediate agent: writes the line's identity into a subscriber's PPPoE Discovery frame (RFC 2516) as a
// vendor-specific tag, and takes it out downstream.
//
//   offset  octets  tag
//   0       2       0x0105
//   2       2       length of what follows: 4 and the sub-options
//   4       4       vendor id 3561
//   8       n       sub-options 1 (Circuit-ID) and 2 (Remote-ID): code, length, text
//
// The worker only.
#pragma once

#include "core/records.h"

// One frame: 0 send the rebuilt one, -1 send it as received, -2 drop it. Counts it in the PPPoE statistics. The
// worker's entry has filled the record.
int32_t line_id_pppoe_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info);

// Carry out `op` (line_id_operation) on the tag at `tag_ptr` in the received frame, whose whole length is `old_tag_len`
// (0 to insert). The operation's result.
int32_t line_id_pppoe_plus_proc(uint8_t oltid, const uint8_t* tag_ptr, uint32_t old_tag_len, uint8_t op,
                                line_id_inf_info* info);

// The three rewriting operations, payload length included, and one sub-option: see agents/line_id_option.h.
int32_t line_id_pppoe_plus_remove(const uint8_t* old_tag_ptr, uint32_t old_tag_len, line_id_inf_info* info);
int32_t line_id_pppoe_plus_replace(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                   line_id_inf_info* info);
int32_t line_id_pppoe_plus_modify(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                  line_id_inf_info* info);
int32_t line_id_pppoe_plus_circuit_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                           uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op,
                                           line_id_inf_info* info);
int32_t line_id_pppoe_plus_remote_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                          uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op, line_id_inf_info* info);
