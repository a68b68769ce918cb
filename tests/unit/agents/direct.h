// One frame put before an agent itself, past ingress: every octet behind the frame, and behind the output, is
// forbidden.
#pragma once

#include "agents/dhcp4.h"
#include "agents/pppoe.h"
#include "packet/check.h"
#include "packet/protocol_table.h"
#include "tests/support/agent.h"

#include <cstring>
#include <memory>

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(at, len) static_cast<void>(at)
#define ASAN_UNPOISON_MEMORY_REGION(at, len) static_cast<void>(at)
#endif

// A frame with its record, as the worker's entry leaves them.
struct agent_desk {
  line_id_pkt_info pkt = {};
  line_id_inf_info info = {};
  std::unique_ptr<line_id_unit> unit = std::make_unique<line_id_unit>();
  std::unique_ptr<uint8_t[]> out{new uint8_t[LINE_ID_SCRATCH_LEN]};

  agent_desk(const octets& frame, uint8_t packet_type, uint8_t direct) {
    const line_id_append_info line = test_line();
    pkt.packet_type = packet_type;
    pkt.direct = direct;
    pkt.svlan = line.svlan;
    pkt.cvlan = line.cvlan;
    pkt.onu_ponno = line.onu_ponno;
    pkt.onu_portid = line.onu_portid;
    pkt.onu_authno = line.onu_authno;
    std::memcpy(pkt.reserved, line.ext, sizeof(line.ext));
    unit->pkt_info_ptr = info.pkt_info_ptr = &pkt;
    unit->length = info.origin_pkt_len = info.new_pkt_len = static_cast<uint16_t>(frame.size());
    if (!frame.empty()) std::memcpy(unit->data, frame.data(), frame.size());
    pkt.vlan_count = static_cast<uint8_t>(line_id_check_vlan_tag_num(unit->data, unit->length));
    info.origin_pkt_ptr = unit->data;
    info.new_pkt = out.get();
    std::memcpy(out.get(), unit->data, unit->length);
    ASAN_POISON_MEMORY_REGION(unit->data + unit->length, sizeof(unit->data) - unit->length);
  }
  ~agent_desk() { ASAN_UNPOISON_MEMORY_REGION(unit->data, sizeof(unit->data)); }
  agent_desk(const agent_desk&) = delete;
  agent_desk& operator=(const agent_desk&) = delete;

  const uint8_t* at(uint32_t offset) const { return info.origin_pkt_ptr + offset; }
  octets sent() const { return {out.get(), out.get() + info.new_pkt_len}; }
  int32_t ask() {
    const line_id_agent_func agent =
        pkt.packet_type == LINE_ID_PPPOE ? line_id_pppoe_event_proc : line_id_dhcp_event_proc;
    return agent(unit.get(), out.get(), &info);
  }
};

// A frame cut at every length stays within what is left of it, and what comes out within the output frame.
inline void ask_with_cuts(octets frame, uint8_t packet_type, uint8_t direct) {
  for (; !frame.empty(); frame.pop_back()) {
    agent_desk desk(frame, packet_type, direct);
    const int32_t verdict = desk.ask();
    ASSERT_TRUE(verdict == 0 || verdict == -1 || verdict == -2) << frame.size();
    ASSERT_LE(desk.info.new_pkt_len, 1536) << frame.size();
  }
}
