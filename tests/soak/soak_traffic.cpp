// Frames and clients of the long run.
#include "tests/soak/soak_traffic.h"

#include "tests/soak/soak_agent.h"
#include "tests/support/frames.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <thread>

namespace {

constexpr uint32_t SUBSCRIBERS = 40000; // more than the binding tables take
constexpr uint32_t BATCH = 20;
constexpr std::chrono::milliseconds CLIENT_PAUSE{5};

struct traffic_frame {
  octets frame;
  uint8_t direct;
  bool pppoe;
};

std::vector<traffic_frame> make_frames() {
  const octets mac_pair(16, 0x11);
  const octets server_name = text("isp");
  std::vector<traffic_frame> frames;
  const auto up = [&](octets frame, bool pppoe = false) {
    frames.push_back({std::move(frame), LINE_ID_UPSTREAM, pppoe});
  };
  const auto down = [&](octets frame, bool pppoe = false) {
    frames.push_back({std::move(frame), LINE_ID_DOWNSTREAM, pppoe});
  };
  const octets relay_info = join({tlv1(1, text("other")), tlv1(2, text("else"))});
  up(eth().dhcp4(DISCOVER).option(53, {DISCOVER}).option(55, {1, 3, 6, 15}).end());
  up(eth().vlan(200).dhcp4(REQUEST).option(53, {REQUEST}).option(61, octets(20, 7)).end());
  up(eth().vlan(100, 0x88A8).vlan(200).dhcp4(DISCOVER).option(53, {DISCOVER}).option(82, relay_info).end());
  up(eth().vlan(1).vlan(2).vlan(3).vlan(4).dhcp4(RELEASE).option(53, {RELEASE}).end());
  down(eth(SERVER_MAC).dhcp4(ACK).option(53, {ACK}).option(82, relay_info).end());
  up(eth().dhcp6(SOLICIT).option(1, mac_pair).option(8, {0, 0}).done());
  up(eth().vlan(200).dhcp6(REQUEST6).option(1, mac_pair).option(2, mac_pair).done());
  const octets answer = dhcp6_message(REPLY, {tlv2(1, mac_pair), tlv2(2, mac_pair)});
  down(eth(SERVER_MAC).relay6(RELAY_REPL, 0, link_local(9)).option(18, text("line")).option(9, answer).done());
  up(eth().pppoe(PADI).option(0x0101, {}).done(), true);
  up(eth().vlan(200).pppoe(PADR).option(0x0101, server_name).option(0x0103, octets(8, 3)).done(), true);
  // The spoofing check looks at frames that bring a vendor tag.
  const octets vendor_tag = join({{0, 0, 0x0D, 0xE9}, tlv1(1, text("other")), tlv1(2, text("else"))});
  up(eth().vlan(200).pppoe(PADI).option(0x0101, {}).option(0x0105, vendor_tag).done(), true);
  up(eth().vlan(200).pppoe(PADT, 7).option(0x0105, vendor_tag).done(), true);
  down(eth(SERVER_MAC, SUBSCRIBER_MAC).pppoe(PADO).option(0x0101, server_name).done(), true);
  down(eth(SERVER_MAC, SUBSCRIBER_MAC).pppoe(PADS, 7).option(0x0101, server_name).done(), true);
  octets broken = frames.front().frame; // a header checksum that does not hold
  broken[24] ^= 0x55;
  up(std::move(broken));
  return frames;
}

// One kind of client call; the random word chooses its arguments.
using client_call = int32_t (*)(uint8_t oltid, uint32_t word);

// Mostly as `usual`, so that most frames are worked on.
template <int32_t (*set)(uint8_t, uint8_t), uint8_t usual> int32_t flip(uint8_t oltid, uint32_t word) {
  return set(oltid, word % 8 == 0 ? 1 - usual : usual);
}
template <int32_t (*get)(uint8_t)> int32_t read_switch(uint8_t oltid, uint32_t) {
  const int32_t value = get(oltid);
  return value == 0 || value == 1 ? 0 : value;
}

constexpr char TEMPLATE[] = "%a %f/%s/%p:%v.%c %m";
constexpr client_call CLIENT_CALLS[] = {
    flip<line_id_set_option82_enable, 1>,
    flip<line_id_set_option18_enable, 1>,
    flip<line_id_set_option37_enable, 1>,
    flip<line_id_set_pppoe_plus_enable, 1>,
    flip<line_id_set_remote_id_enable, 1>,
    flip<line_id_set_option82_transparent, 0>,
    flip<line_id_set_pppoe_plus_transparent, 0>,
    flip<line_id_set_dhcp_anti_spoofing_active, 1>,
    flip<line_id_set_dhcpv6_option18, 1>,
    read_switch<line_id_get_option82_enable>,
    read_switch<line_id_get_option18_enable>,
    read_switch<line_id_get_pppoe_plus_enable>,
    [](uint8_t oltid, uint32_t word) { return line_id_set_line_id_format_type(oltid, static_cast<uint8_t>(word % 3)); },
    [](uint8_t oltid, uint32_t word) { return line_id_set_rack_no(oltid, static_cast<uint16_t>(word % 100)); },
    [](uint8_t oltid, uint32_t) { return line_id_set_circuit_id_custom_format(oltid, TEMPLATE, sizeof(TEMPLATE) - 1); },
    [](uint8_t oltid, uint32_t word) { return line_id_set_ani_str(oltid, "access-node-of-the-long-run", word % 28); },
    [](uint8_t oltid, uint32_t) { return line_id_override_param(oltid, 'L', "pinned", 6); },
    [](uint8_t oltid, uint32_t) { return line_id_unoverride_param(oltid, 'L'); },
    [](uint8_t oltid, uint32_t word) {
      return lineid_vlan_profile_cfg_add(oltid, 0, 1 + word % 64, 0, TEMPLATE, sizeof(TEMPLATE) - 1);
    },
    [](uint8_t oltid, uint32_t word) { return lineid_vlan_profile_cfg_del(oltid, 0, 1 + word % 64); },
    [](uint8_t oltid, uint32_t word) {
      return line_id_del_dhcp_anti_spoofing_entry_by_onu(oltid, static_cast<uint16_t>(word % 16),
                                                         static_cast<uint16_t>(word / 16 % 64));
    },
    [](uint8_t oltid, uint32_t) { return line_id_reset_statistics(oltid); },
    [](uint8_t oltid, uint32_t word) { // the whole table now and then only: thousands of lines
      return word % 64 == 0 ? line_id_show_pppoe_binding(oltid) : line_id_show_lineid_status(oltid);
    },
    [](uint8_t, uint32_t) { return line_id_show_pkt_statistics(); },
    [](uint8_t oltid, uint32_t) {
      char texts[LINE_ID_FORMAT_LEN];
      return line_id_get_circuit_id_custom_format(oltid, texts);
    },
    [](uint8_t oltid, uint32_t) {
      line_id_circuit_id_config block;
      return line_id_get_circuit_id_config(oltid, &block);
    },
};

} // namespace

