// Checks of received frames, VLAN tags and the Internet checksum.
//
// Any thread; no state. Nothing is read outside the given length: what is too short for a header is an invalid header.
#pragma once

#include <cstdint>

constexpr uint32_t ETH_HEADER_LEN = 14;
constexpr uint32_t VLAN_TAG_LEN = 4;
constexpr int32_t IP4_HEADER_LEN = 20;  // RFC 791, without options
constexpr int32_t IP6_HEADER_LEN = 40;  // RFC 8200
constexpr int32_t UDP_HEADER_LEN = 8;   // RFC 768
constexpr int32_t PPPOE_HEADER_LEN = 6; // RFC 2516

// ---- VLAN tags and EtherType

// Tags of a frame: the last of the octets 12, 16, 20 and 24 that holds a TPID gives 1 to 4, none at 12 gives 0. -9 for
// null. A word that is not wholly inside the frame is no TPID.
int32_t line_id_check_vlan_tag_num(const uint8_t* frame, uint32_t len);
// The same count, and the VLANs: 4096 where there is none. -9 for a null pointer.
int32_t line_id_check_vlan(const uint8_t* frame, uint32_t len, uint16_t* svlan, uint16_t* cvlan);
// LINE_ID_DHCPV6 when the EtherType behind the tags is IPv6, else LINE_ID_DHCPV4.
int32_t line_id_get_eth_header_type(const uint8_t* frame, uint32_t len);
// 0 when `start` is later than `now` or two or more earlier, else -1.
int32_t line_id_check_processed_time(uint32_t start, uint32_t now);

// ---- checksum (RFC 1071)

// Ones'-complement sum of `len` octets as big-endian words, folded to 16 bits, not complemented. An odd last octet is
// the high one of its word.
uint16_t line_id_sum_words(const uint8_t* buf, uint32_t len);
// The complement of that sum: the checksum.
uint16_t line_id_check_sum(const uint8_t* buf, uint32_t len);
// Writes the checksum of `buf` at `offset`, which the caller has cleared. Nothing is done unless `len` is a multiple of
// 4 and two octets at `offset` lie inside.
void line_id_caculate_check_sum(uint8_t* buf, uint32_t len, uint32_t offset);

// ---- headers; `remaining` counts the octets from the header to the end of the frame, negative when it lies past it

// Octets of an IPv4 header, as its first octet says.
uint32_t line_id_get_ip_header_len(const uint8_t* ip);
// 0, or -84 unless the total length is what remains.
int32_t line_id_check_ip_header(const uint8_t* ip, int32_t remaining);
// 0, or -85 (ports are not those of the direction), -84 (length is not what remains), -41 (direction).
int32_t line_id_check_udp_header(const uint8_t* udp, int32_t remaining, uint8_t direct);
// A whole DHCPv4 frame: 0, or -82 (IP), -84 (UDP), -9 for null.
int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint8_t direct);
// A PPPoE Discovery header: 0, or -86 (version and type), -87 (code does not belong to the direction), -88 (length).
int32_t line_id_check_pppoe_header(const uint8_t* pppoe, int32_t remaining, uint8_t direct);
