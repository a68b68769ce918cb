// An agent in a process of its own, over the public header alone: feeds frames and tells what came of them on request.
#include "tests/process/protocol.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr uint16_t FLOOD_PORT = 100;

std::atomic<uint32_t> g_accepted, g_refused, g_hooked, g_sent, g_wrong;
std::atomic<bool> g_held, g_standing, g_flooding;
std::atomic<int32_t> g_worker;
std::mutex g_lock; // guards what follows; callbacks and the main thread
std::vector<uint8_t> g_last;
std::array<std::vector<uint8_t>, FLOOD_THREADS> g_first;
std::string g_events;

void record_event(const std::string& event) {
  if (g_events.size() + event.size() < MAX_EVENT_TEXT) g_events += event + "\n";
}

// The VLANs in a CTC Circuit-ID: " 100.200".
std::string vlans_in(const std::vector<uint8_t>& frame) {
  constexpr char HEAD[] = "0 0/0/0:";
  const auto at = std::search(frame.begin(), frame.end(), HEAD, HEAD + sizeof(HEAD) - 1);
  if (at == frame.end()) return "";
  const auto text = at + sizeof(HEAD) - 1;
  return " " + std::string(text, std::find(text, frame.end(), ' '));
}

int set_drv_enable(uint8_t oltid, uint8_t protocol, uint8_t enable) {
  const std::lock_guard<std::mutex> guard(g_lock);
  record_event("trap " + std::to_string(oltid) + "/" + std::to_string(protocol) + "/" + std::to_string(enable));
  return 0;
}

int send_eth_frame(uint8_t, uint8_t, uint16_t port, const uint8_t* frame, uint32_t len) {
  const std::lock_guard<std::mutex> guard(g_lock);
  g_last.assign(frame, frame + len);
  if (port >= FLOOD_PORT && port < FLOOD_PORT + FLOOD_THREADS) {
    std::vector<uint8_t>& first = g_first[port - FLOOD_PORT];
    if (first.empty()) first = g_last;
    if (first != g_last) ++g_wrong;
  } else {
    record_event("sent " + std::to_string(port) + vlans_in(g_last));
  }
  ++g_sent;
  if (gettid() != g_worker) ++g_hooked; // a frame that needed no work has no hook
  return 0;
}

int packet_hook(uint8_t, uint32_t, uint32_t, uint32_t, line_id_pkt_property*) {
  g_worker = gettid();
  while (g_held) {
    g_standing = true;
    std::this_thread::sleep_for(1ms);
  }
  g_standing = false;
  ++g_hooked;
  return 0;
}

int text_name(char* buf, uint32_t size) { return std::snprintf(buf, size, "NAME") < 0; }
int olt_slot(uint16_t* slot) { return *slot = 3, 0; }
int onu_slot(uint16_t* slot, uint16_t* sub_slot) { return *slot = 1, *sub_slot = 2, 0; }
int tech_form(uint16_t, uint16_t, uint8_t* form) { return *form = LINE_ID_FORM_GP, 0; }

int reg_info(line_id_onu_reg_info* info) {
  std::strcpy(info->onu_id, "ONU42");
  info->onu_rpc_ponno = 5;
  info->onu_losn_valid_or_invalid = 1;
  info->onu_type_id = 9;
  return 0;
}

int port_info(uint16_t, line_id_onu_port_info* info) {
  info->port_type = LINE_ID_PORT_ETH;
  info->number[1] = 7;
  return 0;
}

int configure() {
  static line_id_fmt_list formats = {"", "%m", "%m"};
  const line_id_hal_func_table hal = {
      .set_drv_enable = set_drv_enable,
      .send_eth_frame = send_eth_frame,
      .mac_spoof_alarm = nullptr,
      .log_output = nullptr,
      .get_access_typename = text_name,
      .get_card_typename = text_name,
      .get_olt_card_slot_info = olt_slot,
      .get_onu_card_slot_info = onu_slot,
      .get_access_device_tech_form = tech_form,
      .get_onu_reg_info_by_optional_elem = reg_info,
      .get_onu_port_info_by_logic_port = port_info,
  };
  line_id_ex_cfg_table table = {};
  table.dhcp_reg = table.dhcpv6_reg = table.pppoe_reg = table.dhcp_spoof_reg = table.pppoe_spoof_reg = 1;
  table.option82_enable = table.option18_enable = table.option37_enable = table.pppoe_plus_enable = 1;
  table.circuitid_enable = table.remoteid_enable = 1;
  table.line_id_format_type = 1;
  table.dhcpv6_tag_dn_strip = 1;
  table.cross_process_shared_mem = 1;
  table.fmt_list = &formats;
  for (uint8_t oltid = 0; oltid < LINE_ID_INSTANCES; ++oltid) {
    if (const int32_t ret = line_id_data_init(oltid, LINE_ID_MODE_OLT, &table, &hal); ret != 0) return ret;
  }
  line_id_reg_custom_pkt_proc_if(packet_hook);
  return line_id_set_line_id_buf_pool_num(POOL_UNITS);
}