line_id_append_info soak_line(uint32_t subscriber) {
  line_id_append_info line = {};
  line.svlan = 100;
  line.cvlan = static_cast<uint16_t>(1 + subscriber % 4000);
  line.onu_ponno = static_cast<uint16_t>(subscriber % 16);
  line.onu_authno = static_cast<uint16_t>(subscriber / 16 % 64);
  line.onu_portid = static_cast<uint16_t>(subscriber % 4);
  line.onu_gemid = static_cast<uint16_t>(1000 + subscriber % 64);
  line.ext[LINE_ID_EXT_OLTID] = static_cast<uint8_t>(subscriber % 4);
  line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 1;
  return line;
}

std::vector<uint8_t> soak_plain_frame() { return make_frames().front().frame; }

void soak_send_frames(uint32_t rate, uint32_t seed, const std::atomic<bool>& stop) {
  using steady = std::chrono::steady_clock;
  std::vector<traffic_frame> frames = make_frames();
  std::minstd_rand random(seed + 1);
  const auto pause = std::chrono::nanoseconds(1000000000LL * BATCH / rate);
  for (auto next = steady::now(); !stop; next += pause) {
    for (uint32_t i = 0; i < BATCH; ++i) {
      traffic_frame& traffic = frames[random() % frames.size()];
      const auto subscriber = static_cast<uint32_t>(random() % SUBSCRIBERS);
      if (traffic.direct == LINE_ID_UPSTREAM) std::memcpy(&traffic.frame[8], &subscriber, sizeof(subscriber));
      line_id_append_info line = soak_line(subscriber);
      if (random() % 50 == 0) line.onu_authno ^= 1; // a MAC address behind the wrong ONU
      if (random() % 8 == 0) line.ext[LINE_ID_EXT_CID] = static_cast<uint8_t>(random() % 65);
      soak_hand_in(traffic.pppoe, traffic.frame.data(), static_cast<uint32_t>(traffic.frame.size()), traffic.direct,
                   line);
    }
    std::this_thread::sleep_until(next);
  }
}

uint32_t soak_run_client(uint32_t calls, uint32_t seed) {
  if (line_id_init_share_resource(nullptr) < 0) return calls;
  std::minstd_rand random(seed + 1);
  uint32_t failed = 0;
  for (uint32_t i = 0; i < calls; ++i) {
    const client_call* call = &CLIENT_CALLS[random() % std::size(CLIENT_CALLS)];
    const auto oltid = static_cast<uint8_t>(random() % 4);
    const int32_t ret = (*call)(oltid, static_cast<uint32_t>(random()));
    // Another client's get may hold the channel: that one is told so at once and asks again.
    if (ret < 0 && ret != LINE_ID_ERR_GET_MUTEX) {
      ++failed;
      std::fprintf(stderr, "soak: call %td of instance %d gives %d\n", call - CLIENT_CALLS, int{oltid}, int{ret});
    }
    std::this_thread::sleep_for(CLIENT_PAUSE);
  }
  return failed;
}

uint32_t soak_restore_settings() {
  uint32_t failed = 0;
  const auto keep = [&failed](int32_t ret) { failed += ret < 0 ? 1 : 0; };
  for (uint8_t oltid = 0; oltid < 4; ++oltid) {
    keep(line_id_set_option82_enable(oltid, 1));
    keep(line_id_set_option82_transparent(oltid, 0));
  }
  uint32_t address = 0;
  keep(line_id_get_manage_ip(0, &address)); // behind the sets
  return failed;
}
