// Checks of received frames, VLAN tags and the Internet checksum.
//
// Any thread; no state. Nothing is read outside the given length: what is too short for a header is an invalid header.
#pragma once

#include "core/log.h"
#include "core/records.h"
#include "packet/frame.h"

#include <bit>
#include <cstdint>
#include <cstring>

constexpr uint32_t ETH_HEADER_LEN = 14;
constexpr uint32_t VLAN_TAG_LEN = 4;
constexpr int32_t IP4_HEADER_LEN = 20;  // RFC 791, without options
constexpr int32_t IP6_HEADER_LEN = 40;  // RFC 8200
constexpr int32_t UDP_HEADER_LEN = 8;   // RFC 768
constexpr int32_t PPPOE_HEADER_LEN = 6; // RFC 2516

constexpr uint32_t TPID_OFFSET = 12;
constexpr uint16_t TPID_CUSTOMER = 0x8100; // IEEE 802.1Q
constexpr uint16_t TPID_SERVICE = 0x88A8;
constexpr uint16_t ETHERTYPE_IPV6 = 0x86DD;

// ---- VLAN tags and EtherType

inline bool line_id_has_word(uint32_t len, uint32_t offset) { return len >= 2 && offset <= len - 2; }

// A word that is not wholly inside the frame is no TPID.
inline bool line_id_is_tpid(const uint8_t* frame, uint32_t len, uint32_t offset) {
  if (!line_id_has_word(len, offset)) return false;
  const uint16_t word = line_id_get_u16(frame + offset);
  return word == TPID_CUSTOMER || word == TPID_SERVICE;
}

// Tags of a frame: the last of the octets 12, 16, 20 and 24 that holds a TPID gives 1 to 4, none at 12 gives 0.
inline uint32_t line_id_count_tags(const uint8_t* frame, uint32_t len) {
  if (!line_id_is_tpid(frame, len, TPID_OFFSET)) return 0;
  // ODD: the last position that holds a TPID counts, even when a position before it holds none.
  for (uint32_t tags = LINE_ID_MAX_TAGS; tags > 1; --tags) {
    if (line_id_is_tpid(frame, len, TPID_OFFSET + (tags - 1) * VLAN_TAG_LEN)) return tags;
  }
  return 1;
}
// The same, or -9 for null.
int32_t line_id_check_vlan_tag_num(const uint8_t* frame, uint32_t len);
// The same, and the VLANs: 4096 where there is none. -9 for a null pointer.
int32_t line_id_check_vlan(const uint8_t* frame, uint32_t len, uint16_t* svlan, uint16_t* cvlan);

// LINE_ID_DHCPV6 when the EtherType behind so many tags is IPv6, else LINE_ID_DHCPV4.
inline int32_t line_id_type_behind_tags(const uint8_t* frame, uint32_t len, uint32_t tags) {
  const uint32_t offset = TPID_OFFSET + VLAN_TAG_LEN * tags;
  const bool ipv6 = line_id_has_word(len, offset) && line_id_get_u16(frame + offset) == ETHERTYPE_IPV6;
  return ipv6 ? LINE_ID_DHCPV6 : LINE_ID_DHCPV4;
}
// The same behind its own tags. LINE_ID_DHCPV4 for null.
int32_t line_id_get_eth_header_type(const uint8_t* frame, uint32_t len);
// 0 when `start` is later than `now` or two or more earlier, else -1.
int32_t line_id_check_processed_time(uint32_t start, uint32_t now);

// ---- checksum (RFC 1071); built into the closing step, where much of its length is known

