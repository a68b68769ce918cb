// Counters of frames: 27 totals for protocol, direction and outcome, and PPPoE Discovery messages for each VLAN.
//
// Counted on the worker and on host threads, read by the report on the worker: relaxed atomics that wrap.
#pragma once

#include "config/store.h"

#include <array>
#include <atomic>
#include <cstdint>

// Order of the store: the totals, a marker for each VLAN, then the PPPoE counters [table][type][VLAN].
constexpr uint32_t LINE_ID_STATICS_TOTALS = 27;
constexpr uint32_t LINE_ID_STATICS_VLANS = 4097; // VLAN 0 to 4096
constexpr uint32_t LINE_ID_PPPOE_TYPES = 5;
constexpr uint32_t LINE_ID_PPPOE_TABLES = 3; // received, forwarded, dropped
constexpr uint32_t LINE_ID_STATICS_COUNTERS =
    LINE_ID_STATICS_TOTALS + (1 + LINE_ID_PPPOE_TABLES * LINE_ID_PPPOE_TYPES) * LINE_ID_STATICS_VLANS;
static_assert(LINE_ID_STATICS_COUNTERS == 65579);

enum line_id_pppoe_table : uint8_t { PPPOE_RECEIVED, PPPOE_FORWARDED, PPPOE_DROPPED };
enum line_id_pppoe_type : uint8_t { PPPOE_PADI, PPPOE_PADR, PPPOE_PADT, PPPOE_PADO, PPPOE_PADS };

extern std::atomic<uint32_t> g_line_id_statics[LINE_ID_STATICS_COUNTERS];

// Places in the store.
constexpr uint32_t line_id_vlan_marker_index(uint32_t vlan) { return LINE_ID_STATICS_TOTALS + vlan; }
constexpr uint32_t line_id_pppoe_count_index(line_id_pppoe_table table, uint32_t type, uint32_t vlan) {
  return LINE_ID_STATICS_TOTALS + (1 + table * LINE_ID_PPPOE_TYPES + type) * LINE_ID_STATICS_VLANS + vlan;
}

inline uint32_t line_id_statics_value(uint32_t index) {
  return g_line_id_statics[index].load(std::memory_order_relaxed);
}
// Where one thread counts: the worker, which also resets.
inline void line_id_add_alone(std::atomic<uint32_t>& counter) {
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}
// Name of a total (0 to 26) in the report.
const char* line_id_statics_label(uint32_t index);

// All counters and markers to 0. Always 0.
int32_t line_id_reset_statistics_cfg();

// One frame sent; `pass_through` is non-zero when it left as received. `direction` LINE_ID_UPSTREAM or _DOWNSTREAM,
// `protocol` LINE_ID_DHCPV4, ...; other values change nothing.
void line_id_inc_processed_pkt_count(uint8_t direction, int8_t protocol, uint8_t pass_through);
// One frame dropped. Always 0.
int32_t line_id_inc_drop_pkt_count(uint8_t direction, int8_t protocol);

// Index of each PPPoE Discovery code (RFC 2516, appendix A) in the order of the counters; LINE_ID_PPPOE_TYPES for
// others.
inline constexpr std::array<uint8_t, 256> LINE_ID_PPPOE_TYPE_OF = [] {
  std::array<uint8_t, 256> types = {};
  types.fill(LINE_ID_PPPOE_TYPES);
  types[0x09] = PPPOE_PADI;
  types[0x19] = PPPOE_PADR;
  types[0xA7] = PPPOE_PADT;
  types[0x07] = PPPOE_PADO;
  types[0x65] = PPPOE_PADS;
  return types;
}();

// Whether messages are counted: PPPoE+ is on for the instance (null: there is none), and the VLAN is 1 to 4096.
inline bool line_id_counts_pppoe(const line_id_common_cfg* cfg, uint32_t vlan) {
  return line_id_get_switch(cfg, &line_id_common_cfg::pppoe_plus_enable) != 0 && vlan - 1 < LINE_ID_STATICS_VLANS - 1;
}
// One PPPoE Discovery message, where they are counted; others only mark the VLAN. The worker only, which alone counts
// here and resets: it needs no locked instruction.
inline void line_id_count_pppoe(line_id_pppoe_table table, const line_id_common_cfg* cfg, uint32_t type,
                                uint32_t vlan) {
  if (!line_id_counts_pppoe(cfg, vlan)) return;
  g_line_id_statics[line_id_vlan_marker_index(vlan)].store(vlan, std::memory_order_relaxed);
  if (type < LINE_ID_PPPOE_TYPES) line_id_add_alone(g_line_id_statics[line_id_pppoe_count_index(table, type, vlan)]);
}
// By code: 0, or -1 where messages are not counted.
int32_t line_id_inc_pppoe_recv_pkt_count(uint8_t oltid, uint8_t code, uint16_t vlan);
int32_t line_id_inc_pppoe_forwd_pkt_count(uint8_t oltid, uint8_t code, uint16_t vlan);
int32_t line_id_inc_pppoe_drop_pkt_count(uint8_t oltid, uint8_t code, uint16_t vlan);

// One total each.
void line_id_dhcpv4_pkt_processed_add();
void line_id_dhcpv4_pkt_processed_up_add();
void line_id_dhcpv4_pkt_processed_dn_add();
void line_id_dhcpv6_pkt_processed_add();
void line_id_dhcpv6_pkt_processed_up_add();
void line_id_dhcpv6_pkt_processed_dn_add();
void line_id_pppoe_pkt_processed_add();
void line_id_pppoe_pkt_processed_up_add();
void line_id_pppoe_pkt_processed_dn_add();
void line_id_dhcpv4_pkt_dropped_add();
void line_id_dhcpv4_pkt_dropped_up_add();
void line_id_dhcpv4_pkt_dropped_dn_add();
void line_id_dhcpv6_pkt_dropped_add();
void line_id_dhcpv6_pkt_dropped_up_add();
void line_id_dhcpv6_pkt_dropped_dn_add();
void line_id_pppoe_pkt_dropped_add();
void line_id_pppoe_pkt_dropped_up_add();
void line_id_pppoe_pkt_dropped_dn_add();
