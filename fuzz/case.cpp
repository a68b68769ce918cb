// The agent under fuzz, and one input's way through it.
#include "fuzz/case.h"

#include "antispoof/binding_table.h"
#include "config/policy.h"
#include "config/store.h"
#include "config/vlan_profile.h"
#include "config/white_list.h"
#include "core/log.h"
#include "fuzz/oracle.h"
#include "packet/check.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint8_t HOOK_INSTANCE = 1;

bool g_hook_moves;

int write_letters(uint8_t mode, line_id_param_write_func write, line_id_pkt_property* property) {
  if (mode != 2) return 0;
  write('n', "hooked", 6, 1); // letters of the line: a device-wide one would outlive the input
  write('m', "h", 1, 0);
  if (g_hook_moves) property->reserved[LINE_ID_EXT_OLTID] = HOOK_INSTANCE;
  return 0;
}

void put_template(char (&field)[LINE_ID_FORMAT_LEN], const octets& text) {
  std::memset(field, 0, sizeof(field));
  if (!text.empty()) std::memcpy(field, text.data(), std::min(text.size(), sizeof(field)));
}

// All instances with the same identity and VLAN profiles; those stay for the run.
void start_once() {
  static const bool started = [] {
    std::freopen("/dev/null", "w", stdout);
    agent_config config = agent_defaults();
    FUZZ_CHECK(agent_start(config) == 0, "the agent did not start");
    char full[LINE_ID_FORMAT_LEN];
    for (size_t i = 0; i < sizeof(full); ++i) full[i] = "%a/%s.%m-"[i % 9];
    const char own[LINE_ID_FORMAT_LEN] = "%a %s.%c/%m-%n";
    const char none[LINE_ID_FORMAT_LEN] = "";
    for (uint8_t oltid = 0; oltid < LINE_ID_INSTANCES; ++oltid) {
      line_id_set_ani_param_cfg(oltid, "an1", 3, 1, 2);
      for (const uint8_t type : {LINE_ID_PROFILE_CIRCUIT, LINE_ID_PROFILE_REMOTE}) {
        line_id_set_circuit_id_vlan_fmt_cfg(oltid, type, 1, LINE_ID_TEMPLATE_OWN, own);
        line_id_set_circuit_id_vlan_fmt_cfg(oltid, type, 2, LINE_ID_TEMPLATE_CTC, none);
        line_id_set_circuit_id_vlan_fmt_cfg(oltid, type, 3, LINE_ID_TEMPLATE_CNC, none);
        line_id_set_circuit_id_vlan_fmt_cfg(oltid, type, 4, LINE_ID_TEMPLATE_OWN, none);
        line_id_set_circuit_id_vlan_fmt_cfg(oltid, type, 64, LINE_ID_TEMPLATE_OWN, full);
      }
    }
    g_line_id_debug_bits = ~0U;
    return true;
  }();
  static_cast<void>(started);
}

void settle_instance(uint8_t oltid, const fuzz_case& input) {
  const fuzz_settings& set = input.settings;
  const auto on = [&set](uint8_t bit) { return static_cast<uint8_t>((set.off & bit) == 0); };
  const auto spoof = [&set](uint8_t bit) { return static_cast<uint8_t>((set.spoofing & bit) != 0); };
  line_id_set_option82_cfg(oltid, on(OFF_OPTION82));
  line_id_set_option18_cfg(oltid, on(OFF_OPTION18));
  line_id_set_option37_cfg(oltid, on(OFF_OPTION37));
  line_id_set_pppoe_plus_cfg(oltid, on(OFF_PPPOE));
  line_id_set_circuitid_cfg(oltid, on(OFF_CIRCUIT_ID));
  line_id_set_remoteid_cfg(oltid, on(OFF_REMOTE_ID));
  line_id_set_option82_transparent_cfg(oltid, on(OFF_82_TRANSPARENT) == 0);
  line_id_set_pppoe_plus_transparent_cfg(oltid, on(OFF_PPPOE_TRANSPARENT) == 0);
  line_id_set_dhcp_anti_spoofing_enable_cfg(oltid, spoof(SPOOF_DHCP));
  line_id_set_dhcp_anti_spoofing_active_cfg(oltid, spoof(SPOOF_DHCP_ACTIVE));
  line_id_set_pppoe_anti_spoofing_enable_cfg(oltid, spoof(SPOOF_PPPOE));
  line_id_set_dhcp_valid_binding_count_cfg(oltid, set.spoofing >> 4 & 3);
  line_id_set_pppoe_valid_binding_count_cfg(oltid, set.spoofing >> 4 & 3);
  line_id_set_line_id_format_type_cfg(oltid, static_cast<uint8_t>(((set.formats & 15) + 1) % 3));
  line_id_common_cfg& cfg = g_line_id_common_cfg[oltid];
  put_template(cfg.circuit_id_custom_format, input.circuit);
  put_template(cfg.remote_id_format, input.remote);
  put_template(cfg.option37_format, input.remote);
}