int32_t hand_in(const agent_request& request, const line_id_append_info& line, uint16_t port) {
  const bool pppoe = request.len > 14 && request.frame[12] == 0x88 && request.frame[13] == 0x63;
  const auto receive = pppoe ? line_id_pppoe_receive : line_id_dhcp_receive;
  const int32_t ret = receive(request.frame, request.len, port, static_cast<uint8_t>(request.direct), &line);
  ++(ret == 0 ? g_accepted : g_refused);
  return ret;
}

template <class Condition> bool wait_for(Condition condition, std::chrono::milliseconds patience = 10s) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(200us);
  }
  return true;
}

// A frame that needs no work has left when the call returns; the others pass the hook and are sent, or not.
int32_t feed(const agent_request& request, agent_reply& reply) {
  const uint32_t hooked = g_hooked;
  const uint32_t sent = g_sent;
  const int32_t ret = hand_in(request, request.line, 1);
  if (ret != 0) return ret;
  wait_for([&] { return g_hooked != hooked || g_sent != sent; });
  if (wait_for([&] { return g_sent != sent; }, 200ms)) {
    const std::lock_guard<std::mutex> guard(g_lock);
    reply.len = static_cast<uint32_t>(g_last.size());
    std::memcpy(reply.octets, g_last.data(), g_last.size());
  }
  return ret;
}

int32_t post(const agent_request& request) {
  int32_t ret = 0;
  line_id_append_info line = request.line;
  for (uint16_t port = 1; port <= request.times && ret == 0; ++port) {
    line.cvlan = port;
    ret = hand_in(request, line, port);
  }
  return ret;
}

void flood(const agent_request& request, uint16_t thread) {
  line_id_append_info line = request.line;
  line.cvlan = FLOOD_PORT + thread;
  line.ext[LINE_ID_EXT_OLTID] = FLOOD_INSTANCE;
  while (g_flooding) {
    if (hand_in(request, line, FLOOD_PORT + thread) != 0) std::this_thread::yield();
  }
}

int32_t hold(const agent_request& request) {
  g_held = true;
  const int32_t ret = hand_in(request, request.line, 1);
  return ret == 0 && !wait_for([] { return g_standing.load(); }) ? 1 : ret;
}

bool settled() {
  static uint32_t sent_before = 0;
  const uint32_t sent = g_sent;
  const bool idle = g_hooked >= g_accepted && sent == sent_before;
  sent_before = sent;
  if (!idle) std::this_thread::sleep_for(10ms);
  return idle;
}

int32_t serve(const agent_request& request, agent_reply& reply) {
  static std::vector<std::thread> threads;
  switch (request.op) {
  case OP_FEED: return feed(request, reply);
  case OP_POST: return post(request);
  case OP_HOLD: return hold(request);
  case OP_RELEASE: g_held = false; return 0;
  case OP_SETTLE: return wait_for(settled) ? 0 : 1;
  case OP_FLOOD:
    g_flooding = true;
    for (uint16_t t = 0; t < FLOOD_THREADS; ++t) threads.emplace_back([request, t] { flood(request, t); });
    return 0;
  case OP_FLOOD_STOP:
    g_flooding = false;
    for (std::thread& thread : threads) thread.join();
    threads.clear();
    return 0;
  case OP_EVENTS: {
    const std::lock_guard<std::mutex> guard(g_lock);
    reply.len = static_cast<uint32_t>(g_events.size());
    std::memcpy(reply.octets, g_events.data(), g_events.size());
    g_events.clear();
    return 0;
  }
  case OP_FLUSH: return std::fflush(stdout);
  }
  return -1;
}

} // namespace

int main() {
  if (configure() != 0) return 1;
  int32_t started = 0;
  std::thread worker([&started] { started = line_id_proc_entry(nullptr); });
  static agent_request request;
  for (ssize_t got = 1; got > 0;) {
    got = recv(0, &request, sizeof(request), 0);
    if (got != static_cast<ssize_t>(sizeof(request))) break;
    static agent_reply reply;
    reply = {};
    reply.result = serve(request, reply);
    reply.worker = g_worker;
    reply.counts = {g_accepted, g_refused, g_hooked, g_sent, g_wrong};
    if (send(0, &reply, sizeof(reply), 0) < 0) break;
  }
  g_held = false;
  wait_for([] { return line_id_stop() == 0; });
  worker.join();
  return started == 0 ? 0 : 2;
}
