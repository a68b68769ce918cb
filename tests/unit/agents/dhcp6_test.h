// Frames of the DHCPv6 agent's tests, the agent in the host, and its builders called directly.
#pragma once

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "agents/dhcp6.h"
#include "agents/dhcp6_layout.h"
#include "config/policy.h"
#include "config/store.h"
#include "lineid/params.h"
#include "tests/support/agent.h"

// What the agent writes for test_line() by default: CTC head of a line whose logical identity is valid.
inline constexpr char CIRCUIT[] = "0 0/0/0:100.200 an1/1/2/3/0/5/ONU42 ";
inline constexpr char CIRCUIT_NO_IDENTITY[] = "0 0/0/0:100.200 an1/1/2/3/0/5/";
inline constexpr char CIRCUIT_CNC[] = "0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5/ONU42/ ";
inline constexpr char CIRCUIT_CNC_NO_IDENTITY[] = "0 0/0/0:100.200 olt/an1/1/2/3/CARD/0/5 ";

inline octets option18(std::string_view circuit) { return tlv2(18, text(circuit)); }
inline octets option37() { return tlv2(37, join({{0x00, 0x00, 0x0E, 0xDF}, text("ONU42")})); }
inline octets option9(const octets& message) { return tlv2(9, message); }

// Octets of an IPv6 frame with `tags` VLAN tags in front of its UDP header.
inline size_t udp_offset(uint32_t tags) { return 14 + tags * 4 + 40; }

inline octets message_of(const octets& frame, uint32_t tags = 0) {
  return {frame.begin() + static_cast<std::ptrdiff_t>(udp_offset(tags) + 8), frame.end()};
}

// Headers of `received` up to its UDP header, new ports, `message`; lengths and checksum worked out by the builder.
inline octets rebuilt(const octets& received, uint32_t tags, uint16_t src_port, uint16_t dst_port,
                      const octets& message, size_t ext_headers = 0) {
  frame_builder out;
  const size_t udp_at = udp_offset(tags) + ext_headers;
  out.frame.assign(received.begin(), received.begin() + static_cast<std::ptrdiff_t>(udp_at));
  out.ip_at = 14 + tags * 4;
  out.udp_at = static_cast<uint32_t>(udp_at);
  out.ip6 = true;
  out.raw({static_cast<uint8_t>(src_port >> 8), static_cast<uint8_t>(src_port), static_cast<uint8_t>(dst_port >> 8),
           static_cast<uint8_t>(dst_port), 0, 0, 0, 0});
  return out.raw(message).done();
}

inline octets relay_forward(const octets& received, uint32_t tags, uint8_t hops, const octets& options) {
  const auto src = received.begin() + 14 + tags * 4 + 8;
  return rebuilt(received, tags, 547, 547, join({{12, hops}, octets(16, 0), octets(src, src + 16), options}));
}

inline frame_builder tagged(uint32_t tags, const mac_octets& src = SUBSCRIBER_MAC) {
  frame_builder builder = eth(src);
  for (uint32_t i = 0; i < tags; ++i) builder.vlan(static_cast<uint16_t>(100 + i), i == 0 ? 0x88A8 : 0x8100);
  return builder;
}

inline octets solicit(uint32_t tags = 0) {
  return tagged(tags).dhcp6(SOLICIT).option(1, {0, 3, 0, 1, 0, 0, 0x5E, 0, 0x53, 1}).option(8, {0, 0}).done();
}

inline octets reply_message() { return dhcp6_message(REPLY, {tlv2(1, {0, 3, 0, 1, 9, 9}), tlv2(2, {0, 3})}); }

inline octets relay_reply(const octets& relay_options, const octets& peer = link_local(0x77), uint32_t tags = 0) {
  return tagged(tags, SERVER_MAC).relay6(RELAY_REPL, 0, peer).raw(relay_options).done();
}

class dhcp6 : public agent_test {
protected:
  void SetUp() override { start(); }

  void start(const std::function<void(agent_config&)>& change = {}) {
    agent_config config = agent_defaults();
    if (change) change(config);
    ASSERT_EQ(agent_start(config), 0);
  }

  // The one frame that comes out, empty when it is dropped.
  octets feed(const octets& frame, uint8_t direct) {
    const outcome out = agent_feed(frame, direct);
    EXPECT_EQ(out.result, 0);
    EXPECT_LE(out.sent.size(), 1U);
    if (out.sent.empty()) return {};
    EXPECT_EQ(out.sent[0].direct, direct);
    return out.sent[0].frame;
  }
  octets up(const octets& frame) { return feed(frame, LINE_ID_UPSTREAM); }
  octets down(const octets& frame) { return feed(frame, LINE_ID_DOWNSTREAM); }
};

// The builders called with a frame in a heap copy of exactly its size.
struct direct_call {
  line_id_pkt_info pkt = {};
  line_id_inf_info info = {};
  uint8_t out[1536] = {};
  uint16_t out_len = 0;

  explicit direct_call(uint8_t tags = 0) {
    const line_id_append_info line = test_line();
    pkt.svlan = line.svlan;
    pkt.cvlan = line.cvlan;
    pkt.onu_ponno = line.onu_ponno;
    pkt.onu_portid = line.onu_portid;
    pkt.onu_authno = line.onu_authno;
    pkt.packet_type = LINE_ID_DHCPV6;
    pkt.vlan_count = tags;
    info.pkt_info_ptr = &pkt;
    EXPECT_EQ(line_id_param_proc(1, &info), 0);
  }
  int32_t forward(const octets& frame) {
    const auto copy = exact(frame);
    return line_id_dhcpv6_relay_forward_proc(0, copy.get(), static_cast<uint32_t>(frame.size()), out, &out_len, &info);
  }
  int32_t reply(const octets& frame) {
    const auto copy = exact(frame);
    return line_id_dhcpv6_relay_reply_proc(copy.get(), static_cast<uint32_t>(frame.size()), out, &out_len, &info);
  }
  static std::unique_ptr<uint8_t[]> exact(const octets& frame) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[frame.size()]);
    if (!frame.empty()) std::memcpy(copy.get(), frame.data(), frame.size());
    return copy;
  }
};
