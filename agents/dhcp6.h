// The DHCPv6 agent: a lightweight relay (RFC 6221) that wraps each client message in a Relay-Forward with the line's
// Interface-ID and Remote-ID, and takes the server's message out of each Relay-Reply.
//
// All of it runs on the worker. Frames are read within the given length only; Ethernet padding counts as payload. An
// output buffer holds LINE_ID_SCRATCH_LEN octets and does not overlap the input.
#pragma once

#include "core/records.h"

// The agent: 0 send `new_pkt`, -1 pass the frame as received, -2 drop.
int32_t line_id_dhcpv6_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info);

// Upstream: the Relay-Forward of a frame. 0, or a code with `out` of no use: -9 null, -114 option 18, -115 option 37,
// -117 a server's message, -157 too long, -159 malformed.
int32_t line_id_dhcpv6_relay_forward_proc(uint8_t oltid, const uint8_t* origin, uint32_t origin_len, uint8_t* out,
                                          uint16_t* out_len, const line_id_inf_info* info);

// Downstream: the message inside a Relay-Reply, addressed to its peer. 0, or a code with `out` untouched: -9 null, -116
// VLAN tags, -117 no Relay-Reply, -118 not a server's message inside, -159 malformed.
int32_t line_id_dhcpv6_relay_reply_proc(const uint8_t* origin, uint32_t origin_len, uint8_t* out, uint16_t* out_len,
                                        const line_id_inf_info* info);
