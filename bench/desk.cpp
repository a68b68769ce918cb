// The agent under measurement.
#include "bench/desk.h"

#include "agents/dhcp4.h"
#include "agents/dhcp6.h"
#include "agents/pppoe.h"
#include "config/store.h"
#include "core/device_if.h"
#include "core/service.h"
#include "core/worker.h"
#include "lineid/circuit_id.h"
#include "lineid/params.h"
#include "lineid/remote_id.h"
#include "packet/check.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

std::atomic<uint32_t> g_sent_len;
std::atomic<uint32_t> g_sent_frames;
void (*g_after_send)();

namespace {

int set_drv_enable(uint8_t, uint8_t, uint8_t) { return 0; }

int send_eth_frame(uint8_t, uint8_t, uint16_t, const uint8_t*, uint32_t len) {
  g_sent_len.store(len, std::memory_order_relaxed);
  // The worker alone sends.
  g_sent_frames.store(g_sent_frames.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  if (g_after_send != nullptr) g_after_send();
  return 0;
}

int get_name(char* buf, uint32_t size) {
  std::snprintf(buf, size, "NAME");
  return 0;
}

int get_olt_card_slot_info(uint16_t* slot) {
  *slot = 3;
  return 0;
}

int get_access_device_tech_form(uint16_t, uint16_t, uint8_t* form) {
  *form = LINE_ID_FORM_GP;
  return 0;
}

int get_onu_reg_info_by_optional_elem(line_id_onu_reg_info* info) {
  std::memcpy(info->onu_id, "ONU42", 6);
  info->onu_rpc_ponno = 5;
  info->onu_losn_valid_or_invalid = 1;
  return 0;
}

line_id_hal_func_table callbacks() {
  line_id_hal_func_table hal = {};
  hal.set_drv_enable = set_drv_enable;
  hal.send_eth_frame = send_eth_frame;
  hal.get_access_typename = get_name;
  hal.get_card_typename = get_name;
  hal.get_olt_card_slot_info = get_olt_card_slot_info;
  hal.get_access_device_tech_form = get_access_device_tech_form;
  hal.get_onu_reg_info_by_optional_elem = get_onu_reg_info_by_optional_elem;
  return hal;
}

[[noreturn]] void give_up(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

} // namespace

void desk_start(desk_mode mode, bool cross_process) {
  const bool whole = mode == desk_mode::WHOLE;
  line_id_fmt_list formats = {};
  std::strcpy(formats.circuit_id, BENCH_CIRCUIT_ID);
  std::strcpy(formats.remote_id, whole ? "%m" : BENCH_REMOTE_ID);
  std::strcpy(formats.option37, whole ? "%m" : BENCH_REMOTE_ID);
  line_id_ex_cfg_table table = {};
  table.dhcp_reg = table.dhcpv6_reg = table.pppoe_reg = table.dhcp_spoof_reg = table.pppoe_spoof_reg = 1;
  table.option82_enable = table.option18_enable = table.option37_enable = table.pppoe_plus_enable = 1;
  table.circuitid_enable = table.remoteid_enable = 1;
  table.line_id_format_type = whole ? 1 : 0;
  table.dhcpv6_tag_dn_strip = 1;
  table.cross_process_shared_mem = cross_process ? 1 : 0;
  table.fmt_list = &formats;
  const line_id_hal_func_table hal = callbacks();
  if (line_id_data_init(0, LINE_ID_MODE_OLT, &table, &hal) != LINE_ID_OK) give_up("line_id_data_init refused");
  line_id_set_ani_param_cfg(0, "an1", 3, 1, 2);
  if (!whole) g_device_if.param_provider = nullptr;
}

line_id_append_info bench_line() {
  line_id_append_info line = {};
  line.svlan = 100;
  line.cvlan = 200;
  line.onu_ponno = 5;
  line.onu_portid = 7;
  line.onu_gemid = 1001;
  line.onu_authno = 42;
  std::memcpy(line.onu_mac, "\x00\x00\x5E\x00\x53\x42", 6);
  line.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 1;
  return line;
}

namespace {

frame_builder begin_frame(uint32_t tags) {
  frame_builder frame = eth();
  for (uint32_t i = 0; i < tags; ++i) frame.vlan(static_cast<uint16_t>(100 + i), i == 0 && tags > 1 ? 0x88A8 : 0x8100);
  return frame;
}

frame_builder dhcp4_frame(uint32_t tags) {
  frame_builder frame = begin_frame(tags);
  frame.dhcp4(DISCOVER).option(53, {DISCOVER}).option(61, {1, 0, 0, 0x5E, 0, 0x53, 1});
  return frame.option(12, text("subscriber-1.x")).option(60, text("vendor-a")).option(55, {1, 3, 6, 15, 28, 51, 58});
}

frame_builder dhcp6_frame(uint32_t tags) {
  frame_builder frame = begin_frame(tags);
  return frame.dhcp6(SOLICIT)
      .option(1, {0, 3, 0, 1, 0, 0, 0x5E, 0, 0x53, 1})
      .option(6, {0, 23, 0, 24})
      .option(8, {0, 0})
      .option(3, {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0})
      .option(25, {0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0});
}

frame_builder pppoe_frame(uint32_t tags) {
  frame_builder frame = begin_frame(tags);
  return frame.pppoe(PADI).option(0x0101, {}).option(0x0103, {1, 2, 3, 4, 5, 6, 7, 8});
}

} // namespace

namespace {

// A frame of a protocol that is still open for options.
frame_builder open_frame(uint8_t packet_type, uint32_t tags, uint32_t more_options) {
  const bool dhcp4 = packet_type == LINE_ID_DHCPV4;
  frame_builder frame = dhcp4                           ? dhcp4_frame(tags)
                        : packet_type == LINE_ID_DHCPV6 ? dhcp6_frame(tags)
                                                        : pppoe_frame(tags);
  for (uint32_t i = 0; i < more_options; ++i) frame.option(static_cast<uint16_t>((dhcp4 ? 128 : 0x0200) + i), {1, 2});
  return frame;
}

} // namespace

octets bench_frame(uint8_t packet_type, uint32_t tags, uint32_t more_options) {
  frame_builder frame = open_frame(packet_type, tags, more_options);
  return packet_type == LINE_ID_DHCPV4 ? frame.end() : frame.done();
}

octets bench_frame_with_identity(uint8_t packet_type, uint32_t tags, uint32_t more_options) {
  const octets subs = join({tlv1(1, text("0 0/0/0:9.9 home/0/0/0/0/0/ONUX/1/2 GP")), tlv1(2, text("ONUX"))});
  switch (packet_type) {
  case LINE_ID_DHCPV4: return open_frame(packet_type, tags, more_options).option(82, subs).end();
  case LINE_ID_PPPOE:
    return open_frame(packet_type, tags, more_options).option(0x0105, join({{0, 0, 0x0D, 0xE9}, subs})).done();
  default: {
    octets inner = dhcp6_message(SOLICIT, {tlv2(1, {0, 3, 0, 1, 0, 0, 0x5E, 0, 0x53, 1}), tlv2(8, {0, 0})});
    for (uint32_t i = 0; i < more_options; ++i) inner = join({inner, tlv2(static_cast<uint16_t>(0x0200 + i), {1, 2})});
    return begin_frame(tags)
        .relay6(RELAY_FORW, 0, link_local(1))
        .option(9, inner)
        .option(18, text("0 0/0/0:9.9 h/1 GP"))
        .done();
  }
  }
}

bench_desk::bench_desk(const octets& from, uint8_t packet_type) : frame(from) {
  const line_id_append_info line = bench_line();
  pkt.packet_type = packet_type;
  pkt.direct = LINE_ID_UPSTREAM;
  pkt.svlan = line.svlan;
  pkt.cvlan = line.cvlan;
  pkt.onu_ponno = line.onu_ponno;
  pkt.onu_portid = line.onu_portid;
  pkt.onu_gemid = line.onu_gemid;
  pkt.onu_authno = line.onu_authno;
  std::memcpy(pkt.reserved, line.ext, sizeof(line.ext));
  unit->pkt_info_ptr = info.pkt_info_ptr = &pkt;
  unit->length = info.origin_pkt_len = static_cast<uint16_t>(frame.size());
  std::memcpy(unit->data, frame.data(), frame.size());
  std::memcpy(info.client_mac, unit->data + 6, sizeof(info.client_mac));
  info.origin_pkt_ptr = unit->data;
}

int32_t bench_desk::ask() {
  const auto len = static_cast<uint32_t>(frame.size());
  const uint8_t* data = unit->data;
  pkt.vlan_count = static_cast<uint8_t>(line_id_count_tags(data, len));
  switch (pkt.packet_type) {
  case LINE_ID_DHCPV4:
    if (line_id_check_dhcp_pkt(data, len, pkt.vlan_count, LINE_ID_UPSTREAM) != LINE_ID_OK) return LINE_ID_ERR;
    return line_id_dhcp_event_proc(unit.get(), out, &info);
  case LINE_ID_DHCPV6: return line_id_dhcpv6_event_proc(unit.get(), out, &info);
  default: {
    const uint32_t header = ETH_HEADER_LEN + VLAN_TAG_LEN * pkt.vlan_count;
    const auto remaining = static_cast<int32_t>(len - header);
    if (line_id_check_pppoe_header(data + header, remaining, LINE_ID_UPSTREAM) != LINE_ID_OK) return LINE_ID_ERR;
    return line_id_pppoe_event_proc(unit.get(), out, &info);
  }
  }
}

void bench_desk::ask_texts() {
  line_id_param_proc(pkt.packet_type - 1, &info);
  const line_id_text_source from = line_id_text_source_of(0, &info);
  line_id_print_circuit_id_untraced(from, out, pkt.packet_type == LINE_ID_DHCPV6 ? 1 : 0, &info);
  line_id_print_remote_id_untraced(from, out, &info);
}

void bench_copy_texts(uint8_t* out, std::string_view circuit_id, std::string_view remote_id) {
  std::memcpy(out, circuit_id.data(), circuit_id.size());
  std::memcpy(out + circuit_id.size(), remote_id.data(), remote_id.size());
}

one_thread_path::one_thread_path() : worker(lib_comm_lib_create("bench")) {
  if (line_id_init_sys_resource(nullptr) != LINE_ID_OK) give_up("line_id_init_sys_resource refused");
}

one_thread_path::~one_thread_path() { lib_comm_release(worker); }

int32_t one_thread_path::run(const octets& frame, uint8_t packet_type) {
  const int32_t taken = bench_hand_in(frame, packet_type, line);
  lib_comm_task task = {};
  lib_comm_thread_fetch_with_func(worker, &task, line_id_msg_func, 0);
  lib_comm_thread_call(&task);
  return taken;
}

int32_t bench_hand_in(const octets& frame, uint8_t packet_type, const line_id_append_info& line) {
  const auto receive = packet_type == LINE_ID_PPPOE ? line_id_pppoe_receive : line_id_dhcp_receive;
  return receive(frame.data(), static_cast<uint32_t>(frame.size()), 1, LINE_ID_UPSTREAM, &line);
}

std::thread bench_start_worker() {
  std::thread worker([] { line_id_proc_entry(nullptr); });
  const octets frame = bench_frame(LINE_ID_DHCPV4);
  const uint32_t before = g_sent_frames;
  while (g_sent_frames == before) {
    bench_hand_in(frame, LINE_ID_DHCPV4, bench_line());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  for (uint32_t seen = 0; seen != g_sent_frames;) {
    seen = g_sent_frames;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return worker;
}

void bench_stop_worker(std::thread& worker) {
  while (line_id_stop() != LINE_ID_OK) std::this_thread::yield();
  worker.join();
}

void bench_remove_shared_objects() {
  const std::string command = std::string("rm -f /dev/shm/") + getenv("LINE_ID_IPC_PREFIX") + ".*";
  if (std::system(command.c_str()) != 0) std::fprintf(stderr, "could not remove the shared objects\n");
}