// Fold a sum of 16- and 32-bit words, taken from memory in this machine's octet order, to one word.
inline uint16_t line_id_fold_words(uint64_t total) {
  total = (total >> 32) + (total & 0xFFFFFFFF);
  total = (total >> 16) + (total & 0xFFFF);
  total = (total >> 16) + (total & 0xFFFF);
  const auto sum = static_cast<uint16_t>((total >> 16) + (total & 0xFFFF));
  return std::endian::native == std::endian::little ? static_cast<uint16_t>(sum << 8 | sum >> 8) : sum;
}
// What adds up to the ones'-complement sum of `len` octets: words in this machine's octet order, for
// line_id_fold_words. Less than 2^34, so that several can be added. An odd last octet is the first one of its word.
inline uint64_t line_id_add_words(const uint8_t* buf, uint32_t len) {
  // Summed in 64-bit words, with the carry added again: the sum does not depend on the octet order until it is folded.
  const auto add = [](uint64_t& sum, uint64_t word) {
    sum += word;
    sum += sum < word ? 1 : 0;
  };
  const auto word_at = [](const uint8_t* at) {
    uint64_t word = 0;
    std::memcpy(&word, at, sizeof(word));
    return word;
  };
  uint64_t total = 0;
  if (len >= 32) {
    uint64_t sums[4] = {}; // each addition waits for the one before it
    for (; len >= 32; len -= 32, buf += 32) {
      add(sums[0], word_at(buf));
      add(sums[1], word_at(buf + 8));
      add(sums[2], word_at(buf + 16));
      add(sums[3], word_at(buf + 24));
    }
    for (const uint64_t sum : sums) add(total, sum);
  }
  for (; len >= 8; len -= 8, buf += 8) add(total, word_at(buf));
  total = (total >> 32) + (total & 0xFFFFFFFF);
  if ((len & 4) != 0) {
    uint32_t half = 0;
    std::memcpy(&half, buf, sizeof(half));
    total += half;
    buf += sizeof(half);
  }
  if ((len & 2) != 0) {
    uint16_t quarter = 0;
    std::memcpy(&quarter, buf, sizeof(quarter));
    total += quarter;
    buf += sizeof(quarter);
  }
  if ((len & 1) != 0) {
    const uint8_t last[2] = {*buf, 0};
    uint16_t quarter = 0;
    std::memcpy(&quarter, last, sizeof(quarter));
    total += quarter;
    LINE_ID_INFO(LOG_GENERAL, "((*(unsigned char *) wtmp) << 8) = %x \r\n", *buf << 8);
  }
  return total;
}
// Ones'-complement sum of `len` octets as big-endian words, folded to 16 bits, not complemented.
inline uint16_t line_id_sum_words(const uint8_t* buf, uint32_t len) {
  return line_id_fold_words(line_id_add_words(buf, len));
}
// The complement of that sum: the checksum.
inline uint16_t line_id_check_sum(const uint8_t* buf, uint32_t len) {
  return static_cast<uint16_t>(~line_id_sum_words(buf, len));
}
// Writes the checksum of `buf` at `offset`, which the caller has cleared. Nothing is done unless `len` is a multiple of
// 4 and two octets at `offset` lie inside.
inline void line_id_caculate_check_sum(uint8_t* buf, uint32_t len, uint32_t offset) {
  offset &= 0xFFFF;
  if (len % 4 != 0 || len < 2 || offset > len - 2) return;
  line_id_set_u16(buf + offset, line_id_check_sum(buf, len));
}

// ---- headers; `remaining` counts the octets from the header to the end of the frame, negative when it lies past it

// Octets of an IPv4 header, as its first octet says.
uint32_t line_id_get_ip_header_len(const uint8_t* ip);
// 0, or -84 unless the total length is what remains.
int32_t line_id_check_ip_header(const uint8_t* ip, int32_t remaining);
// 0, or -85 (ports are not those of the direction), -84 (length is not what remains), -41 (direction).
int32_t line_id_check_udp_header(const uint8_t* udp, int32_t remaining, uint8_t direct);
// A whole DHCPv4 frame: 0, or -82 (IP), -84 (UDP), -9 for null.
int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint8_t direct);
// The same behind so many tags, not for null.
int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint32_t tags, uint8_t direct);
// A PPPoE Discovery header: 0, or -86 (version and type), -87 (code does not belong to the direction), -88 (length).
int32_t line_id_check_pppoe_header(const uint8_t* pppoe, int32_t remaining, uint8_t direct);
