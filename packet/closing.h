// The closing step of a rebuilt frame: lengths and checksums, once everything else is in place.
#pragma once

#include <cstdint>

// IPv4 over `vlan_tag_len` octets of tags: total length, header checksum (20 octets), UDP length; the UDP checksum is
// switched off (RFC 768: 0 is "no checksum"). A frame too short for the headers is left as it is.
void line_id_close_dhcp4(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len);

// IPv6: payload length, UDP length and UDP checksum (RFC 8200, section 8.1), for a UDP header that lies
// `ext_headers_len` octets behind the IPv6 header.
void line_id_close_dhcp6(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len, uint32_t ext_headers_len);

// The UDP checksum over the IPv6 pseudo-header: of the 32 octets of source and destination address, and of `udp_len` (8
// or more) octets of UDP header and payload, with the checksum field taken as zero. Never 0: that is sent as 0xFFFF.
uint16_t line_id_udp6_check_sum(const uint8_t* addresses, const uint8_t* udp, uint32_t udp_len);

// PPPoE: adds `growth` to the payload length.
void line_id_close_pppoe(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len, int32_t growth);
