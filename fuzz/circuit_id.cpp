// The rebuilding of a received Circuit-ID. An input is a case whose frame is the received sub-option with its head.
#include "fuzz/case.h"

#include "config/store.h"
#include "lineid/circuit_id.h"
#include "lineid/hal.h"
#include "lineid/params.h"
#include "lineid/sub_option.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

struct rebuilt {
  int32_t result;
  octets sub_option;
  bool operator==(const rebuilt&) const = default;
};

// Behind the n-th of an octet; 0 when there are fewer.
size_t behind(const octets& in, char octet, int n) {
  for (size_t at = 0; at < in.size(); ++at) {
    if (in[at] == static_cast<uint8_t>(octet) && --n == 0) return at + 1;
  }
  return 0;
}

// What is kept of a received text in a standard format, 1 CTC or 2 CNC, with the line's technology written over it.
octets kept_tail(int32_t mode, const line_id_inf_info& info, octets received) {
  const bool cnc = mode == 2;
  if (received.size() <= (cnc ? 28 : 24)) return {};
  const std::string technology = info.form == LINE_ID_FORM_GP    ? "GP"
                                 : info.form == LINE_ID_FORM_XG  ? "XG"
                                 : info.form == LINE_ID_FORM_XGS ? "XGS"
                                                                 : "";
  size_t marker = behind(received, ' ', 4);
  if (marker == 0 && !cnc) marker = behind(received, ' ', 3);
  if (marker != 0 && !technology.empty()) {
    const size_t len = received.size() + technology.size() - 2;
    received.resize(received.size() + 3);
    std::copy(technology.begin(), technology.end(), received.begin() + static_cast<std::ptrdiff_t>(marker));
    received.resize(len);
  }
  const bool identity = info.onu.onu_losn_valid_or_invalid == 1;
  const size_t cut = identity == cnc ? behind(received, '/', cnc ? 10 : 8) : behind(received, ' ', 3);
  return cut != 0 ? octets(received.begin() + static_cast<std::ptrdiff_t>(cut), received.end()) : octets();
}

// A standard Circuit-ID is the line's own head and the kept tail, or refused.
void check_standard(const line_id_inf_info& info, const octets& received, const rebuilt& made) {
  const uint8_t oltid = line_id_info_oltid(&info);
  const int32_t by_profile = line_id_check_vlan_based_circuit_fmt(&info, oltid);
  const int32_t mode = by_profile >= 0 ? by_profile : line_id_get_line_id_format_type_cfg(oltid);
  if (mode == 0) return;
  constexpr size_t MAX_RECEIVED = 317;
  octets expected(LINE_ID_SUB_OPTION_LEN);
  expected.resize(static_cast<size_t>(line_id_print_circuit_id(oltid, expected.data(), 1, &info)));
  const octets text(received.begin() + 2, received.end());
  const octets tail = kept_tail(mode, info, text);
  expected.insert(expected.end(), tail.begin(), tail.end());
  if (text.size() > MAX_RECEIVED || expected.size() > LINE_ID_IDENTIFIER_LEN) {
    FUZZ_CHECK(made.result == LINE_ID_ERR_TOO_LONG, "result %d for %zu octets", made.result, expected.size());
    return;
  }
  FUZZ_CHECK(made.result == LINE_ID_OK && octets(made.sub_option.begin() + 2, made.sub_option.end()) == expected,
             "result %d, and not head and tail", made.result);
}

rebuilt modify(const fuzz_settings& set, const octets& received) {
  line_id_pkt_info pkt = {};
  pkt.svlan = set.line.svlan;
  pkt.cvlan = set.line.cvlan;
  pkt.onu_portid = set.line.onu_portid;
  pkt.packet_type = (set.down & 1) != 0 ? LINE_ID_PPPOE : LINE_ID_DHCPV4;
  pkt.direct = LINE_ID_UPSTREAM;
  std::memcpy(pkt.reserved, set.line.ext, sizeof(set.line.ext));
  pkt.reserved[LINE_ID_EXT_OLTID] = fuzz_instance(set.line);
  line_id_inf_info info = {};
  info.pkt_info_ptr = &pkt;
  line_id_take_vlan_profiles(&info);
  line_id_param_proc(line_id_param_set_of(pkt.reserved[LINE_ID_EXT_OLTID], pkt.packet_type), &info);

  const exact_copy old(received);
  const exact_copy out(octets(LINE_ID_SUB_OPTION_LEN, 0));
  uint16_t len = 0;
  rebuilt made = {};
  made.result = line_id_circuit_id_modify(line_id_info_oltid(&info), old.at.get(),
                                          static_cast<uint16_t>(received.size()), out.at.get(), &len, &info);
  if (made.result == LINE_ID_OK) {
    FUZZ_CHECK(len >= 2 && len <= LINE_ID_SUB_OPTION_LEN, "a sub-option of %u", len);
    FUZZ_CHECK(out.at[0] == LINE_ID_SUB_CIRCUIT_ID && out.at[1] == static_cast<uint8_t>(len - 2), "its head");
    made.sub_option.assign(out.at.get(), out.at.get() + len);
  }
  check_standard(info, received, made);
  return made;
}

std::string device_texts(int32_t set) {
  std::string texts;
  for (const char letter : std::string_view(LINE_ID_DEVICE_LETTERS)) {
    texts += std::string(line_id_get_param_text(set, letter)) + "|";
  }
  return texts;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_case input = {};
  if (!fuzz_read(data, size, input) || input.frame.size() < 2 || input.frame.size() > 600) return -1;
  input.settings.ways &= static_cast<uint8_t>(~WAY_HOOK_MOVES);
  fuzz_settle(input);
  const int32_t set = (input.settings.down & 1) != 0 ? LINE_ID_PPPOE - 1 : LINE_ID_DHCPV4 - 1;
  const std::string before = device_texts(set);

  const rebuilt first = modify(input.settings, input.frame);
  FUZZ_CHECK(first.result == LINE_ID_OK || first.result == LINE_ID_ERR || first.result == LINE_ID_ERR_TOO_LONG,
             "result %d", first.result);
  FUZZ_CHECK(device_texts(set) == before, "a received text stayed in a device-wide letter");

  octets other = input.frame; // another subscriber's, which differs in every octet of text
  for (size_t i = 2; i < other.size(); ++i) {
    if (std::isalnum(other[i]) != 0) other[i] = 'Q';
  }
  modify(input.settings, other);
  FUZZ_CHECK(modify(input.settings, input.frame) == first, "another subscriber's text shows");
  return 0;
}