void settle_policies(const fuzz_settings& set) {
  const auto circuit = static_cast<uint8_t>((set.policies & 15) % 3);
  const auto remote = static_cast<uint8_t>((set.policies >> 4) % 3);
  line_id_set_dhcp_circuitid_up_policy_cfg(circuit);
  line_id_set_pppoe_circuitid_up_policy_cfg(circuit);
  line_id_set_dhcp_remoteid_up_policy_cfg(remote);
  line_id_set_pppoe_remoteid_up_policy_cfg(remote);
  line_id_set_def_std_fmt_type_cfg(static_cast<uint8_t>((set.formats >> 4) % 3));
  line_id_set_pkt_exception_policy_cfg(static_cast<uint8_t>((set.strips >> 4 & 3) % 3));
  line_id_set_dhcpv6_option18_level((set.strips & STRIP_LEVEL_0) != 0 ? 0 : 1);
  line_id_set_dhcpv6_tag_dn_strip_cfg((set.strips & STRIP_DHCP6_TWICE) != 0 ? 2 : 1);
  line_id_set_pppoe_tag_dn_strip_cfg((set.strips & STRIP_PPPOE) != 0 ? 1 : 0);
  line_id_set_dhcp_tag_dn_strip_cfg((set.strips & STRIP_DHCP4) != 0 ? 1 : 0);

  line_id_white_list list = {};
  list.num = (set.white_list & WHITE_LISTED) != 0 ? 1 : 0;
  list.onu_type[0] = 9;
  list.trans_policy = (set.white_list & WHITE_POLICY) != 0 ? 1 : 0;
  list.dhcp_enable = (set.white_list & WHITE_DHCP) != 0 ? 1 : 0;
  list.pppoe_enable = (set.white_list & WHITE_PPPOE) != 0 ? 1 : 0;
  line_id_set_trans_white_list_obj(&list);
}

void settle_device(const fuzz_settings& set) {
  g_agent.send_result = (set.ways & WAY_SEND_FAILS) != 0 ? -1 : 0;
  g_agent.facts_result = (set.ways & WAY_FACTS_FAIL) != 0 ? -1 : 0;
  g_agent.olt_slot = (set.ways & WAY_NO_SLOT) != 0 ? 0 : 3;
  g_agent.form = set.form == 0 ? uint8_t{LINE_ID_FORM_GP} : set.form;
  g_agent.port.port_type = set.form % 2 == 0 ? LINE_ID_PORT_ETH : LINE_ID_PORT_ATM;
  g_agent.onu.onu_losn_valid_or_invalid = (set.ways & WAY_IDENTITY) != 0 ? 0 : 1;
  std::memset(g_agent.onu.onu_id, 0, sizeof(g_agent.onu.onu_id));
  if (set.onu_id_len == 0) {
    std::memcpy(g_agent.onu.onu_id, "ONU42", 5);
  } else {
    std::memset(g_agent.onu.onu_id, 'i', set.onu_id_len % LINE_ID_TEXT_SIZE);
  }
  line_id_reg_param_custom_if((set.ways & (WAY_HOOK_WRITES | WAY_HOOK_MOVES)) != 0 ? write_letters : nullptr);
  g_hook_moves = (set.ways & WAY_HOOK_MOVES) != 0;
}

// ---- frames

void put16(octets& frame, size_t at, size_t value) {
  if (at + 2 > frame.size()) return;
  frame[at] = static_cast<uint8_t>(value >> 8);
  frame[at + 1] = static_cast<uint8_t>(value);
}

// Length fields as long as what is there: ingress refuses nearly every mutation otherwise.
void mend_lengths(uint8_t protocol, octets& frame) {
  const auto len = static_cast<uint32_t>(frame.size());
  const size_t at = 14 + static_cast<size_t>(line_id_check_vlan_tag_num(frame.data(), len)) * 4;
  if (protocol == LINE_ID_PPPOE) {
    if (frame.size() >= at + 6) put16(frame, at + 4, frame.size() - at - 6);
  } else if (line_id_get_eth_header_type(frame.data(), len) == LINE_ID_DHCPV6) {
    if (frame.size() < at + 48) return;
    put16(frame, at + 4, frame.size() - at - 40);
    put16(frame, at + 44, frame.size() - at - 40);
  } else if (frame.size() >= at + 28) {
    put16(frame, at + 2, frame.size() - at);
    put16(frame, at + 24, frame.size() - at - 20);
  }
}

