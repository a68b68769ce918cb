// The DHCPv4 agent: checks a subscriber's frame and writes the line's identity into it as Option 82 (RFC 3046).
//
//   offset  octets  Option 82
//   0       1       82
//   1       1       length of what follows, 0 to 255
//   2       n       sub-options 1 (Circuit-ID) and 2 (Remote-ID): code, length, text
//
// The worker only. Offsets take the IPv4 header as 20 octets.
#pragma once

#include "core/records.h"

// One frame: 0 send the rebuilt one, -1 send it as received, -2 drop it. Downstream frames are checked and sent as they
// came. The worker's entry has filled the record.
int32_t line_id_dhcp_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info);

// Carry out `op` (line_id_operation) on the option at `option_ptr` in the received frame, whose whole length is
// `old_tag_len` (0 to insert), then close the IPv4 and UDP headers of the output frame, whatever the operation's
// result, which is returned. A removal while stripping is off is -1, and the headers stay as they are.
int32_t line_id_dhcp_option82_proc(uint8_t oltid, const uint8_t* option_ptr, uint32_t old_tag_len, uint8_t op,
                                   line_id_inf_info* info);

// The three rewriting operations, and one sub-option: see agents/line_id_option.h.
int32_t line_id_dhcp_option82_remove(const uint8_t* old_tag_ptr, uint32_t old_tag_len, line_id_inf_info* info);
int32_t line_id_dhcp_option82_replace(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                      line_id_inf_info* info);
int32_t line_id_dhcp_option82_modify(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                     line_id_inf_info* info);
int32_t line_id_dhcp_option82_circuit_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                              uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op,
                                              line_id_inf_info* info);
int32_t line_id_dhcp_option82_remote_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                             uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op,
                                             line_id_inf_info* info);
