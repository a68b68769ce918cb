// The counters and the rules by which frames are counted.
#include "config/statistics.h"

std::atomic<uint32_t> g_line_id_statics[LINE_ID_STATICS_COUNTERS];

namespace {

// Places of a protocol's totals within a group of nine: all, upstream, downstream.
constexpr uint32_t PROCESSED = 0;
constexpr uint32_t DROPPED = 9;
constexpr uint32_t PASS_THROUGH = 18;
constexpr uint32_t PER_PROTOCOL = 3;

constexpr const char* LABELS[LINE_ID_STATICS_TOTALS] = {
    "dhcpv4_pkt_processed",    "dhcpv4_pkt_processed__up",   "dhcpv4_pkt_processed_dn",
    "dhcpv6_pkt_processed",    "dhcpv6_pkt_processed__up",   "dhcpv6_pkt_processed_dn",
    "pppoe_pkt_processed",     "pppoe_pkt_processed__up",    "pppoe_pkt_processed_dn",
    "dhcpv4_pkt_dropped",      "dhcpv4_pkt_dropped__up",     "dhcpv4_pkt_dropped_dn",
    "dhcpv6_pkt_dropped",      "dhcpv6_pkt_dropped__up",     "dhcpv6_pkt_dropped_dn",
    "pppoe_pkt_dropped",       "pppoe_pkt_dropped__up",      "pppoe_pkt_dropped_dn",
    "dhcpv4_pkt_pass_through", "dhcpv4_pkt_pass_through_up", "dhcpv4_pkt_pass_through_dn",
    "dhcpv6_pkt_pass_through", "dhcpv6_pkt_pass_through_up", "dhcpv6_pkt_pass_through_dn",
    "pppoe_pkt_pass_through",  "pppoe_pkt_pass_through_up",  "pppoe_pkt_pass_through_dn",
};

void add(uint32_t index) { g_line_id_statics[index].fetch_add(1, std::memory_order_relaxed); }

bool is_counted(uint8_t direction, int8_t protocol) {
  return (direction == LINE_ID_UPSTREAM || direction == LINE_ID_DOWNSTREAM) && protocol >= LINE_ID_DHCPV4 &&
         protocol <= LINE_ID_PPPOE;
}

uint32_t total_of(uint32_t group, int8_t protocol) {
  return group + static_cast<uint32_t>(protocol - LINE_ID_DHCPV4) * PER_PROTOCOL;
}

int32_t count_code(line_id_pppoe_table table, uint8_t oltid, uint8_t code, uint16_t vlan) {
  const line_id_common_cfg* cfg = line_id_cfg_of(oltid);
  line_id_count_pppoe(table, cfg, LINE_ID_PPPOE_TYPE_OF[code], vlan);
  return line_id_counts_pppoe(cfg, vlan) ? LINE_ID_OK : LINE_ID_ERR;
}

} // namespace

const char* line_id_statics_label(uint32_t index) { return LABELS[index]; }

int32_t line_id_reset_statistics_cfg() {
  for (std::atomic<uint32_t>& counter : g_line_id_statics) counter.store(0, std::memory_order_relaxed);
  return LINE_ID_OK;
}

void line_id_inc_processed_pkt_count(uint8_t direction, int8_t protocol, uint8_t pass_through) {
  if (!is_counted(direction, protocol)) return;
  // The pass-through totals stay 0: the processed total counts every frame that was sent.
  line_id_add_alone(g_line_id_statics[total_of(PROCESSED, protocol)]);
  line_id_add_alone(g_line_id_statics[total_of(pass_through != 0 ? PASS_THROUGH : PROCESSED, protocol) + direction]);
}

int32_t line_id_inc_drop_pkt_count(uint8_t direction, int8_t protocol) {
  if (!is_counted(direction, protocol)) return LINE_ID_OK;
  int8_t counted_as = protocol;
  // ODD: upstream, a dropped DHCPv6 frame counts as PPPoE and a dropped PPPoE frame as DHCPv6.
  if (direction == LINE_ID_UPSTREAM && protocol == LINE_ID_DHCPV6) counted_as = LINE_ID_PPPOE;
  if (direction == LINE_ID_UPSTREAM && protocol == LINE_ID_PPPOE) counted_as = LINE_ID_DHCPV6;
  add(total_of(DROPPED, counted_as) + direction);
  add(total_of(DROPPED, counted_as));
  return LINE_ID_OK;
}

int32_t line_id_inc_pppoe_recv_pkt_count(uint8_t oltid, uint8_t code, uint16_t vlan) {
  return count_code(PPPOE_RECEIVED, oltid, code, vlan);
}
int32_t line_id_inc_pppoe_forwd_pkt_count(uint8_t oltid, uint8_t code, uint16_t vlan) {
  return count_code(PPPOE_FORWARDED, oltid, code, vlan);
}
int32_t line_id_inc_pppoe_drop_pkt_count(uint8_t oltid, uint8_t code, uint16_t vlan) {
  return count_code(PPPOE_DROPPED, oltid, code, vlan);
}

// All three directions of a protocol's group.
#define LINE_ID_TOTALS(stem, first)                                                                                    \
  void line_id_##stem##_add() { add(first); }                                                                          \
  void line_id_##stem##_up_add() { add((first) + LINE_ID_UPSTREAM); }                                                  \
  void line_id_##stem##_dn_add() { add((first) + LINE_ID_DOWNSTREAM); }
LINE_ID_TOTALS(dhcpv4_pkt_processed, 0)
LINE_ID_TOTALS(dhcpv6_pkt_processed, 3)
LINE_ID_TOTALS(pppoe_pkt_processed, 6)
LINE_ID_TOTALS(dhcpv4_pkt_dropped, 9)
LINE_ID_TOTALS(dhcpv6_pkt_dropped, 12)
LINE_ID_TOTALS(pppoe_pkt_dropped, 15)
#undef LINE_ID_TOTALS