// The longest frame there is, of another subscriber, every text in it and on its line made of `mark`.
octets marked_frame(uint8_t protocol, uint8_t mark) {
  const octets run(20, mark);
  octets id;
  for (const char delimiter : std::string_view(" ./:;[]{}<>()-_ ///////////")) {
    id.insert(id.end(), 3, mark);
    id.push_back(static_cast<uint8_t>(delimiter));
  }
  const octets ids = join({tlv1(1, id), tlv1(2, run)});
  frame_builder frame = eth({{2, mark, mark, mark, mark, mark}});
  uint16_t filler = 60;
  switch (protocol) {
  case LINE_ID_DHCPV4: frame.dhcp4(REQUEST).option(53, {REQUEST}).option(82, ids); break;
  case LINE_ID_DHCPV6:
    frame.relay6(RELAY_FORW, mark, octets(16, mark)).option(9, dhcp6_message(REQUEST6, {tlv2(1, run)})).option(18, id);
    break;
  default:
    filler = 0x0103;
    frame.pppoe(PADR).option(0x0105, join({{0, 0, 0x0D, 0xE9}, ids}));
    break;
  }
  const size_t head = protocol == LINE_ID_DHCPV4 ? 2 : 4;
  const size_t end = protocol == LINE_ID_DHCPV4 ? 1 : 0;
  while (frame.frame.size() + head + end <= LINE_ID_MAX_FRAME_LEN) {
    const size_t room = LINE_ID_MAX_FRAME_LEN - frame.frame.size() - head - end;
    frame.option(filler, octets(std::min<size_t>(room, 250), mark));
  }
  return end != 0 ? frame.end() : frame.done();
}

bool is_off(uint8_t protocol, const octets& frame, uint8_t oltid) {
  if (protocol == LINE_ID_PPPOE) {
    return line_id_get_pppoe_plus_enable_cfg(oltid) == 0 || line_id_get_pppoe_plus_transparent_cfg(oltid) == 1;
  }
  const auto len = static_cast<uint32_t>(frame.size());
  if (line_id_get_eth_header_type(frame.data(), len) == LINE_ID_DHCPV6) {
    return line_id_get_option18_enable_cfg(oltid) == 0;
  }
  return line_id_get_option82_enable_cfg(oltid) == 0 || line_id_get_option82_transparent_cfg(oltid) == 1;
}

// The frame behind a frame of another subscriber, through the same unit.
outcome run_behind(uint8_t protocol, const fuzz_case& input, const octets& frame, uint8_t mark) {
  static const octets before[2][4] = {
      {{}, marked_frame(1, 'Q'), marked_frame(2, 'Q'), marked_frame(3, 'Q')},
      {{}, marked_frame(1, 0xB5), marked_frame(2, 0xB5), marked_frame(3, 0xB5)},
  };
  const fuzz_settings& set = input.settings;
  line_id_append_info other = set.line;
  other.svlan = other.cvlan = other.onu_portid = other.onu_gemid = mark;
  other.ext[LINE_ID_EXT_CID] = other.ext[LINE_ID_EXT_RID] = mark == 'Q' ? 1 : 2;
  other.ext[LINE_ID_EXT_LINE_ID_SWITCH] = 1;
  fuzz_feed(protocol, before[mark == 'Q' ? 0 : 1][protocol], LINE_ID_UPSTREAM, other);
  line_id_clear_dhcp_binding_table();
  line_id_clear_pppoe_binding_table();

  const uint8_t direct = (set.down & 1) != 0 ? LINE_ID_DOWNSTREAM : LINE_ID_UPSTREAM;
  if ((set.spoofing & SPOOF_OTHER_FIRST) != 0) {
    line_id_append_info neighbour = set.line;
    neighbour.onu_authno ^= 1;
    fuzz_feed(protocol, frame, direct, neighbour);
  }
  line_id_dbg_level_set((set.ways & WAY_TRACE) != 0 ? 2 : 0); // this frame alone: traces are slow
  const outcome out = fuzz_feed(protocol, frame, direct, set.line);
  line_id_dbg_level_set(0);
  return out;
}

bool same(const outcome& a, const outcome& b) {
  const auto same_frame = [](const sent_frame& x, const sent_frame& y) {
    return x.oltid == y.oltid && x.direct == y.direct && x.port == y.port && x.frame == y.frame;
  };
  return a.result == b.result && std::equal(a.sent.begin(), a.sent.end(), b.sent.begin(), b.sent.end(), same_frame);
}

} // namespace

void fuzz_finding(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::fputs("FINDING: ", stderr);
  std::vfprintf(stderr, format, args);
  std::fputs("\n", stderr);
  va_end(args);
  std::abort();
}

bool fuzz_read(const uint8_t* data, size_t size, fuzz_case& input) {
  if (size < sizeof(input.settings)) return false;
  std::memcpy(&input.settings, data, sizeof(input.settings));
  data += sizeof(input.settings);
  size -= sizeof(input.settings);
  const auto take = [&](size_t len) {
    len = std::min(len, size);
    octets taken(data, data + len);
    data += len;
    size -= len;
    return taken;
  };
  input.circuit = take(input.settings.circuit_len);
  input.remote = take(input.settings.remote_len);
  input.frame = take(size);
  return true;
}

octets fuzz_write(const fuzz_case& input) {
  fuzz_settings settings = input.settings;
  settings.circuit_len = static_cast<uint8_t>(input.circuit.size());
  settings.remote_len = static_cast<uint8_t>(input.remote.size());
  octets out(sizeof(settings));
  std::memcpy(out.data(), &settings, sizeof(settings));
  return join({out, input.circuit, input.remote, input.frame});
}

exact_copy::exact_copy(const octets& from) : at(new uint8_t[from.size()]) {
  if (!from.empty()) std::memcpy(at.get(), from.data(), from.size());
}

uint8_t fuzz_instance(const line_id_append_info& line) {
  const uint8_t oltid = line.ext[LINE_ID_EXT_OLTID];
  return oltid < LINE_ID_INSTANCES ? oltid : uint8_t{0};
}

void fuzz_settle(const fuzz_case& input) {
  start_once();
  settle_instance(fuzz_instance(input.settings.line), input);
  settle_instance(HOOK_INSTANCE, input);
  settle_policies(input.settings);
  settle_device(input.settings);
  g_agent.traps.clear();
  g_agent.logs.clear();
  g_agent.alarms.clear();
}

outcome fuzz_feed(uint8_t protocol, const octets& frame, uint8_t direct, const line_id_append_info& line) {
  g_agent.sent.clear();
  g_agent.hook_calls = 0;
  const exact_copy copy(frame);
  const auto receive = protocol == LINE_ID_PPPOE ? line_id_pppoe_receive : line_id_dhcp_receive;
  outcome out = {};
  out.result = receive(copy.at.get(), static_cast<uint32_t>(frame.size()), 11, direct, &line);
  agent_run();
  out.sent = g_agent.sent;

  FUZZ_CHECK(agent_free_units() == agent_units(), "%u of %u units are free", agent_free_units(), agent_units());
  FUZZ_CHECK(out.sent.size() <= 1, "sent %zu times", out.sent.size());
  if (!frame.empty() && is_off(protocol, frame, line.ext[LINE_ID_EXT_OLTID])) {
    FUZZ_CHECK(g_agent.hook_calls == 0, "the hook saw a frame that was passed through");
    FUZZ_CHECK(out.sent.empty() || out.sent[0].frame == frame, "a frame that was passed through changed");
    return out;
  }
  const uint32_t queued = out.result == 0 ? 1 : 0;
  FUZZ_CHECK(g_agent.hook_calls == queued, "result %d, and the hook was called %u times", out.result,
             g_agent.hook_calls);
  FUZZ_CHECK(out.sent.size() <= queued, "sent though refused with %d", out.result);
  return out;
}

int fuzz_frame(uint8_t protocol, const uint8_t* data, size_t size) {
  fuzz_case input = {};
  if (!fuzz_read(data, size, input)) return -1;
  fuzz_settle(input);
  octets frame = input.frame;
  if ((input.settings.ways & WAY_MEND) != 0) mend_lengths(protocol, frame);

  const outcome first = run_behind(protocol, input, frame, 'Q');
  const outcome second = run_behind(protocol, input, frame, 0xB5);
  FUZZ_CHECK(same(first, second), "what came before shows in a frame");
  if (first.sent.empty()) return 0;
  const octets& sent = first.sent[0].frame;
  const int32_t policy = line_id_get_pkt_exception_policy_cfg();
  FUZZ_CHECK(policy != 1 || sent == frame, "changed under the policy of passing all");
  FUZZ_CHECK(policy != 2 || is_off(protocol, frame, input.settings.line.ext[LINE_ID_EXT_OLTID]),
             "sent under the policy of dropping all");
  fuzz_check_sent(protocol, input, frame, sent);
  return 0;
}
